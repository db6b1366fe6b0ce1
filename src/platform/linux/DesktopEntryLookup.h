#pragma once
// Finds a desktop entry by id in the XDG application folders and reads its Name and Icon. Answers are
// remembered, in a cache bounded in bytes, since a player's entry is asked for again and again.

#include <QString>
#include <cstddef>
#include <map>
#include <optional>

#include "core/playback/DesktopEntryFields.h"

namespace lorvane {

class DesktopEntryLookup {
public:
    static constexpr std::size_t cacheByteLimit = 64 * 1024;
    // Larger files are no desktop entries worth reading.
    static constexpr qint64 fileByteLimit = 64 * 1024;

    // Nothing when no such entry is installed (or the id is not a plain file name).
    std::optional<DesktopEntryFields> fields(const QString& desktopEntry);

    std::size_t cachedBytes() const { return cachedBytes_; }

private:
    std::map<QString, std::optional<DesktopEntryFields>> cache_;
    std::size_t cachedBytes_ = 0;
};

}  // namespace lorvane
