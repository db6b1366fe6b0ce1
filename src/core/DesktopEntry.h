#pragma once
// Desktop Entry text (XDG autostart entries): one function that turns a command into an Exec value
// with the format's quoting and escaping, one that turns an Exec value back into its arguments,
// and a reader of the group/key/value structure. Pure string functions, UTF-8 in and out.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace lorvane::desktopentry {

// One Exec argument: as it is when it holds no reserved character, otherwise double-quoted with
// " ` $ \ escaped; a literal % is doubled. Nothing when the argument holds a character that no
// Exec value can express (newline, tab and other control characters) or is not valid UTF-8.
std::optional<std::string> quoteExecArgument(const std::string& argument);

// The value of an Exec key (the text after "Exec=") starting `arguments`: each argument quoted as
// above, joined by blanks, then escaped as a string value. Nothing when any argument cannot be expressed.
std::optional<std::string> execValue(const std::vector<std::string>& arguments);

// The arguments of an Exec value as a launcher reads them, with %% read as %; field codes (%f, %u...)
// are dropped. Nothing when the value is malformed (an unterminated quote, a reserved character outside
// quotes, a stray escape).
std::optional<std::vector<std::string>> parseExecValue(const std::string& value);

// A string value (Name=, Comment=): backslashes doubled. Nothing for text that cannot be expressed.
std::optional<std::string> escapeStringValue(const std::string& text);
// The inverse: \s \n \t \r \\ decoded; any other escape is kept as it is.
std::string unescapeStringValue(const std::string& value);

// A parsed entry: group name to (key to raw value). Comments and blank lines are skipped; keys are
// kept as written (with any locale suffix). A key met twice in one group is counted in duplicateKeys.
struct ParsedEntry {
    std::map<std::string, std::map<std::string, std::string>> groups;
    // The first group's name; a valid entry starts with "[Desktop Entry]".
    std::string firstGroup;
    int duplicateKeys = 0;
    // Lines that are neither a comment, a group header nor key=value.
    int malformedLines = 0;

    bool isDesktopEntry() const { return firstGroup == "Desktop Entry"; }
    // The raw value of a key in the "Desktop Entry" group.
    std::optional<std::string> value(const std::string& key) const;
};
ParsedEntry parse(const std::string& text);

}  // namespace lorvane::desktopentry
