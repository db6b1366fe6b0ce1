// Capture and the output volume over the program's one connection to a private sound server: one
// client, one thread, one idea of the default sink, and both back on that one connection after the
// server dies and returns.

#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/PulseCaptureSource.h"
#include "platform/linux/PulseConnection.h"
#include "platform/linux/PulseOutputVolume.h"
#include "support/EventLoopWait.h"
#include "support/PulsePlayer.h"
#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

using namespace std::chrono_literals;

// The names of this process's threads.
std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (const dirent* entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
            std::string name;
            std::getline(comm, name);
            names.push_back(name);
        }
        closedir(dir);
    }
    return names;
}

long threadsNamed(const std::string& name) {
    const auto names = threadNames();
    return std::count(names.begin(), names.end(), name);
}

// The server's clients that are this program's (its application id) in this process. The test player
// in this process is a client too, under another name.
int programClients(const PulseServer& server) { return server.clientCount(getpid(), "com.tarnhollow.Lorvane"); }

bool near(double value, double expected) { return std::abs(value - expected) < 0.002; }

// What the capture hands over, from the connection's thread.
class Recorder {
public:
    CaptureSource::Handlers handlers() {
        return {[this](const SampleBlock& block) {
                    char name[16] = {};
                    pthread_getname_np(pthread_self(), name, sizeof name);
                    double sum = 0;
                    std::size_t count = 0;
                    for (const auto& buffer : block.buffers) {
                        const auto* samples = reinterpret_cast<const float*>(buffer.data());
                        for (std::size_t i = 0; i < buffer.size() / sizeof(float); ++i, ++count) {
                            sum += static_cast<double>(samples[i]) * samples[i];
                        }
                    }
                    std::lock_guard lock(mutex_);
                    ++blocks_;
                    lastRms_ = count ? std::sqrt(sum / static_cast<double>(count)) : 0;
                    threadName_ = name;
                },
                [this](AudioCaptureFailureReport failure) {
                    std::lock_guard lock(mutex_);
                    failures_.push_back(failure);
                }};
    }
    std::size_t blocks() const {
        std::lock_guard lock(mutex_);
        return blocks_;
    }
    double lastRms() const {
        std::lock_guard lock(mutex_);
        return lastRms_;
    }
    std::string threadName() const {
        std::lock_guard lock(mutex_);
        return threadName_;
    }
    std::vector<AudioCaptureFailureReport> failures() const {
        std::lock_guard lock(mutex_);
        return failures_;
    }

private:
    mutable std::mutex mutex_;
    std::size_t blocks_ = 0;
    double lastRms_ = 0;
    std::string threadName_;
    std::vector<AudioCaptureFailureReport> failures_;
};

class SharedPulseConnectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server.running()) << server.why();
        ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "40%"));
    }

    std::string followedSink() {
        PulseConnection::Lock lock(*connection);
        return connection->defaultSink().name;
    }

    PulseServer server;
    std::shared_ptr<PulseConnection> connection = std::make_shared<PulseConnection>(0.2);
    Recorder recorder;
};

TEST_F(SharedPulseConnectionTest, CaptureAndVolumeUseOneClientOnOneThread) {
    PulsePlayer player(PulsePlayer::sine(1000, 0.4472));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    connection.reset();
    const std::size_t threadsBefore = threadNames().size();
    connection = std::make_shared<PulseConnection>(0.2);
    std::atomic<int> appearances{0};
    PulseOutputVolume volume(connection, [&] { ++appearances; });
    PulseCaptureSource source(connection);
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return recorder.blocks() >= 10 && near(volume.systemOutputVolume(), 0.4); }))
        << recorder.blocks() << " blocks, volume " << volume.systemOutputVolume();
    EXPECT_TRUE(recorder.failures().empty());
    EXPECT_EQ(programClients(server), 1);
    // Capture and volume together add exactly one thread to the process, and the blocks come on it.
    EXPECT_EQ(threadNames().size(), threadsBefore + 1) << ::testing::PrintToString(threadNames());
    EXPECT_EQ(threadsNamed(PulseConnection::threadName), 1);
    EXPECT_EQ(recorder.threadName(), PulseConnection::threadName);
    EXPECT_EQ(appearances.load(), 1);
    // Capture ending leaves the connection to the volume, which still follows the sink.
    source.stop();
    ASSERT_TRUE(waitUntil([&] { return server.recordStreamCount() == 0; }, 5000));
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "70%"));
    EXPECT_TRUE(waitUntil([&] { return near(volume.systemOutputVolume(), 0.7); }, 5000)) << volume.systemOutputVolume();
    EXPECT_EQ(programClients(server), 1);
}

TEST_F(SharedPulseConnectionTest, CaptureAndVolumeAgreeOnANewDefaultSink) {
    ASSERT_TRUE(server.addNullSink("second"));
    ASSERT_TRUE(server.setSinkVolume("second", "25%"));
    // A loud tone only into the second sink.
    PulsePlayer player(PulsePlayer::sine(1000, 0.4472), "second");
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    PulseOutputVolume volume(connection);
    PulseCaptureSource source(connection);
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return recorder.blocks() >= 5 && near(volume.systemOutputVolume(), 0.4); }))
        << volume.systemOutputVolume();
    EXPECT_EQ(source.recordedSource(), "lorvane_null.monitor");
    EXPECT_LT(recorder.lastRms(), 0.001);

    ASSERT_TRUE(server.setDefaultSink("second"));
    // The monitor hears the tone after the sink's volume: 0.316 at 25% (0.25 cubed) is about 0.005.
    EXPECT_TRUE(waitUntil([&] {
        return near(volume.systemOutputVolume(), 0.25) && source.recordedSource() == "second.monitor" &&
               recorder.lastRms() > 0.003;
    })) << volume.systemOutputVolume() << " " << source.recordedSource() << " " << recorder.lastRms();
    EXPECT_EQ(followedSink(), "second");
    EXPECT_EQ(server.recordStreamSources(), std::vector<std::string>{"second.monitor"});
    // The old default's volume is no longer the output volume; the new one's is.
    ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "90%"));
    ASSERT_TRUE(server.setSinkVolume("second", "35%"));
    EXPECT_TRUE(waitUntil([&] { return near(volume.systemOutputVolume(), 0.35); }, 5000)) << volume.systemOutputVolume();

    // Unplugging the second sink takes both back to the first.
    ASSERT_TRUE(server.removeNullSink("second"));
    EXPECT_TRUE(waitUntil([&] {
        return near(volume.systemOutputVolume(), 0.9) && source.recordedSource() == "lorvane_null.monitor";
    })) << volume.systemOutputVolume() << " " << source.recordedSource();
    EXPECT_EQ(followedSink(), PulseServer::defaultSink);
    EXPECT_EQ(server.recordStreamSources(), std::vector<std::string>{"lorvane_null.monitor"});
    const std::size_t count = recorder.blocks();
    EXPECT_TRUE(waitUntil([&] { return recorder.blocks() > count + 10; }, 5000));
    EXPECT_TRUE(recorder.failures().empty());
    EXPECT_EQ(programClients(server), 1);
}

TEST_F(SharedPulseConnectionTest, AfterTheServerDiesBothRecoverOnStillOneConnection) {
    std::atomic<int> appearances{0};
    PulseOutputVolume volume(connection, [&] { ++appearances; });
    PulseCaptureSource source(connection);
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return recorder.blocks() >= 5 && near(volume.systemOutputVolume(), 0.4); }));
    const std::size_t threadsBefore = threadNames().size();
    for (int round = 1; round <= 3; ++round) {
        server.kill();
        ASSERT_TRUE(waitUntil([&] { return recorder.failures().size() == static_cast<std::size_t>(round); }, 5000))
            << "round " << round;
        EXPECT_EQ(recorder.failures().back().reason, AudioCaptureReason::serverStopped) << "round " << round;
        EXPECT_TRUE(waitUntil([&] { return !volume.connected(); }, 5000));
        EXPECT_EQ(volume.systemOutputVolume(), 1.0);
        ASSERT_TRUE(server.restart()) << server.why();
        ASSERT_TRUE(server.setSinkVolume(PulseServer::defaultSink, "40%"));
        // The connection's return is the signal to capture again, as in the program.
        ASSERT_TRUE(waitUntil([&] { return appearances.load() == round + 1; })) << "round " << round;
        const std::size_t count = recorder.blocks();
        source.start(recorder.handlers());
        EXPECT_TRUE(waitUntil([&] { return recorder.blocks() > count + 5 && near(volume.systemOutputVolume(), 0.4); }))
            << "round " << round << ": volume " << volume.systemOutputVolume();
        EXPECT_EQ(source.recordedSource(), "lorvane_null.monitor");
        EXPECT_EQ(programClients(server), 1) << "round " << round;
        EXPECT_EQ(threadsNamed(PulseConnection::threadName), 1) << "round " << round;
    }
    EXPECT_EQ(recorder.failures().size(), 3u);
    EXPECT_LE(threadNames().size(), threadsBefore);
}

TEST_F(SharedPulseConnectionTest, ACaptureStartedWhileTheConnectionWaitsToRetryTriesAtOnce) {
    // A connection that would try again only after a minute.
    connection = std::make_shared<PulseConnection>(60.0);
    server.stop();
    PulseOutputVolume volume(connection);
    PulseCaptureSource source(connection);
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return recorder.failures().size() == 1; }, 5000));
    EXPECT_EQ(recorder.failures().front().reason, AudioCaptureReason::noSoundServer);
    {
        PulseConnection::Lock lock(*connection);
        EXPECT_EQ(connection->state(), PulseConnection::State::waitingToRetry);
    }
    ASSERT_TRUE(server.restart()) << server.why();
    source.start(recorder.handlers());
    EXPECT_TRUE(waitUntil([&] { return recorder.blocks() >= 5; })) << recorder.failures().size() << " failures";
    EXPECT_EQ(recorder.failures().size(), 1u);
    EXPECT_TRUE(volume.connected());
    EXPECT_EQ(programClients(server), 1);
}

TEST_F(SharedPulseConnectionTest, WithoutUsersThatNeedItTheConnectionEnds) {
    {
        PulseOutputVolume volume(connection);
        ASSERT_TRUE(waitUntil([&] { return near(volume.systemOutputVolume(), 0.4); }));
        EXPECT_EQ(programClients(server), 1);
    }
    // Only a capture source that does not run is left: no client of ours stays on the server.
    PulseCaptureSource source(connection);
    EXPECT_TRUE(waitUntil([&] { return programClients(server) == 0; }, 5000));
    EXPECT_FALSE(connection->connected());
}

TEST(SharedPulseConnectionRefused, CaptureIsPermissionRequiredWhileTheVolumeKeepsTryingQuietly) {
    PulseServer server{PulseServer::Access::refused};
    ASSERT_TRUE(server.running()) << server.why();
    auto connection = std::make_shared<PulseConnection>(0.2);
    PulseOutputVolume volume(connection);
    PulseCaptureSource source(connection);
    Recorder recorder;
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return !recorder.failures().empty(); }, 5000));
    EXPECT_EQ(recorder.failures().front().failure, AudioCaptureFailure::permissionRequired);
    EXPECT_EQ(recorder.failures().front().reason, AudioCaptureReason::refused);
    EXPECT_EQ(volume.systemOutputVolume(), 1.0);
    EXPECT_FALSE(volume.connected());
    // A second run asks again at once and is told the same, once.
    source.start(recorder.handlers());
    ASSERT_TRUE(waitUntil([&] { return recorder.failures().size() == 2; }, 5000));
    EXPECT_EQ(recorder.failures().back().reason, AudioCaptureReason::refused);
    EXPECT_EQ(recorder.blocks(), 0u);
}

}  // namespace
}  // namespace lorvane::test
