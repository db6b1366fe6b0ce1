#pragma once
// The program's command line, read before anything needs a display or a bus: what to print and
// with which exit status, or how to run (in the tray only, with debug output, or as a one-shot
// request to the running instance).

#include <QString>
#include <QStringList>
#include <array>
#include <optional>
#include <string_view>

#include "core/StringEnum.h"

namespace lorvane {

// A request a later start sends to the running instance. `none` starts (or reopens) the program.
enum class InstanceAction { none, showSettings, toggleWave, quit };

template <>
struct EnumTraits<InstanceAction> {
    static constexpr std::array<std::string_view, 4> rawValues{"none", "show-settings", "toggle-wave", "quit"};
};

struct CommandLine {
    // Exit codes of the command line itself.
    static constexpr int usageError = 2;

    bool background = false;  // start in the tray only, no settings window
    bool verbose = false;     // debug output of the lorvane.* categories
    InstanceAction action = InstanceAction::none;

    // When set, the program prints `output` (to stdout) or `error` (to stderr) and ends with this code.
    std::optional<int> exitCode;
    QString output;
    QString error;
};

// `arguments` as in argv, the program's name first.
CommandLine parseCommandLine(const QStringList& arguments, const QString& version);

// The D-Bus method of the running instance that carries an action.
QString instanceMethod(InstanceAction action);

// Turns on debug output of the program's log categories.
void enableVerboseLogging();

}  // namespace lorvane
