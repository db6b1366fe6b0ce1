// The command line: read before any display is needed, and its requests to the running instance.

#include <gtest/gtest.h>

#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>
#include <QProcess>

#include "Version.h"
#include "app/CommandLine.h"
#include "app/SingleInstance.h"
#include "support/SessionBus.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

struct ProgramRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// The real program, with no display and (unless given) no session bus.
ProgramRun runProgram(const QStringList& arguments, const QString& busAddress = QString()) {
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("DISPLAY");
    environment.remove("WAYLAND_DISPLAY");
    if (busAddress.isEmpty()) {
        environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    } else {
        environment.insert("DBUS_SESSION_BUS_ADDRESS", busAddress);
    }
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(LORVANE_PROGRAM), arguments);
    if (!process.waitForFinished(60000)) return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAllStandardOutput()), QString::fromLocal8Bit(process.readAllStandardError())};
}

}  // namespace

TEST(CommandLineParsing, OptionsAndActions) {
    EXPECT_FALSE(parseCommandLine({"lorvane"}, "1.0").exitCode);
    const auto background = parseCommandLine({"lorvane", "--background", "--verbose"}, "1.0");
    EXPECT_FALSE(background.exitCode);
    EXPECT_TRUE(background.background);
    EXPECT_TRUE(background.verbose);
    EXPECT_EQ(parseCommandLine({"lorvane", "--show-settings"}, "1.0").action, InstanceAction::showSettings);
    EXPECT_EQ(parseCommandLine({"lorvane", "--toggle-wave"}, "1.0").action, InstanceAction::toggleWave);
    EXPECT_EQ(parseCommandLine({"lorvane", "--quit"}, "1.0").action, InstanceAction::quit);
    EXPECT_EQ(parseCommandLine({"lorvane", "--version"}, "1.2.3").output, "Lorvane 1.2.3\n");
    for (const QStringList& bad : {QStringList{"lorvane", "--frobnicate"}, QStringList{"lorvane", "stray"},
                                   QStringList{"lorvane", "--quit", "--toggle-wave"},
                                   QStringList{"lorvane", "--background", "--quit"}}) {
        const auto parsed = parseCommandLine(bad, "1.0");
        ASSERT_TRUE(parsed.exitCode) << bad.join(' ').toStdString();
        EXPECT_EQ(*parsed.exitCode, 2);
        EXPECT_TRUE(parsed.error.contains("--help")) << parsed.error.toStdString();
    }
}

TEST(CommandLineWithoutDisplay, HelpVersionAndUnknownOptions) {
    const ProgramRun help = runProgram({"--help"});
    EXPECT_EQ(help.exitCode, 0) << help.err.toStdString();
    for (const char* option : {"--background", "--show-settings", "--toggle-wave", "--quit", "--verbose", "--version"}) {
        EXPECT_TRUE(help.out.contains(option)) << option;
    }
    EXPECT_FALSE(help.err.contains("graphical")) << help.err.toStdString();

    const ProgramRun version = runProgram({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, QStringLiteral("Lorvane %1\n").arg(LORVANE_VERSION));

    const ProgramRun unknown = runProgram({"--no-such-option"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(unknown.err.contains("no-such-option")) << unknown.err.toStdString();
    EXPECT_TRUE(unknown.out.isEmpty());
}

TEST(CommandLineWithoutDisplay, ActionsWithoutARunningInstanceFailClearly) {
    SessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    for (const char* action : {"--show-settings", "--toggle-wave", "--quit"}) {
        const ProgramRun run = runProgram({action}, QString::fromStdString(bus.address()));
        EXPECT_EQ(run.exitCode, 1) << action;
        EXPECT_TRUE(run.err.contains("not running")) << run.err.toStdString();
    }
    const ProgramRun noBus = runProgram({"--quit"});
    EXPECT_EQ(noBus.exitCode, 1);
    EXPECT_TRUE(noBus.err.contains("session bus")) << noBus.err.toStdString();
}

TEST(CommandLineWithoutDisplay, ActionsReachTheInstanceThatOwnsTheName) {
    SessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    QDBusConnection connection = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "cli-owner");
    {
        SingleInstance running(connection);
        ASSERT_EQ(running.claim(), SingleInstance::Outcome::primary);
        QStringList heard;
        running.showSettingsRequested = [&] { heard << "show"; };
        running.toggleWaveRequested = [&] { heard << "toggle"; };
        running.quitRequested = [&] { heard << "quit"; };
        // The requests come from another process while this one's event loop turns.
        for (const char* action : {"--show-settings", "--toggle-wave", "--quit"}) {
            QProcess process;
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.remove("DISPLAY");
            environment.insert("DBUS_SESSION_BUS_ADDRESS", QString::fromStdString(bus.address()));
            process.setProcessEnvironment(environment);
            process.start(QStringLiteral(LORVANE_PROGRAM), {action});
            ASSERT_TRUE(process.waitForStarted());
            while (process.state() != QProcess::NotRunning) {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
                process.waitForFinished(10);
            }
            EXPECT_EQ(process.exitCode(), 0) << action << process.readAllStandardError().toStdString();
        }
        for (int i = 0; i < 20 && heard.size() < 3; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        EXPECT_EQ(heard, (QStringList{"show", "toggle", "quit"}));
    }
    QDBusConnection::disconnectFromBus("cli-owner");
}

TEST(SingleInstanceDiagnostics, ASilentOwnerIsNamedWithItsProcessAndProgram) {
    SessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    QDBusConnection squatter = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "squatter");
    ASSERT_TRUE(squatter.registerService(SingleInstance::serviceName));
    {
        SingleInstance later(QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "later"));
        later.setCallTimeout(500);
        ASSERT_EQ(later.claim(), SingleInstance::Outcome::unreachable);
        const QString text = later.unreachableExplanation();
        EXPECT_TRUE(text.contains(QString::number(::getpid()))) << text.toStdString();
        EXPECT_TRUE(text.contains(QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath()))
            << text.toStdString();
        EXPECT_TRUE(text.contains("kill")) << text.toStdString();
    }
    QDBusConnection::disconnectFromBus("later");
    QDBusConnection::disconnectFromBus("squatter");
}
