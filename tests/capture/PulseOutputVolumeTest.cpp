// The system output volume read from the default sink of a private PulseAudio server.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "platform/linux/PulseOutputVolume.h"
#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

using namespace std::chrono_literals;

// The value changes on the volume thread when the server says so; ask again every 10 ms.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds bound = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

bool near(double value, double expected) { return std::abs(value - expected) < 0.002; }

class PulseOutputVolumeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.running()) << server.why();
        ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "40%"));
    }

    // Waits until the connection is up and the starting volume has been read.
    void connect(PulseOutputVolume& volume) {
        ASSERT_TRUE(eventually([&] { return volume.connected() && near(volume.systemOutputVolume(), 0.4); }))
            << volume.systemOutputVolume();
    }

    PulseServer server;
};

TEST_F(PulseOutputVolumeTest, FollowsTheDefaultSinksVolume) {
    PulseOutputVolume volume;
    connect(volume);
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "75%"));
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.75); })) << volume.systemOutputVolume();
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "0%"));
    EXPECT_TRUE(eventually([&] { return volume.systemOutputVolume() == 0.0; })) << volume.systemOutputVolume();
}

TEST_F(PulseOutputVolumeTest, AveragesTheChannelsAndClampsAboveNormal) {
    PulseOutputVolume volume;
    connect(volume);
    ASSERT_TRUE(server.pactl({"set-sink-volume", PulseServer::defaultSink, "30%", "90%"}).ok());
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.6); })) << volume.systemOutputVolume();
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "150%"));
    EXPECT_TRUE(eventually([&] { return volume.systemOutputVolume() == 1.0; })) << volume.systemOutputVolume();
}

TEST_F(PulseOutputVolumeTest, IgnoresMute) {
    PulseOutputVolume volume;
    connect(volume);
    ASSERT_TRUE(server.pactl({"set-sink-mute", PulseServer::defaultSink, "1"}).ok());
    // A change that comes after the mute proves the mute has been seen and ignored.
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "55%"));
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.55); })) << volume.systemOutputVolume();
}

TEST_F(PulseOutputVolumeTest, FollowsANewDefaultSink) {
    ASSERT_TRUE(server.addNullSink("second"));
    ASSERT_TRUE(server.setSinkVolume("second", "25%"));
    PulseOutputVolume volume;
    connect(volume);
    ASSERT_TRUE(server.setDefaultSink("second"));
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.25); })) << volume.systemOutputVolume();
    // Changes of a sink that is not the default are not the output volume.
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "90%"));
    ASSERT_TRUE(server.setSinkVolume("second", "35%"));
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.35); })) << volume.systemOutputVolume();
}

TEST_F(PulseOutputVolumeTest, WithoutAServerItIsFullVolumeAndItReconnectsQuietly) {
    server.stop();
    PulseOutputVolume volume(0.2);
    EXPECT_EQ(volume.systemOutputVolume(), 1.0);
    EXPECT_FALSE(volume.connected());
    ASSERT_TRUE(server.restart()) << server.why();
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "40%"));
    connect(volume);
    // The server goes away: full volume again, then back to the server's value once it returns.
    server.kill();
    EXPECT_TRUE(eventually([&] { return !volume.connected(); }));
    EXPECT_EQ(volume.systemOutputVolume(), 1.0);
    ASSERT_TRUE(server.restart()) << server.why();
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "40%"));
    connect(volume);
}

TEST_F(PulseOutputVolumeTest, AnswersAtOnceWhileTheServerIsFrozen) {
    PulseOutputVolume volume;
    connect(volume);
    server.pause();  // a round trip to the server would now wait forever
    EXPECT_TRUE(near(volume.systemOutputVolume(), 0.4));
    server.resume();
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "65%"));
    EXPECT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.65); })) << volume.systemOutputVolume();
}

TEST_F(PulseOutputVolumeTest, SaysWhenTheServerIsBackWithASinkAfterEachRestart) {
    std::atomic<int> appearances{0};
    PulseOutputVolume volume(0.1, [&] { ++appearances; });
    connect(volume);
    EXPECT_TRUE(eventually([&] { return appearances.load() == 1; }));
    for (int round = 2; round <= 3; ++round) {
        server.kill();
        ASSERT_TRUE(eventually([&] { return !volume.connected(); }));
        ASSERT_TRUE(server.restart()) << server.why();
        EXPECT_TRUE(eventually([&] { return appearances.load() == round; })) << appearances.load();
    }
    // A volume change on a sink already known is no appearance.
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "20%"));
    ASSERT_TRUE(eventually([&] { return near(volume.systemOutputVolume(), 0.2); }));
    EXPECT_EQ(appearances.load(), 3);
}

}  // namespace
}  // namespace lorvane::test
