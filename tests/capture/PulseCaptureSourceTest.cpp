// The PulseAudio capture source on its own, against a private sound server.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/linux/PulseCaptureSource.h"
#include "support/PulsePlayer.h"
#include "support/PulseServer.h"

namespace lorvane::test {
namespace {

using namespace std::chrono_literals;

// Collects what the source hands over, from its thread, and lets the test wait for it.
class Recorder {
public:
    CaptureSource::Handlers handlers() {
        return {[this](const SampleBlock& block) { onBlock(block); },
                [this](AudioCaptureFailure failure) {
                    std::lock_guard lock(mutex_);
                    failures_.push_back(failure);
                    changed_.notify_all();
                }};
    }

    bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, condition);
    }
    bool waitForBlocks(std::size_t count, std::chrono::milliseconds bound) {
        return waitFor([&] { return blockBytes_.size() >= count; }, bound);
    }
    bool waitForFailure(std::chrono::milliseconds bound) {
        return waitFor([&] { return !failures_.empty(); }, bound);
    }

    std::vector<std::size_t> blockBytes() const {
        std::lock_guard lock(mutex_);
        return blockBytes_;
    }
    std::vector<AudioCaptureFailure> failures() const {
        std::lock_guard lock(mutex_);
        return failures_;
    }
    std::vector<std::string> threadNames() const {
        std::lock_guard lock(mutex_);
        return threadNames_;
    }
    double loudestRms() const {
        std::lock_guard lock(mutex_);
        return loudestRms_;
    }
    void resetLoudest() {
        std::lock_guard lock(mutex_);
        loudestRms_ = 0;
    }
    bool formatsWereRight() const {
        std::lock_guard lock(mutex_);
        return formatsRight_;
    }

    std::function<void(const SampleBlock&)> alsoOnBlock;

private:
    void onBlock(const SampleBlock& block) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        const auto audio = audioData(block);
        std::lock_guard lock(mutex_);
        if (std::find(threadNames_.begin(), threadNames_.end(), name) == threadNames_.end()) {
            threadNames_.emplace_back(name);
        }
        formatsRight_ = formatsRight_ && block.format == SampleFormat::float32 && block.channelsPerFrame == 2 &&
                        block.interleaved && block.buffers.size() == 1 && block.buffers[0].size() % 8 == 0;
        std::size_t bytes = 0;
        for (const auto& buffer : block.buffers) bytes += buffer.size();
        blockBytes_.push_back(bytes);
        if (audio) loudestRms_ = std::max(loudestRms_, audio->rms);
        if (alsoOnBlock) alsoOnBlock(block);
        changed_.notify_all();
    }

    mutable std::recursive_mutex mutex_;  // conditions given to waitFor() use the accessors
    std::condition_variable_any changed_;
    std::vector<std::size_t> blockBytes_;
    std::vector<AudioCaptureFailure> failures_;
    std::vector<std::string> threadNames_;
    double loudestRms_ = 0;
    bool formatsRight_ = true;
};

// Waits on a condition that only the server can change; pactl is asked again every 20 ms.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

class PulseCaptureSourceTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server.running()) << server.why(); }

    PulseServer server;
    Recorder recorder;
};

TEST_F(PulseCaptureSourceTest, DeliversSmallFloatBlocksOfTheDefaultMonitorOnTheConnectionsNamedThread) {
    PulsePlayer player(PulsePlayer::sine(1000, 0.447));
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    PulseCaptureSource source;
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(60, 10s));
    EXPECT_TRUE(recorder.failures().empty());
    EXPECT_EQ(recorder.threadNames(), std::vector<std::string>{PulseConnection::threadName});
    EXPECT_TRUE(recorder.formatsWereRight());
    EXPECT_NEAR(recorder.loudestRms(), 0.316, 0.01);  // the -10 dBFS tone, unchanged
    EXPECT_EQ(source.recordedSource(), "lorvane_null.monitor");
    EXPECT_EQ(server.recordStreamSources(), std::vector<std::string>{"lorvane_null.monitor"});
    // Small blocks: the median block holds at most twice the fragment asked for.
    auto sizes = recorder.blockBytes();
    std::sort(sizes.begin(), sizes.end());
    const auto fragmentBytes = static_cast<std::size_t>(PulseCaptureSource::defaultFragmentSeconds * 48000) * 8;
    EXPECT_LE(sizes[sizes.size() / 2], 2 * fragmentBytes);
    source.stop();
    EXPECT_TRUE(eventually([&] { return server.recordStreamCount() == 0; }, 5s));
}

TEST_F(PulseCaptureSourceTest, StartWhileRunningMakesNoSecondStream) {
    PulseCaptureSource source;
    source.start(recorder.handlers());
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(5, 10s));
    EXPECT_EQ(server.recordStreamCount(), 1);
}

TEST_F(PulseCaptureSourceTest, StopBeforeTheServerAnswersMakesNoStream) {
    // A frozen server cannot complete the connection, so the stop surely comes first.
    server.pause();
    PulseCaptureSource source;
    source.start(recorder.handlers());
    source.stop();
    server.resume();
    // Once the server has dealt with everything we sent, no client of ours remains and no stream.
    ASSERT_TRUE(eventually([&] { return server.pactl({"list", "short", "clients"}).output.find("pactl") !=
                                        std::string::npos; },
                           5s));
    EXPECT_TRUE(eventually([&] {
        const auto clients = server.pactl({"list", "clients"}).output;
        return clients.find("com.tarnhollow.Lorvane") == std::string::npos;
    }, 5s));
    EXPECT_EQ(server.recordStreamCount(), 0);
    EXPECT_TRUE(recorder.blockBytes().empty());
    EXPECT_TRUE(recorder.failures().empty());
}

TEST_F(PulseCaptureSourceTest, NoServerIsUnavailable) {
    server.kill();
    PulseCaptureSource source;
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForFailure(5s));
    EXPECT_EQ(recorder.failures(), std::vector<AudioCaptureFailure>{AudioCaptureFailure::unavailable});
}

TEST_F(PulseCaptureSourceTest, AServerDyingDuringCaptureIsUnavailable) {
    PulseCaptureSource source;
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(5, 10s));
    server.kill();
    ASSERT_TRUE(recorder.waitForFailure(5s));
    EXPECT_EQ(recorder.failures(), std::vector<AudioCaptureFailure>{AudioCaptureFailure::unavailable});
    // After its failure the run is over: a stop does nothing more, and a new run can begin.
    source.stop();
    ASSERT_TRUE(server.restart()) << server.why();
    source.start(recorder.handlers());
    EXPECT_TRUE(recorder.waitFor([&] { return recorder.blockBytes().size() > 10; }, 10s));
    EXPECT_EQ(recorder.failures().size(), 1u);
}

TEST_F(PulseCaptureSourceTest, AStopFromInsideTheBlockHandlerEndsTheRun) {
    PulseCaptureSource source;
    std::atomic<int> afterStop{0};
    std::atomic<bool> stopped{false};
    recorder.alsoOnBlock = [&](const SampleBlock&) {
        if (stopped) ++afterStop;
        if (!stopped.exchange(true)) source.stop();
    };
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(1, 10s));
    EXPECT_TRUE(eventually([&] { return server.recordStreamCount() == 0; }, 5s));
    EXPECT_EQ(afterStop, 0);
    EXPECT_TRUE(recorder.failures().empty());
}

TEST_F(PulseCaptureSourceTest, FollowsANewDefaultSinkWithoutFailing) {
    ASSERT_TRUE(server.addNullSink("second"));
    // The tone plays only into the second sink; the first stays silent.
    PulsePlayer player(PulsePlayer::sine(440, 0.447), "second");
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    PulseCaptureSource source;
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(10, 10s));
    EXPECT_LT(recorder.loudestRms(), 0.001);
    ASSERT_TRUE(server.setDefaultSink("second"));
    EXPECT_TRUE(recorder.waitFor([&] { return recorder.loudestRms() > 0.3; }, 5s));
    EXPECT_EQ(source.recordedSource(), "second.monitor");
    EXPECT_EQ(server.recordStreamSources(), std::vector<std::string>{"second.monitor"});
    // And back again.
    ASSERT_TRUE(server.setDefaultSink(PulseServer::defaultSink));
    EXPECT_TRUE(eventually([&] { return source.recordedSource() == "lorvane_null.monitor"; }, 5s));
    const auto count = recorder.blockBytes().size();
    EXPECT_TRUE(recorder.waitForBlocks(count + 10, 5s));
    EXPECT_TRUE(recorder.failures().empty());
}

TEST_F(PulseCaptureSourceTest, FollowsTheNextDefaultSinkWhenTheRecordedOneDisappears) {
    ASSERT_TRUE(server.addNullSink("second"));
    ASSERT_TRUE(server.setDefaultSink("second"));
    PulsePlayer player(PulsePlayer::sine(440, 0.447), PulseServer::defaultSink);
    ASSERT_TRUE(player.waitUntilPlaying(5s)) << player.why();
    PulseCaptureSource source;
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForBlocks(5, 10s));
    EXPECT_EQ(source.recordedSource(), "second.monitor");
    ASSERT_TRUE(server.removeNullSink("second"));  // the output device is unplugged
    EXPECT_TRUE(eventually([&] { return source.recordedSource() == "lorvane_null.monitor"; }, 5s));
    EXPECT_TRUE(recorder.waitFor([&] { return recorder.loudestRms() > 0.3; }, 5s));
    EXPECT_TRUE(recorder.failures().empty());
}

class PulseRefusingServerTest : public ::testing::Test {
protected:
    PulseServer server{PulseServer::Access::refused};
    Recorder recorder;
};

TEST_F(PulseRefusingServerTest, RefusedAccessIsPermissionRequired) {
    ASSERT_TRUE(server.running()) << server.why();
    PulseCaptureSource source;
    EXPECT_TRUE(source.accessGranted());  // nothing says so before asking the server
    source.start(recorder.handlers());
    ASSERT_TRUE(recorder.waitForFailure(5s));
    EXPECT_EQ(recorder.failures(), std::vector<AudioCaptureFailure>{AudioCaptureFailure::permissionRequired});
}

TEST(PulseSandbox, AFlatpakWithoutTheSoundSocketCountsAsRefused) {
    namespace fs = std::filesystem;
    const fs::path root = fs::temp_directory_path() / ("lorvane-sandbox-" + std::to_string(getpid()));
    fs::create_directories(root / "run" / "pulse");
    const std::string runtime = (root / "run").string();
    EXPECT_FALSE(sandboxHidesSoundServer(root, nullptr, runtime.c_str()));  // not a sandbox
    std::ofstream(root / ".flatpak-info") << "[Application]\n";
    EXPECT_TRUE(sandboxHidesSoundServer(root, nullptr, runtime.c_str()));
    EXPECT_TRUE(sandboxHidesSoundServer(root, "", nullptr));
    EXPECT_FALSE(sandboxHidesSoundServer(root, "unix:/somewhere/native", runtime.c_str()));
    std::ofstream(root / "run" / "pulse" / "native") << "";
    EXPECT_FALSE(sandboxHidesSoundServer(root, nullptr, runtime.c_str()));
    fs::remove_all(root);
}

}  // namespace
}  // namespace lorvane::test
