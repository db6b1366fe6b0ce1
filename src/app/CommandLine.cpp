#include "app/CommandLine.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QLoggingCategory>

namespace lorvane {

namespace {

QString helpText(const QString& program) {
    return QStringLiteral(
               "Usage: %1 [option]\n"
               "Shows an animated audio wave on the desktop while music plays.\n"
               "\n"
               "Options:\n"
               "  --background      Start in the tray without opening the settings window.\n"
               "  --show-settings   Open the settings window of the running Lorvane.\n"
               "  --toggle-wave     Turn \"Show Waveform\" on or off in the running Lorvane.\n"
               "  --quit            Quit the running Lorvane.\n"
               "  --verbose         Print debug messages (lorvane.* log categories).\n"
               "  -h, --help        Show this help and exit.\n"
               "  -v, --version     Show the version and exit.\n"
               "\n"
               "Starting Lorvane while it runs opens its settings window. --show-settings, --toggle-wave\n"
               "and --quit act on the running Lorvane and fail with status 1 when none runs; bind them\n"
               "to keys in your desktop's keyboard shortcut settings.\n"
               "\n"
               "Exit status: 0 on success, 1 when the program or a request failed, 2 for a usage error.\n")
        .arg(program);
}

}  // namespace

CommandLine parseCommandLine(const QStringList& arguments, const QString& version) {
    CommandLine result;
    const QString program = arguments.isEmpty() ? QStringLiteral("lorvane") : QFileInfo(arguments.first()).fileName();

    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QString());
    const QCommandLineOption showVersion({QStringLiteral("v"), QStringLiteral("version")}, QString());
    const QCommandLineOption background(QStringLiteral("background"), QString());
    const QCommandLineOption verbose(QStringLiteral("verbose"), QString());
    const QCommandLineOption showSettings(QStringLiteral("show-settings"), QString());
    const QCommandLineOption toggleWave(QStringLiteral("toggle-wave"), QString());
    const QCommandLineOption quit(QStringLiteral("quit"), QString());
    parser.addOptions({help, showVersion, background, verbose, showSettings, toggleWave, quit});

    const auto usageError = [&](const QString& message) {
        result.exitCode = CommandLine::usageError;
        result.error = QStringLiteral("%1: %2\nTry '%1 --help' for more information.\n").arg(program, message);
        return result;
    };

    if (!parser.parse(arguments.isEmpty() ? QStringList{program} : arguments)) {
        return usageError(parser.errorText());
    }
    if (parser.isSet(help)) {
        result.exitCode = 0;
        result.output = helpText(program);
        return result;
    }
    if (parser.isSet(showVersion)) {
        result.exitCode = 0;
        result.output = QStringLiteral("Lorvane %1\n").arg(version);
        return result;
    }
    if (!parser.positionalArguments().isEmpty()) {
        return usageError(QStringLiteral("Unexpected argument '%1'.").arg(parser.positionalArguments().first()));
    }
    int actions = 0;
    for (const auto& [option, action] : {std::pair{&showSettings, InstanceAction::showSettings},
                                         std::pair{&toggleWave, InstanceAction::toggleWave},
                                         std::pair{&quit, InstanceAction::quit}}) {
        if (!parser.isSet(*option)) continue;
        ++actions;
        result.action = action;
    }
    if (actions > 1) return usageError(QStringLiteral("Give only one of --show-settings, --toggle-wave and --quit."));
    if (actions == 1 && parser.isSet(background)) {
        return usageError(QStringLiteral("--background starts Lorvane; it cannot be combined with an action."));
    }
    result.background = parser.isSet(background);
    result.verbose = parser.isSet(verbose);
    return result;
}

QString instanceMethod(InstanceAction action) {
    switch (action) {
        case InstanceAction::none:
            return QStringLiteral("Reopen");
        case InstanceAction::showSettings:
            return QStringLiteral("ShowSettings");
        case InstanceAction::toggleWave:
            return QStringLiteral("ToggleWave");
        case InstanceAction::quit:
            return QStringLiteral("Quit");
    }
    return QStringLiteral("Reopen");
}

void enableVerboseLogging() {
    QLoggingCategory::setFilterRules(QStringLiteral("lorvane.*.debug=true"));
}

}  // namespace lorvane
