// Any bytes as a command and as a whole autostart entry. As a command (the bytes cut at NUL into a
// program and its arguments, and the whole input as one program path followed by the option the
// autostart entry adds) it is either refused, or written into an entry, read back and parsed into
// exactly the same arguments. As an entry file the reader must not crash, and whatever Exec
// arguments it yields must survive the same round trip.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "core/DesktopEntry.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// Only a control character or a byte outside ASCII (text that may not be UTF-8) is a reason to refuse.
bool mayBeRefused(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        for (char c : argument) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || byte >= 0x7f) return true;
        }
    }
    return false;
}

void roundTrip(const std::vector<std::string>& arguments) {
    using namespace lorvane;
    const std::optional<std::string> value = desktopentry::execValue(arguments);
    if (!value) {
        require(mayBeRefused(arguments));
        return;
    }
    require(value->find('\n') == std::string::npos && value->find('\r') == std::string::npos);
    const std::string text = "[Desktop Entry]\nType=Application\nName=Lorvane\nExec=" + *value + "\nTerminal=false\n";
    const desktopentry::ParsedEntry entry = desktopentry::parse(text);
    require(entry.isDesktopEntry());
    require(entry.malformedLines == 0 && entry.duplicateKeys == 0);
    require(entry.value("Exec") == value);
    const auto parsed = desktopentry::parseExecValue(*value);
    require(parsed.has_value());
    require(*parsed == arguments);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace lorvane;
    const std::string bytes(reinterpret_cast<const char*>(data), size);

    roundTrip({bytes, "--background"});
    std::vector<std::string> arguments;
    std::size_t start = 0;
    while (arguments.size() < 16) {
        const std::size_t end = bytes.find('\0', start);
        arguments.push_back(bytes.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    roundTrip(arguments);

    // A string value reads back as it was written.
    if (const auto escaped = desktopentry::escapeStringValue(bytes)) {
        require(desktopentry::unescapeStringValue(*escaped) == bytes);
    }

    const desktopentry::ParsedEntry entry = desktopentry::parse(bytes);
    if (const auto name = entry.value("Name")) (void)desktopentry::unescapeStringValue(*name);
    if (const auto exec = entry.value("Exec")) {
        if (const auto parsed = desktopentry::parseExecValue(*exec)) {
            require(!parsed->empty());
            // What a launcher would run, written again, must read back the same.
            if (desktopentry::execValue(*parsed)) roundTrip(*parsed);
        }
    }
    return 0;
}
