// The wave demo: a recording's analysis through the real overlay window.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <cmath>
#include <functional>
#include <vector>

#include "RecordingPlayer.h"
#include "support/EventLoopWait.h"
#include "X11Probe.h"

using lorvane::test::X11Probe;
using lorvane::test::XWindow;
using namespace lorvane;

namespace {

using lorvane::test::waitUntil;

// Writes `seconds` of stereo audio: a 110 Hz tone with a kick every half second, then `silence`
// seconds of nothing.
bool writeRecording(const QString& path, int rate, double seconds, double silence = 0) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.toLocal8Bit().constData(), SFM_WRITE, &info);
    if (!file) return false;
    const long frames = static_cast<long>((seconds + silence) * rate);
    std::vector<float> data(static_cast<std::size_t>(frames) * 2);
    for (long i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        double value = 0;
        if (t < seconds) {
            const double sinceKick = std::fmod(t, 0.5);
            value = 0.3 * std::sin(2 * M_PI * 110 * t) + 0.6 * std::exp(-sinceKick * 30) * std::sin(2 * M_PI * 55 * t);
        }
        data[static_cast<std::size_t>(2 * i)] = data[static_cast<std::size_t>(2 * i + 1)] = static_cast<float>(value);
    }
    const bool ok = sf_writef_float(file, data.data(), frames) == frames;
    sf_close(file);
    return ok;
}


}  // namespace

TEST(RecordingPlayer, PublishesFramesAsPlaybackAdvancesAtMostThirtyASecond) {
    QTemporaryDir dir;
    const QString path = dir.filePath("music.wav");
    ASSERT_TRUE(writeRecording(path, 48000, 2.0));
    std::vector<AudioVisualizationFrame> frames;
    std::string error;
    auto player = tools::RecordingPlayer::open(
        path.toStdString(), {[&](const AudioVisualizationFrame& f) { frames.push_back(f); }, {}}, error);
    ASSERT_TRUE(player) << error;
    EXPECT_DOUBLE_EQ(player->duration(), 2.0);
    EXPECT_TRUE(player->advanceTo(0.5));
    const std::size_t halfSecond = frames.size();
    // The analysis publishes at most every 1/30 s, on 10 ms block boundaries (every 40 ms here).
    EXPECT_GE(halfSecond, 10u);
    EXPECT_LE(halfSecond, 16u);
    EXPECT_FALSE(player->advanceTo(10));  // the end of the recording
    EXPECT_GE(frames.size(), 45u);
    EXPECT_LE(frames.size(), 61u);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames.back().spectrum.size(), 96u);
    EXPECT_GT(frames.back().level, 0.0);
    player->rewind();
    EXPECT_DOUBLE_EQ(player->position(), 0);
    EXPECT_TRUE(player->advanceTo(0.2));
}

TEST(RecordingPlayer, LongSilenceEndsTheRunAsCaptureWould) {
    QTemporaryDir dir;
    const QString path = dir.filePath("quiet.wav");
    ASSERT_TRUE(writeRecording(path, 48000, 1.0, 5.0));
    int failures = 0;
    std::string error;
    auto player = tools::RecordingPlayer::open(path.toStdString(), {{}, [&](AudioCaptureFailure failure) {
                                                                        EXPECT_EQ(failure,
                                                                                  AudioCaptureFailure::silentOrProtectedAudio);
                                                                        ++failures;
                                                                    }},
                                               error);
    ASSERT_TRUE(player) << error;
    player->advanceTo(10);
    EXPECT_EQ(failures, 1);
}

TEST(RecordingPlayer, RefusesWhatItCannotAnalyse) {
    QTemporaryDir dir;
    std::string error;
    EXPECT_FALSE(tools::RecordingPlayer::open(dir.filePath("missing.wav").toStdString(), {}, error));
    EXPECT_NE(error.find("cannot open"), std::string::npos);
    EXPECT_NE(error.find("missing.wav"), std::string::npos);
    const QString junk = dir.filePath("junk.wav");
    QFile file(junk);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("RIFF this is not audio at all, just text pretending to be a header");
    file.close();
    EXPECT_FALSE(tools::RecordingPlayer::open(junk.toStdString(), {}, error));
}

TEST(RecordingPlayer, PlaysA44100HzRecordingResampled) {
    QTemporaryDir dir;
    const QString path = dir.filePath("cd.wav");
    ASSERT_TRUE(writeRecording(path, 44100, 2.0));
    std::vector<AudioVisualizationFrame> frames;
    std::string error;
    auto player = tools::RecordingPlayer::open(
        path.toStdString(), {[&](const AudioVisualizationFrame& f) { frames.push_back(f); }, {}}, error);
    ASSERT_TRUE(player) << error;
    EXPECT_DOUBLE_EQ(player->duration(), 2.0);
    EXPECT_FALSE(player->advanceTo(10));
    // Two seconds at 48000 Hz: 200 blocks, the same frames as the 48000 Hz recording gives.
    EXPECT_NEAR(player->position(), 2.0, 0.0101);
    EXPECT_GE(frames.size(), 45u);
    EXPECT_LE(frames.size(), 61u);
    ASSERT_FALSE(frames.empty());
    EXPECT_GT(frames.back().level, 0.0);
}

TEST(WaveDemo, ShowsTheRecordingInTheOverlayWindowAndEnds) {
    X11Probe probe;
    ASSERT_TRUE(probe.isConnected());
    QTemporaryDir dir;
    const QString path = dir.filePath("music.wav");
    ASSERT_TRUE(writeRecording(path, 48000, 3.0));
    QProcess demo;
    demo.start(QStringLiteral(LORVANE_WAVE_DEMO),
               {"--above", "--color", "aurora", "--position", "top", "--seconds", "2.5", path});
    ASSERT_TRUE(demo.waitForStarted(5000));
    std::vector<XWindow> windows;
    EXPECT_TRUE(waitUntil([&] {
        windows = probe.clientsOf(static_cast<long>(demo.processId()));
        return windows.size() == 1 && probe.isViewable(windows.front());
    })) << "no overlay window from the demo";
    if (!windows.empty()) {
        const auto state = probe.atomNames(windows.front(), "_NET_WM_STATE");
        EXPECT_NE(std::find(state.begin(), state.end(), "_NET_WM_STATE_ABOVE"), state.end());
        EXPECT_EQ(probe.geometryOnRoot(windows.front()).y, 28);
    }
    ASSERT_TRUE(waitUntil([&] { return demo.state() == QProcess::NotRunning; }, 15000));
    EXPECT_EQ(demo.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(demo.exitCode(), 0) << demo.readAllStandardError().toStdString();
}

TEST(WaveDemo, ReportsARecordingItCannotPlay) {
    QTemporaryDir dir;
    const QString path = dir.filePath("junk.wav");
    QFile junk(path);
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("RIFF this is not audio at all, just text pretending to be a header");
    junk.close();
    QProcess demo;
    demo.start(QStringLiteral(LORVANE_WAVE_DEMO), {path});
    ASSERT_TRUE(demo.waitForFinished(15000));
    EXPECT_EQ(demo.exitCode(), 1);
    EXPECT_NE(demo.readAllStandardError().indexOf("junk.wav"), -1);
    demo.start(QStringLiteral(LORVANE_WAVE_DEMO), {"--mode", "sideways", path});
    ASSERT_TRUE(demo.waitForFinished(15000));
    EXPECT_EQ(demo.exitCode(), 2);
}

TEST(WaveDemo, DrawsAtTheScreensDevicePixelRatio) {
    // With Qt scaling by 2 the band is 150 points but 300 pixels high; every pixel of it is drawn.
    X11Probe probe;
    ASSERT_TRUE(probe.isConnected());
    QTemporaryDir dir;
    const QString path = dir.filePath("music.wav");
    ASSERT_TRUE(writeRecording(path, 48000, 3.0));
    QProcess demo;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_SCALE_FACTOR", "2");
    demo.setProcessEnvironment(environment);
    demo.start(QStringLiteral(LORVANE_WAVE_DEMO),
               {"--above", "--color", "white", "--position", "top", "--seconds", "2.5", path});
    ASSERT_TRUE(demo.waitForStarted(5000));
    std::vector<XWindow> windows;
    ASSERT_TRUE(waitUntil([&] {
        windows = probe.clientsOf(static_cast<long>(demo.processId()));
        return windows.size() == 1 && probe.isViewable(windows.front());
    }));
    const auto band = probe.geometryOnRoot(windows.front());
    EXPECT_EQ(band.y, 56);
    EXPECT_EQ(band.height, 300);
    // The wave's centre line, across the right half too (a frame drawn at the logical size would
    // cover only the lower left quarter of the window).
    const int centre = band.y + band.height / 2;
    auto brightOnRight = [&] {
        int bright = 0;
        for (int x = band.x + band.width * 3 / 4; x < band.x + band.width; x += 3) {
            const unsigned long p = probe.screenPixel(x, centre);
            if (((p >> 16) & 0xFF) > 120 && ((p >> 8) & 0xFF) > 120 && (p & 0xFF) > 120) ++bright;
        }
        return bright > 20;
    };
    EXPECT_TRUE(waitUntil(brightOnRight));
    waitUntil([&] { return demo.state() == QProcess::NotRunning; }, 15000);
    EXPECT_EQ(demo.exitCode(), 0);
}
