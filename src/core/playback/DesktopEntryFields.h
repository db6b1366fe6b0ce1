#pragma once
// The two fields of a desktop entry file that name a player to the user: its Name and its Icon.

#include <string>
#include <string_view>

namespace lorvane {

struct DesktopEntryFields {
    std::string name;  // empty when absent
    std::string icon;  // an icon theme name or an absolute path; empty when absent

    friend bool operator==(const DesktopEntryFields&, const DesktopEntryFields&) = default;
};

// Reads the unlocalised Name and Icon keys of the [Desktop Entry] group; values are unescaped and
// bounded like any text from another program. Anything malformed is skipped.
DesktopEntryFields parseDesktopEntry(std::string_view text);

}  // namespace lorvane
