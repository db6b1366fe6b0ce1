// Costs of the audio analysis: the per-buffer step, the publish step against the plain floor of
// the work it cannot avoid (window, FFT, magnitudes, bands), and lorvane-analyze on a long file.

#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <fcntl.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <numbers>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "core/analysis/AudioAnalyzer.h"
#include "core/analysis/FftwPlanner.h"

extern char** environ;

namespace {

using namespace lorvane;
namespace fs = std::filesystem;

constexpr double rate = 48000;
constexpr double fileSeconds = 600;  // ten minutes

// Something with a beat and a changing spectrum, deterministic.
std::vector<float> musicLike(std::size_t frames, std::uint32_t seed = 1) {
    std::vector<float> out(frames);
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    const double twoPi = 2 * std::numbers::pi;
    for (std::size_t n = 0; n < frames; ++n) {
        const double t = static_cast<double>(n) / rate;
        const double root = 110.0 * (1 + static_cast<int>(t / 0.25) % 4 * 0.25);
        const double kick = std::fmod(t, 0.5);
        const double v = 0.15 * std::sin(twoPi * root * t) + 0.05 * std::sin(twoPi * 3.01 * root * t) +
                         0.5 * std::exp(-kick / 0.05) * std::sin(twoPi * 60 * kick) +
                         0.05 * std::exp(-std::fmod(t + 0.25, 0.5) / 0.004) * uniform(random);
        out[n] = static_cast<float>(v);
    }
    return out;
}

std::vector<float> stereoOf(const std::vector<float>& mono) {
    std::vector<float> out(mono.size() * 2);
    for (std::size_t i = 0; i < mono.size(); ++i) {
        out[2 * i] = mono[i];
        out[2 * i + 1] = 0.7f * mono[i];
    }
    return out;
}

SampleBlock blockOf(const std::vector<float>& interleaved) {
    SampleBlock block;
    block.format = SampleFormat::float32;
    block.channelsPerFrame = 2;
    block.interleaved = true;
    block.buffers = {std::as_bytes(std::span(interleaved))};
    return block;
}

// One 480-frame stereo buffer (10 ms, what the capture stream delivers) that does not publish.
void PerBufferStep(benchmark::State& state) {
    std::vector<std::vector<float>> buffers;
    const auto music = musicLike(480 * 8);
    for (int i = 0; i < 8; ++i) {
        buffers.push_back(stereoOf(std::vector<float>(music.begin() + i * 480, music.begin() + (i + 1) * 480)));
    }
    std::vector<SampleBlock> blocks;
    for (const auto& b : buffers) blocks.push_back(blockOf(b));
    AudioAnalyzer analyzer;
    analyzer.beginRun(10.0);
    analyzer.process(blocks[0], 10.0);  // publishes; later buffers at the same time cannot
    std::size_t i = 0;
    for (auto _ : state) {
        auto result = analyzer.process(blocks[i++ & 7], 10.0);
        benchmark::DoNotOptimize(result);
    }
    if (analyzer.snapshot().lastPublishTime != 10.0) state.SkipWithError("a buffer published");
}
BENCHMARK(PerBufferStep);

// The publish step on a full accumulator: spectrum, flux, beat, tempo, smoothing and the frame.
void PublishStep(benchmark::State& state) {
    AudioAnalyzer analyzer;
    const auto music = stereoOf(musicLike(48000));
    analyzer.beginRun(1.0);
    double now = 1.0;
    for (std::size_t first = 0; first + 960 <= music.size(); first += 960) {
        analyzer.process(blockOf(std::vector<float>(music.begin() + first, music.begin() + first + 960)), now);
        now += 0.01;
    }
    for (auto _ : state) {
        now += 0.04;
        auto frame = analyzer.publishFrame(now);
        benchmark::DoNotOptimize(frame);
    }
}
BENCHMARK(PublishStep);

// A buffer that publishes: the per-buffer step and the publish step together.
void PublishingBuffer(benchmark::State& state) {
    const auto buffer = stereoOf(musicLike(480));
    const auto block = blockOf(buffer);
    AudioAnalyzer analyzer;
    analyzer.beginRun(1.0);
    double now = 1.0;
    for (auto _ : state) {
        now += 0.04;
        auto result = analyzer.process(block, now);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(PublishingBuffer);

// The floor of the publish step: the same window, transform, magnitudes and band mapping written
// as plainly as possible, with nothing else around them.
struct PlainSpectrum {
    float* input = fftwf_alloc_real(1024);
    fftwf_complex* output = fftwf_alloc_complex(513);
    fftwf_plan plan;
    float window[1024];
    float magnitude[512];
    int lo[96], hi[96];
    double bands[96];

    PlainSpectrum() {
        {
            std::lock_guard lock(fftwPlannerMutex());
            plan = fftwf_plan_dft_r2c_1d(1024, input, output, FFTW_ESTIMATE);
        }
        for (int n = 0; n < 1024; ++n) window[n] = static_cast<float>(0.8165 * (1 - std::cos(2 * std::numbers::pi * n / 1024)));
        for (int b = 0; b < 96; ++b) {
            const auto bins = AudioAnalyzer::bandBins(b);
            lo[b] = bins.lo;
            hi[b] = bins.hi;
        }
    }
    ~PlainSpectrum() {
        std::lock_guard lock(fftwPlannerMutex());
        fftwf_destroy_plan(plan);
        fftwf_free(output);
        fftwf_free(input);
    }

    void transformOnly(const float* samples) {
        for (int n = 0; n < 1024; ++n) input[n] = samples[n];
        fftwf_execute(plan);
    }

    void run(const float* samples) {
        for (int n = 0; n < 1024; ++n) input[n] = samples[n] * window[n];
        fftwf_execute(plan);
        for (int k = 1; k < 384; ++k) magnitude[k] = 2 * std::sqrt(output[k][0] * output[k][0] + output[k][1] * output[k][1]);
        for (int b = 0; b < 96; ++b) {
            float sum = 0;
            for (int k = lo[b]; k < hi[b]; ++k) sum += magnitude[k];
            const float mean = sum / static_cast<float>(hi[b] - lo[b]) / 1024;
            const double v = (20 * std::log10(std::max(static_cast<double>(mean), 1e-7)) + 92) / 68;
            bands[b] = v <= 0 ? 0 : v >= 1 ? 1 : std::pow(v, 0.74);
        }
    }
};

void FloorTransformOnly(benchmark::State& state) {
    PlainSpectrum plain;
    const auto samples = musicLike(1024, 3);
    for (auto _ : state) {
        plain.transformOnly(samples.data());
        benchmark::DoNotOptimize(plain.output[5][0]);
    }
}
BENCHMARK(FloorTransformOnly);

void FloorWindowTransformBands(benchmark::State& state) {
    PlainSpectrum plain;
    const auto samples = musicLike(1024, 3);
    for (auto _ : state) {
        plain.run(samples.data());
        benchmark::DoNotOptimize(plain.bands[40]);
    }
}
BENCHMARK(FloorWindowTransformBands);

// The floor of the per-buffer step: RMS and mono mix of a 480-frame stereo buffer, plainly.
void FloorRmsAndDownmix(benchmark::State& state) {
    const auto buffer = stereoOf(musicLike(480, 4));
    std::vector<float> mono(480);
    for (auto _ : state) {
        float total = 0;
        for (float v : buffer) total += v * v;
        for (std::size_t i = 0; i < 480; ++i) mono[i] = (buffer[2 * i] + buffer[2 * i + 1]) * 0.5f;
        benchmark::DoNotOptimize(total);
        benchmark::DoNotOptimize(mono.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(FloorRmsAndDownmix);

// Ten minutes of 48 kHz 16-bit stereo, written once per benchmark run into a private directory.
class LongWav {
public:
    LongWav() {
        const fs::path base = std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp";
        std::string pattern = (base / "lorvane-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) return;
        dir_ = pattern;
        SF_INFO info{};
        info.samplerate = static_cast<int>(rate);
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        const auto path = dir_ / "ten-minutes.wav";
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        if (file == nullptr) return;
        // One minute of music repeated: generating ten would only slow the set-up.
        const auto minute = stereoOf(musicLike(static_cast<std::size_t>(60 * rate), 5));
        bool ok = true;
        for (int m = 0; m < static_cast<int>(fileSeconds / 60); ++m) {
            ok = ok && sf_writef_float(file, minute.data(), static_cast<sf_count_t>(minute.size() / 2)) ==
                           static_cast<sf_count_t>(minute.size() / 2);
        }
        if (sf_close(file) == 0 && ok) path_ = path;
    }
    ~LongWav() {
        std::error_code ignored;
        if (!dir_.empty()) fs::remove_all(dir_, ignored);
    }
    const fs::path& path() const { return path_; }

private:
    fs::path dir_;
    fs::path path_;
};

// Runs the tool with its output thrown away; its exit status, or -1. Adds the CPU time it used
// (user and system) to `cpuSeconds`: on a shared machine that is steadier than the wall time.
int runTool(const fs::path& file, double& cpuSeconds) {
    std::string tool = LORVANE_ANALYZE_TOOL;
    std::string arg = file.string();
    char* argv[] = {tool.data(), arg.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return -1;
    int status = 0;
    struct rusage usage {};
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    cpuSeconds += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                  static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void AnalyzeTenMinuteWav(benchmark::State& state) {
    static const LongWav wav;
    if (wav.path().empty()) {
        state.SkipWithError("cannot write the ten-minute WAV file");
        return;
    }
    double cpuSeconds = 0;
    for (auto _ : state) {
        if (runTool(wav.path(), cpuSeconds) != 0) {
            state.SkipWithError("lorvane-analyze failed");
            break;
        }
    }
    // Seconds of audio per second of wall time: how many times faster than real time.
    const double audio = fileSeconds * static_cast<double>(state.iterations());
    state.counters["x_realtime"] = benchmark::Counter(audio, benchmark::Counter::kIsRate);
    // The same per second of the tool's own CPU time.
    if (cpuSeconds > 0) state.counters["x_realtime_cpu"] = audio / cpuSeconds;
}
BENCHMARK(AnalyzeTenMinuteWav)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Prints the console table, then the ratios that matter against their targets.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& reports) override {
        ConsoleReporter::ReportRuns(reports);
        // With repetitions, the medians; otherwise the single run.
        for (const auto& run : reports) {
            if (run.error_occurred) continue;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            const std::string name = run.run_name.str();
            if (!median && medians_.count(name) != 0) continue;
            if (median) medians_.insert(name);
            seconds_[name] = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            const auto cpu = run.counters.find("x_realtime_cpu");
            if (cpu != run.counters.end()) toolCpuFactor_ = cpu->second.value;
        }
    }

    void summarise() const {
        auto find = [&](const std::string& name) -> double {
            const auto it = seconds_.find(name);
            return it == seconds_.end() ? -1 : it->second;
        };
        const double publish = find("PublishStep");
        const double floor = find("FloorWindowTransformBands");
        const double buffer = find("PerBufferStep");
        const double file = find("AnalyzeTenMinuteWav/iterations:3/real_time");
        std::printf("\n");
        if (publish > 0 && floor > 0) {
            std::printf("publish step / floor (window+FFT+magnitudes+bands): %.2f (target: at most 3)\n", publish / floor);
        }
        if (buffer > 0) std::printf("per-buffer step, 480 stereo frames: %.3f us (target: under 1.5 us)\n", buffer * 1e6);
        if (file > 0) {
            std::printf("lorvane-analyze, ten minutes of 48 kHz WAV: %.0f ms, %.0fx real time (target: at least 2000x)\n",
                        file * 1e3, fileSeconds / file);
            if (toolCpuFactor_ > 0) {
                std::printf("  counted in the tool's own CPU time: %.0fx real time\n", toolCpuFactor_);
            }
        }
    }

private:
    std::map<std::string, double> seconds_;
    std::set<std::string> medians_;
    double toolCpuFactor_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.summarise();
    benchmark::Shutdown();
    return 0;
}
