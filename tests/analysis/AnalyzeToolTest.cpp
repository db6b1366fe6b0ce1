// lorvane-analyze, run as a user would: on generated audio files, and on files it must refuse.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

#include "AnalysisTestSupport.h"
#include "FrameJsonWriter.h"

extern char** environ;

using namespace lorvane;
using namespace lorvane::analysistest;
namespace fs = std::filesystem;

namespace {

class TempDir {
public:
    TempDir() {
        const fs::path base = std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp";
        std::string pattern = (base / "lorvane-analyze-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

// Writes interleaved float samples in the given libsndfile format; false if it cannot.
bool writeAudio(const fs::path& path, int format, int sampleRate, int channels, const std::vector<float>& samples) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    const sf_count_t frames = static_cast<sf_count_t>(samples.size()) / channels;
    const bool ok = sf_writef_float(file, samples.data(), frames) == frames;
    return sf_close(file) == 0 && ok;
}

struct Run {
    int status = -1;
    long peakKilobytes = 0;  // the tool's peak resident memory
    std::string out;
    std::string err;
    std::vector<std::string> errLines() const {
        std::vector<std::string> lines;
        std::istringstream in(err);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
};

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Run runProgram(const TempDir& dir, std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const auto outPath = dir / "stdout.txt";
    const auto errPath = dir / "stderr.txt";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = 0;
    Run run;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << argv[0];
        return run;
    }
    int status = 0;
    struct rusage usage {};
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.peakKilobytes = usage.ru_maxrss;
    run.out = slurp(outPath);
    run.err = slurp(errPath);
    return run;
}

Run runTool(const TempDir& dir, std::vector<std::string> args) {
    args.insert(args.begin(), LORVANE_ANALYZE_TOOL);
    return runProgram(dir, std::move(args));
}

std::vector<QJsonObject> jsonLines(const std::string& text) {
    std::vector<QJsonObject> objects;
    const auto lines = QString::fromStdString(text).split('\n', Qt::SkipEmptyParts);
    for (const auto& line : lines) {
        QJsonParseError error{};
        const auto doc = QJsonDocument::fromJson(line.toUtf8(), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
        EXPECT_TRUE(doc.isObject()) << line.toStdString();
        objects.push_back(doc.object());
    }
    return objects;
}

void expectFrameShape(const QJsonObject& o) {
    EXPECT_EQ(o.keys(), (QStringList{"beatPulse", "level", "motionRate", "spectrum", "t"}));
    for (const char* key : {"t", "level", "motionRate", "beatPulse"}) EXPECT_TRUE(o.value(key).isDouble()) << key;
    const auto spectrum = o.value("spectrum").toArray();
    ASSERT_EQ(spectrum.size(), 96);
    for (const auto& v : spectrum) {
        ASSERT_TRUE(v.isDouble());
        EXPECT_GE(v.toDouble(), 0.0);
        EXPECT_LE(v.toDouble(), 1.0);
    }
}

struct Expected {
    double time;
    AudioVisualizationFrame frame;
};

// What the analysis core publishes for the same samples in the same blocks on the same clock.
std::vector<Expected> coreFrames(const std::vector<float>& interleaved, int channels, std::size_t blockFrames) {
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    std::vector<Expected> frames;
    const std::size_t total = interleaved.size() / static_cast<std::size_t>(channels);
    for (std::size_t first = 0; first < total; first += blockFrames) {
        const std::size_t n = std::min(blockFrames, total - first);
        const double now = 1.0 + static_cast<double>(first + n) / rate;
        const auto block = interleavedBlock(
            std::span(interleaved).subspan(first * static_cast<std::size_t>(channels), n * static_cast<std::size_t>(channels)),
            channels);
        auto result = analyzer.process(block, now);
        if (result.outcome == AudioAnalyzer::Outcome::frame) frames.push_back({now, std::move(result.frame)});
        if (result.outcome == AudioAnalyzer::Outcome::silenceFailure) break;
    }
    return frames;
}

// The tool prints six decimals, so each value is the core's rounded to the nearest 1e-6.
constexpr double printed = 0.5e-6 + 1e-12;

// The tool's frames are the core's for the same blocks.
void expectSameFrames(const std::vector<QJsonObject>& lines, const std::vector<Expected>& expected) {
    ASSERT_EQ(lines.size(), expected.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto& o = lines[i];
        const auto& e = expected[i];
        expectFrameShape(o);
        EXPECT_NEAR(o.value("t").toDouble(), e.time, printed) << i;
        EXPECT_NEAR(o.value("level").toDouble(), e.frame.level, printed) << i;
        EXPECT_NEAR(o.value("motionRate").toDouble(), e.frame.motionRate, printed) << i;
        EXPECT_NEAR(o.value("beatPulse").toDouble(), e.frame.beatPulse, printed) << i;
        const auto spectrum = o.value("spectrum").toArray();
        for (int b = 0; b < 96 && b < spectrum.size(); ++b) {
            EXPECT_NEAR(spectrum[b].toDouble(), e.frame.spectrum[static_cast<std::size_t>(b)], printed)
                << i << " band " << b;
        }
    }
}

std::vector<float> stereoMusic(double seconds) {
    const auto left = musicLike(seconds, 41);
    std::vector<float> out(left.size() * 2);
    for (std::size_t i = 0; i < left.size(); ++i) {
        out[2 * i] = left[i];
        out[2 * i + 1] = 0.6f * left[i] + 0.05f * static_cast<float>(std::sin(0.01 * static_cast<double>(i)));
    }
    return out;
}

void expectOneErrorLine(const Run& run, int status, const std::string& mentions) {
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(run.out.empty()) << run.out;
    const auto lines = run.errLines();
    ASSERT_EQ(lines.size(), 1u) << run.err;
    EXPECT_EQ(lines[0].rfind("lorvane-analyze: ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(mentions), std::string::npos) << lines[0];
}

}  // namespace

TEST(AnalyzeTool, PrintsOneJsonLinePerPublishedFrameOfAStereoWav) {
    TempDir dir;
    const auto samples = stereoMusic(2.0);
    ASSERT_TRUE(writeAudio(dir / "music.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples));
    const auto run = runTool(dir, {(dir / "music.wav").string()});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty()) << run.err;
    const auto lines = jsonLines(run.out);
    // 200 blocks of 10 ms; the 1/30 s schedule from the first block publishes on the first block of
    // each slot: 30 frames a second.
    ASSERT_EQ(lines.size(), 60u);
    for (std::size_t j = 0; j < lines.size(); ++j) {
        expectFrameShape(lines[j]);
        // On the first block of the frame's slot (a block ending on the slot's edge may count for
        // either side of it, by rounding).
        const double slot = 1.01 + static_cast<double>(j) / 30.0;
        EXPECT_GE(lines[j].value("t").toDouble(), slot - 1e-9) << j;
        EXPECT_LT(lines[j].value("t").toDouble(), slot + 0.01 + 1e-9) << j;
    }
    expectSameFrames(lines, coreFrames(samples, 2, 480));
}

TEST(AnalyzeTool, MonoFilesAndIntegerSamplesAreConvertedToFloat) {
    TempDir dir;
    const auto mono = musicLike(1.5, 42);
    std::vector<short> pcm(mono.size());
    for (std::size_t i = 0; i < mono.size(); ++i) pcm[i] = static_cast<short>(std::lrint(mono[i] * 20000.0f));
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open((dir / "mono.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(sf_writef_short(file, pcm.data(), static_cast<sf_count_t>(pcm.size())), static_cast<sf_count_t>(pcm.size()));
    ASSERT_EQ(sf_close(file), 0);

    const auto run = runTool(dir, {(dir / "mono.wav").string()});
    EXPECT_EQ(run.status, 0) << run.err;
    // 16-bit samples are analysed as their value over 32768.
    std::vector<float> asFloat(pcm.size());
    for (std::size_t i = 0; i < pcm.size(); ++i) asFloat[i] = static_cast<float>(pcm[i]) / 32768.0f;
    const auto lines = jsonLines(run.out);
    EXPECT_EQ(lines.size(), 45u);  // 150 blocks, 30 frames a second
    expectSameFrames(lines, coreFrames(asFloat, 1, 480));
}

TEST(AnalyzeTool, ReadsFlacAndOggFiles) {
    TempDir dir;
    const auto samples = stereoMusic(1.2);
    ASSERT_TRUE(writeAudio(dir / "music.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, 2, samples));
    ASSERT_TRUE(writeAudio(dir / "music.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 2, samples));
    for (const char* name : {"music.flac", "music.ogg"}) {
        const auto run = runTool(dir, {(dir / name).string()});
        EXPECT_EQ(run.status, 0) << name << ": " << run.err;
        const auto lines = jsonLines(run.out);
        EXPECT_EQ(lines.size(), 36u) << name;  // 120 blocks, 30 frames a second
        for (const auto& o : lines) expectFrameShape(o);
        // Lossy or not, it is still loud music.
        ASSERT_FALSE(lines.empty());
        EXPECT_GT(lines.back().value("level").toDouble(), 0.3) << name;
    }
}

TEST(AnalyzeTool, TheBlockOptionSetsTheBlockSize) {
    TempDir dir;
    const auto samples = stereoMusic(2.0);
    ASSERT_TRUE(writeAudio(dir / "music.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples));
    const auto large = runTool(dir, {"--block", "4096", (dir / "music.wav").string()});
    EXPECT_EQ(large.status, 0) << large.err;
    const auto largeLines = jsonLines(large.out);
    EXPECT_EQ(largeLines.size(), 24u);  // every block is more than 1/30 s; the last one is short
    expectSameFrames(largeLines, coreFrames(samples, 2, 4096));

    const auto small = runTool(dir, {(dir / "music.wav").string(), "--block", "64"});
    EXPECT_EQ(small.status, 0) << small.err;
    expectSameFrames(jsonLines(small.out), coreFrames(samples, 2, 64));
}

TEST(AnalyzeTool, SilenceEndsTheRunWithOneFailureLine) {
    TempDir dir;
    ASSERT_TRUE(writeAudio(dir / "silence.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2,
                           std::vector<float>(6 * 48000 * 2, 0.0f)));
    const auto run = runTool(dir, {(dir / "silence.wav").string()});
    EXPECT_EQ(run.status, 0) << run.err;
    const auto lines = jsonLines(run.out);
    // Frames (30 a second) until 4 s of silence have passed, then the failure on the block at 5.01 s.
    ASSERT_EQ(lines.size(), 121u);
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) expectFrameShape(lines[i]);
    const auto& failure = lines.back();
    EXPECT_EQ(failure.keys(), (QStringList{"failure", "t"}));
    EXPECT_EQ(failure.value("failure").toString(), "silentOrProtectedAudio");
    EXPECT_NEAR(failure.value("t").toDouble(), 5.01, 1e-12);
}

TEST(AnalyzeTool, KeepGoingStartsANewRunAfterASilenceFailure) {
    TempDir dir;
    ASSERT_TRUE(writeAudio(dir / "silence.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 1,
                           std::vector<float>(10 * 48000, 0.0f)));
    const auto run = runTool(dir, {"--keep-going", (dir / "silence.wav").string()});
    EXPECT_EQ(run.status, 0) << run.err;
    std::vector<double> failures;
    std::vector<int> framesPerRun{0};
    for (const auto& o : jsonLines(run.out)) {
        if (o.contains("failure")) {
            failures.push_back(o.value("t").toDouble());
            framesPerRun.push_back(0);
        } else {
            ++framesPerRun.back();
        }
    }
    // Runs from 1.0 s, 5.01 s and about 9.02 s; the third one reaches the end of the file.
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_NEAR(failures[0], 5.01, 1e-12);
    EXPECT_GT(failures[1] - failures[0], 4.0);
    EXPECT_LE(failures[1] - failures[0], 4.01 + 1e-9);
    EXPECT_EQ(framesPerRun, (std::vector<int>{120, 120, 60}));
}

TEST(AnalyzeTool, AMissingFileIsOneErrorLine) {
    TempDir dir;
    expectOneErrorLine(runTool(dir, {(dir / "absent.wav").string()}), 1, "absent.wav");
}

TEST(AnalyzeTool, AnUnreadableFileIsOneErrorLine) {
    TempDir dir;
    std::ofstream(dir / "noise.wav", std::ios::binary) << std::string(4000, '\x5a') << "not audio";
    expectOneErrorLine(runTool(dir, {(dir / "noise.wav").string()}), 1, "noise.wav");
    fs::create_directory(dir / "folder.wav");
    expectOneErrorLine(runTool(dir, {(dir / "folder.wav").string()}), 1, "folder.wav");
}

TEST(AnalyzeTool, AZeroLengthFileIsOneErrorLine) {
    TempDir dir;
    std::ofstream(dir / "empty.wav").close();
    expectOneErrorLine(runTool(dir, {(dir / "empty.wav").string()}), 1, "empty");
    // A valid header with no frames after it.
    ASSERT_TRUE(writeAudio(dir / "header.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, {}));
    ASSERT_GT(fs::file_size(dir / "header.wav"), 0u);
    expectOneErrorLine(runTool(dir, {(dir / "header.wav").string()}), 1, "no audio frames");
}

TEST(AnalyzeTool, A44100HzRecordingMatchesTheSameMusicResampledBeforehand) {
    TempDir dir;
    // The same samples declared at 44100 Hz: music at the CD rate.
    ASSERT_TRUE(writeAudio(dir / "cd.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2, stereoMusic(3.0)));
    if (!fs::exists("/usr/bin/sox")) GTEST_SKIP() << "sox is missing (scripts/install-deps.sh test installs it)";
    // sox's own resampler, at its default (high) quality, into 32-bit floats so nothing is dithered.
    const auto sox = runProgram(dir, {"/usr/bin/sox", (dir / "cd.wav").string(), "-e", "floating-point", "-b", "32",
                                      (dir / "resampled.wav").string(), "rate", "48000"});
    ASSERT_EQ(sox.status, 0) << sox.err;

    const auto direct = runTool(dir, {(dir / "cd.wav").string()});
    const auto beforehand = runTool(dir, {(dir / "resampled.wav").string()});
    ASSERT_EQ(direct.status, 0) << direct.err;
    ASSERT_EQ(beforehand.status, 0) << beforehand.err;
    EXPECT_TRUE(direct.err.empty()) << direct.err;
    const auto lines = jsonLines(direct.out);
    const auto expected = jsonLines(beforehand.out);
    // 3 s at 44100 Hz are 3.265 s at 48000 Hz: 327 blocks of 10 ms, published on the 1/30 s schedule.
    ASSERT_EQ(lines.size(), 98u);
    ASSERT_EQ(lines.size(), expected.size());
    double worst = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        expectFrameShape(lines[i]);
        EXPECT_EQ(lines[i].value("t").toDouble(), expected[i].value("t").toDouble()) << i;
        for (const char* key : {"level", "motionRate", "beatPulse"}) {
            worst = std::max(worst, std::abs(lines[i].value(key).toDouble() - expected[i].value(key).toDouble()));
        }
        const auto a = lines[i].value("spectrum").toArray();
        const auto b = expected[i].value("spectrum").toArray();
        for (int band = 0; band < 96; ++band) worst = std::max(worst, std::abs(a[band].toDouble() - b[band].toDouble()));
    }
    EXPECT_LT(worst, 1e-3);
    // And it is loud music, not silence that would match trivially.
    EXPECT_GT(lines.back().value("level").toDouble(), 0.3);
}

TEST(AnalyzeTool, MoreThanTwoChannelsAreMixedDownToOneWithOneLine) {
    TempDir dir;
    const auto mono = musicLike(1.0, 5);
    // 7.1: the music in the front pair, silence elsewhere, loud enough that the mean is the music exactly.
    constexpr int channels = 8;
    std::vector<float> wide(mono.size() * channels, 0.0f);
    for (std::size_t i = 0; i < mono.size(); ++i) wide[i * channels] = wide[i * channels + 1] = 4.0f * mono[i];
    ASSERT_TRUE(writeAudio(dir / "surround.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, channels, wide));
    const auto run = runTool(dir, {(dir / "surround.wav").string()});
    EXPECT_EQ(run.status, 0);
    const auto errLines = run.errLines();
    ASSERT_EQ(errLines.size(), 1u) << run.err;
    EXPECT_NE(errLines[0].find("8 channels"), std::string::npos) << errLines[0];
    EXPECT_NE(errLines[0].find("mixed down"), std::string::npos) << errLines[0];
    // The mean of the eight channels is the mono music itself.
    const auto lines = jsonLines(run.out);
    // One second published on the 1/30 s schedule.
    EXPECT_EQ(lines.size(), 30u);
    expectSameFrames(lines, coreFrames(mono, 1, 480));
}

TEST(AnalyzeTool, MemoryDependsNeitherOnChannelsNorOnLength) {
    TempDir dir;
    // The most channels libsndfile allows, with the largest block: a whole block of them would be 196 MB.
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1024;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open((dir / "many.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    std::vector<short> frames(4800 * 1024, 1000);
    ASSERT_EQ(sf_writef_short(file, frames.data(), 4800), 4800);
    ASSERT_EQ(sf_close(file), 0);
    const auto many = runTool(dir, {"--block", "48000", (dir / "many.wav").string()});
    EXPECT_EQ(many.status, 0) << many.err;
    EXPECT_LT(many.peakKilobytes, 64 * 1024);

    const auto music = stereoMusic(2.0);
    std::vector<float> longer;
    for (int i = 0; i < 15; ++i) longer.insert(longer.end(), music.begin(), music.end());
    ASSERT_TRUE(writeAudio(dir / "short.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, music));
    ASSERT_TRUE(writeAudio(dir / "long.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, longer));
    const auto shortRun = runTool(dir, {(dir / "short.wav").string()});
    const auto longRun = runTool(dir, {(dir / "long.wav").string()});
    ASSERT_EQ(shortRun.status, 0) << shortRun.err;
    ASSERT_EQ(longRun.status, 0) << longRun.err;
    EXPECT_GT(longRun.out.size(), 10 * shortRun.out.size());
    // Fifteen times the audio, the same memory give or take allocator noise.
    EXPECT_LT(longRun.peakKilobytes, shortRun.peakKilobytes + 4 * 1024);
}

TEST(AnalyzeTool, NonFiniteSamplesAreReadAsSilenceAndCounted) {
    TempDir dir;
    auto samples = stereoMusic(1.0);
    std::vector<float> cleaned = samples;
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity()};
    // 10 ms of each kind in the middle of the music.
    std::size_t count = 0;
    for (std::size_t k = 0; k < 3; ++k) {
        for (std::size_t i = 0; i < 960; ++i) {
            const std::size_t at = (20000 + k * 4000) * 2 + i;
            samples[at] = specials[k];
            cleaned[at] = 0.0f;
            ++count;
        }
    }
    ASSERT_TRUE(writeAudio(dir / "broken.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, samples));
    const auto run = runTool(dir, {(dir / "broken.wav").string()});
    EXPECT_EQ(run.status, 0);
    const auto errLines = run.errLines();
    ASSERT_EQ(errLines.size(), 1u) << run.err;
    EXPECT_NE(errLines[0].find(std::to_string(count) + " samples"), std::string::npos) << errLines[0];
    EXPECT_EQ(run.out.find("nan"), std::string::npos);
    EXPECT_EQ(run.out.find("inf"), std::string::npos);
    expectSameFrames(jsonLines(run.out), coreFrames(cleaned, 2, 480));
}

TEST(FrameJsonWriter, NeverPrintsANonFiniteNumber) {
    TempDir dir;
    const auto path = dir / "frames.json";
    std::FILE* out = std::fopen(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    tools::FrameJsonWriter writer(out);
    AudioVisualizationFrame frame;
    frame.level = std::numeric_limits<double>::quiet_NaN();
    frame.motionRate = std::numeric_limits<double>::infinity();
    frame.beatPulse = -std::numeric_limits<double>::infinity();
    frame.spectrum.assign(96, 0.25);
    frame.spectrum[7] = -std::numeric_limits<double>::quiet_NaN();
    writer.writeFrame(std::numeric_limits<double>::infinity(), frame);
    frame.level = 0.5;
    writer.writeFrame(2.0, frame);
    EXPECT_TRUE(writer.finish());
    std::fclose(out);
    const auto lines = jsonLines(slurp(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].value("level").isNull());
    EXPECT_TRUE(lines[0].value("motionRate").isNull());
    EXPECT_TRUE(lines[0].value("beatPulse").isNull());
    EXPECT_TRUE(lines[0].value("t").isNull());
    EXPECT_TRUE(lines[0].value("spectrum").toArray()[7].isNull());
    EXPECT_EQ(lines[0].value("spectrum").toArray()[8].toDouble(), 0.25);
    EXPECT_EQ(lines[1].value("level").toDouble(), 0.5);
}

TEST(AnalyzeTool, UsageErrorsAreOneLineWithStatus2) {
    TempDir dir;
    expectOneErrorLine(runTool(dir, {}), 2, "no audio file");
    expectOneErrorLine(runTool(dir, {"--block", "0", "x.wav"}), 2, "--block");
    expectOneErrorLine(runTool(dir, {"--block", "ten", "x.wav"}), 2, "--block");
    // At most one second of audio per block.
    expectOneErrorLine(runTool(dir, {"--block", "48001", "x.wav"}), 2, "48000");
    expectOneErrorLine(runTool(dir, {"x.wav", "--block"}), 2, "--block");
    expectOneErrorLine(runTool(dir, {"--fast", "x.wav"}), 2, "--fast");
    expectOneErrorLine(runTool(dir, {"a.wav", "b.wav"}), 2, "one audio file");
}

TEST(AnalyzeTool, HelpDescribesTheOutput) {
    TempDir dir;
    const auto run = runTool(dir, {"--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Usage: lorvane-analyze"), std::string::npos);
    EXPECT_NE(run.out.find("silentOrProtectedAudio"), std::string::npos);
    EXPECT_TRUE(run.err.empty());
}
