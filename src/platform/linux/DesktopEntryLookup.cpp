#include "platform/linux/DesktopEntryLookup.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace lorvane {

std::optional<DesktopEntryFields> DesktopEntryLookup::fields(const QString& desktopEntry) {
    if (desktopEntry.isEmpty() || desktopEntry.contains(QLatin1Char('/')) || desktopEntry.startsWith(QLatin1Char('.'))) {
        return std::nullopt;
    }
    if (const auto found = cache_.find(desktopEntry); found != cache_.end()) return found->second;

    std::optional<DesktopEntryFields> result;
    const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation,
                                                desktopEntry + QStringLiteral(".desktop"));
    // Only regular files: opening a FIFO or a device under that name could block the caller.
    if (!path.isEmpty() && QFileInfo(path).isFile()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray text = file.read(fileByteLimit);
            result = parseDesktopEntry(std::string_view(text.constData(), static_cast<std::size_t>(text.size())));
        }
    }

    const std::size_t bytes = static_cast<std::size_t>(desktopEntry.size()) * sizeof(QChar) +
                              (result ? result->name.size() + result->icon.size() : 0) + 64;
    if (cachedBytes_ + bytes > cacheByteLimit) {
        cache_.clear();
        cachedBytes_ = 0;
    }
    cache_.emplace(desktopEntry, result);
    cachedBytes_ += bytes;
    return result;
}

}  // namespace lorvane
