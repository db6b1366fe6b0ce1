// The test player must be a faithful MPRIS peer: the real client playerctl sees and drives it.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "RunCommand.h"
#include "TestPlayerProcess.h"
#include "support/SessionBus.h"

using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

struct TestPlayerWithPlayerctl : ::testing::Test {
    SessionBus bus;
    std::string playerctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "playerctl");
        const auto result = runCommand(arguments, {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}, 20s);
        EXPECT_EQ(result.exitCode, 0) << "playerctl failed: " << result.output;
        std::string output = result.output;
        while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
        return output;
    }
};

}  // namespace

TEST_F(TestPlayerWithPlayerctl, ListsReadsAndControlsThePlayer) {
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    TestPlayerProcess player(bus.address(), {"--name", "spotify", "--identity", "Spotify", "--desktop-entry",
                                             "spotify", "--status", "Playing", "--volume", "0.65"});
    ASSERT_TRUE(player.isReady()) << player.error();
    EXPECT_EQ(player.busName(), "org.mpris.MediaPlayer2.spotify");

    EXPECT_EQ(playerctl({"-l"}), "spotify");
    EXPECT_EQ(playerctl({"-p", "spotify", "status"}), "Playing");
    EXPECT_DOUBLE_EQ(std::stod(playerctl({"-p", "spotify", "volume"})), 0.65);
    EXPECT_EQ(playerctl({"-p", "spotify", "metadata", "title"}), "Test Tone");

    playerctl({"-p", "spotify", "play-pause"});
    EXPECT_EQ(playerctl({"-p", "spotify", "status"}), "Paused");
    playerctl({"-p", "spotify", "play-pause"});
    EXPECT_EQ(playerctl({"-p", "spotify", "status"}), "Playing");
    playerctl({"-p", "spotify", "volume", "0.3"});
    EXPECT_DOUBLE_EQ(std::stod(playerctl({"-p", "spotify", "volume"})), 0.3);

    // Commands on standard input change what clients see.
    ASSERT_TRUE(player.command("stop")) << player.error();
    EXPECT_EQ(playerctl({"-p", "spotify", "status"}), "Stopped");
    EXPECT_FALSE(player.command("no-such-command"));
}

TEST_F(TestPlayerWithPlayerctl, SeveralPlayersAndAPlayerThatLeaves) {
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    TestPlayerProcess first(bus.address(), {"--name", "first", "--status", "Paused"});
    TestPlayerProcess second(bus.address(), {"--name", "second", "--status", "Playing"});
    ASSERT_TRUE(first.isReady() && second.isReady()) << first.error() << second.error();
    const std::string both = playerctl({"-l"});
    EXPECT_NE(both.find("first"), std::string::npos);
    EXPECT_NE(both.find("second"), std::string::npos);
    EXPECT_EQ(playerctl({"-p", "first", "status"}), "Paused");

    ASSERT_TRUE(first.command("release")) << first.error();
    EXPECT_EQ(playerctl({"-l"}), "second");
    second.kill();
    const auto none = runCommand({"playerctl", "-l"}, {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}, 20s);
    EXPECT_EQ(none.output.find("second"), std::string::npos);
}

TEST_F(TestPlayerWithPlayerctl, RefusingPlayerFailsTheClientsPropertyReads) {
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    TestPlayerProcess player(bus.address(), {"--name", "refusing", "--status", "Playing", "--deny"});
    ASSERT_TRUE(player.isReady()) << player.error();
    const auto denied = runCommand({"dbus-send", "--session", "--print-reply", "--dest=org.mpris.MediaPlayer2.refusing",
                                    "/org/mpris/MediaPlayer2", "org.freedesktop.DBus.Properties.Get",
                                    "string:org.mpris.MediaPlayer2.Player", "string:PlaybackStatus"},
                                   {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}, 20s);
    EXPECT_NE(denied.exitCode, 0);
    const auto identity = runCommand({"dbus-send", "--session", "--print-reply",
                                      "--dest=org.mpris.MediaPlayer2.refusing", "/org/mpris/MediaPlayer2",
                                      "org.freedesktop.DBus.Properties.Get", "string:org.mpris.MediaPlayer2",
                                      "string:Identity"},
                                     {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}, 20s);
    EXPECT_EQ(identity.exitCode, 0);
    EXPECT_NE(identity.output.find("Test Player"), std::string::npos);
    ASSERT_TRUE(player.command("allow"));
    EXPECT_EQ(playerctl({"-p", "refusing", "status"}), "Playing");
}

TEST_F(TestPlayerWithPlayerctl, ControlInterfaceOnTheBus) {
    ASSERT_TRUE(bus.isRunning()) << bus.error();
    TestPlayerProcess player(bus.address(), {"--name", "controlled", "--status", "Paused"});
    ASSERT_TRUE(player.isReady()) << player.error();
    const auto reply = runCommand({"dbus-send", "--session", "--print-reply", "--dest=org.mpris.MediaPlayer2.controlled",
                                   "/org/lorvane/TestPlayer", "org.lorvane.TestPlayer.Command", "string:play"},
                                  {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}, 20s);
    EXPECT_EQ(reply.exitCode, 0);
    EXPECT_NE(reply.output.find("\"ok\""), std::string::npos) << reply.output;
    EXPECT_EQ(playerctl({"-p", "controlled", "status"}), "Playing");
}
