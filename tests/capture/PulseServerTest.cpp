#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

TEST(PulseServer, StartsPrivatelyWithANullSinkAsDefault) {
    const char* before = std::getenv("PULSE_SERVER");
    std::string directory;
    {
        PulseServer server;
        ASSERT_TRUE(server.running()) << server.why();
        directory = server.directory();
        EXPECT_EQ(std::getenv("PULSE_SERVER"), server.clientAddress());
        const auto info = server.pactl({"info"});
        ASSERT_TRUE(info.ok());
        EXPECT_NE(info.output.find("Default Sink: lorvane_null"), std::string::npos) << info.output;
        EXPECT_EQ(server.recordStreamCount(), 0);
    }
    // Gone afterwards, and the environment is as it was.
    EXPECT_FALSE(std::filesystem::exists(directory));
    const char* after = std::getenv("PULSE_SERVER");
    EXPECT_EQ(before == nullptr, after == nullptr);
}

TEST(PulseServer, CanBeKilledAndRestarted) {
    PulseServer server;
    ASSERT_TRUE(server.running()) << server.why();
    server.kill();
    EXPECT_FALSE(server.running());
    EXPECT_FALSE(server.pactl({"info"}, std::chrono::seconds(5)).ok());
    ASSERT_TRUE(server.restart()) << server.why();
    EXPECT_TRUE(server.pactl({"info"}).ok());
}

TEST(PulseServer, AddsSinksAndSwitchesTheDefault) {
    PulseServer server;
    ASSERT_TRUE(server.running()) << server.why();
    ASSERT_TRUE(server.addNullSink("second"));
    ASSERT_TRUE(server.setDefaultSink("second"));
    EXPECT_NE(server.pactl({"info"}).output.find("Default Sink: second"), std::string::npos);
}

}  // namespace
}  // namespace lorvane::test
