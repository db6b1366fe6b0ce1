#include "ui/shell/OtherPlayersSection.h"

#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "core/playback/DesktopEntryFields.h"

namespace lorvane {

namespace {

QString qText(const std::string& text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// The entry's Name and Icon from the application folders; nothing for an entry not installed here.
DesktopEntryFields installedEntry(const std::string& desktopEntry) {
    const QString id = qText(desktopEntry);
    if (id.isEmpty() || id.contains(QLatin1Char('/'))) return {};
    const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, id + QStringLiteral(".desktop"));
    if (path.isEmpty() || !QFileInfo(path).isFile()) return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    const QByteArray text = file.read(64 * 1024);
    return parseDesktopEntry(std::string_view(text.constData(), static_cast<std::size_t>(text.size())));
}

QIcon entryIcon(const std::string& icon) {
    const QString name = qText(icon);
    if (!name.isEmpty() && QFileInfo(name).isAbsolute()) return QIcon(name);
    const QIcon generic = QIcon::fromTheme(QStringLiteral("audio-x-generic"));
    return name.isEmpty() ? generic : QIcon::fromTheme(name, generic);
}

}  // namespace

OtherPlayersSection::OtherPlayersSection(OverlayPreferences& preferences,
                                         std::function<void(bool)> setOtherPlayersEnabled,
                                         std::function<void(const std::string&, bool)> setOtherPlayerEnabled,
                                         QWidget* parent)
    : QWidget(parent),
      preferences_(preferences),
      setOtherPlayersEnabled_(std::move(setOtherPlayersEnabled)),
      setOtherPlayerEnabled_(std::move(setOtherPlayerEnabled)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    auto* header = new QLabel(QString::fromUtf8(title), this);
    QFont font = header->font();
    font.setPointSize(14);
    font.setBold(true);
    header->setFont(font);
    layout->addWidget(header);

    allPlayers_ = new QCheckBox(QString::fromUtf8(switchText), this);
    allPlayers_->setAccessibleDescription(
        QStringLiteral("Whether music players other than the four above can show the wave"));
    layout->addWidget(allPlayers_);
    connect(allPlayers_, &QCheckBox::clicked, this, [this](bool on) {
        if (setOtherPlayersEnabled_) setOtherPlayersEnabled_(on);
    });

    empty_ = new QLabel(QString::fromUtf8(emptyText), this);
    empty_->setEnabled(false);
    layout->addWidget(empty_);

    auto* list = new QWidget(this);
    list_ = new QVBoxLayout(list);
    list_->setContentsMargins(0, 0, 0, 0);
    list_->setSpacing(0);
    layout->addWidget(list);

    refresh();
    // Every change to the other players is announced as a change of the enabled players.
    observer_ = preferences_.changed.connect([this](PreferenceKey key) {
        if (key == PreferenceKey::enabledPlayers) scheduleRefresh();
    });
}

OtherPlayersSection::~OtherPlayersSection() { preferences_.changed.disconnect(observer_); }

void OtherPlayersSection::scheduleRefresh() {
    // Several switches may change in one turn: rebuild once, on the next.
    if (refreshPending_) return;
    refreshPending_ = true;
    QTimer::singleShot(0, this, [this] { refresh(); });
}

OtherPlayersSection::Row OtherPlayersSection::makeRow(const std::string& desktopEntry) {
    const DesktopEntryFields fields = installedEntry(desktopEntry);
    Row row;
    row.title = fields.name.empty() ? qText(desktopEntry) : qText(fields.name);
    row.widget = new QWidget;
    auto* layout = new QHBoxLayout(row.widget);
    layout->setContentsMargins(0, 4, 0, 4);
    auto* icon = new QLabel(row.widget);
    icon->setFixedWidth(24);
    icon->setAlignment(Qt::AlignCenter);
    icon->setPixmap(entryIcon(fields.icon).pixmap(20, 20));
    layout->addWidget(icon);
    layout->addWidget(new QLabel(row.title, row.widget));
    layout->addStretch(1);
    row.toggle = new QCheckBox(row.widget);
    row.toggle->setAccessibleName(row.title);
    row.toggle->setAccessibleDescription(QStringLiteral("Whether %1 can show the wave").arg(row.title));
    layout->addWidget(row.toggle);
    connect(row.toggle, &QCheckBox::clicked, this, [this, desktopEntry](bool on) {
        if (setOtherPlayerEnabled_) setOtherPlayerEnabled_(desktopEntry, on);
    });
    return row;
}

void OtherPlayersSection::refresh() {
    refreshPending_ = false;
    const auto& seen = preferences_.seenOtherPlayers();
    if (seen != shownEntries_) {
        // Rows are kept by entry, so a new player adds one row and leaves the others (and focus) alone.
        for (auto it = rows_.begin(); it != rows_.end();) {
            if (std::find(seen.begin(), seen.end(), it->first) == seen.end()) {
                delete it->second.widget;
                it = rows_.erase(it);
            } else {
                ++it;
            }
        }
        for (std::size_t i = 0; i < seen.size(); ++i) {
            auto found = rows_.find(seen[i]);
            if (found == rows_.end()) found = rows_.emplace(seen[i], makeRow(seen[i])).first;
            list_->insertWidget(static_cast<int>(i), found->second.widget);
        }
        shownEntries_ = seen;
    }
    const bool all = preferences_.otherPlayersEnabled();
    allPlayers_->setChecked(all);
    empty_->setVisible(rows_.empty());
    for (auto& [entry, row] : rows_) {
        row.toggle->setChecked(preferences_.otherPlayerEnabled(entry));
        row.widget->setEnabled(all);
    }
}

QCheckBox* OtherPlayersSection::playerToggle(const std::string& desktopEntry) const {
    const auto found = rows_.find(desktopEntry);
    return found == rows_.end() ? nullptr : found->second.toggle;
}

QString OtherPlayersSection::playerTitle(const std::string& desktopEntry) const {
    const auto found = rows_.find(desktopEntry);
    return found == rows_.end() ? QString() : found->second.title;
}

}  // namespace lorvane
