// Per-frame CPU cost of the wave. Run: build/bench/render/render_bench
//   Layout/N            the frame layout alone for N bars (platform-free arithmetic)
//   LayoutAndPack/N     layout plus packing the per-bar instance data the GPU receives
//   GlSubmit/N          layout, packing, upload and every GL call of a frame, without waiting for the
//                       GPU (Mesa's software rasteriser here, so this includes its CPU-side setup)
//   GlFrameFinished/N   the same, waiting until the frame is rasterised (software: all of it is CPU)
//   GlCallsOnly/N       layout, packing, upload and every GL call with the drawing clipped to a single
//                       pixel, waiting for completion: the per-frame CPU cost apart from filling pixels
//                       (an upper bound of the driver-independent part; llvmpipe's own call overhead
//                       and vertex work are included)
//   CpuCanvas/N         the CPU drawing path: the canvas of one frame drawn into the panel's image
//                       (as the overlay does into its shared-memory backing store)
//   NaiveRaster/N       the approach this replaces: QPainter on a raster image with antialiased, dashed,
//                       round-capped pens and a three-pass box blur of the glow layer
// N = 369 is a 1920-point band (138 high), N = 640 a 3328-point or wider one (420 high, as in the fog).
//   CpuCompactBand1920, CpuFog3840   the CPU path on the canvases the overlay draws: the compact band
//                       on a 1920x1080 screen and the fog on a 3840x2160 one
#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QImage>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QPainter>
#include <QPainterPath>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "core/render/WaveLayout.h"
#include "support/XSession.h"
#include "ui/OffscreenWaveRenderer.h"
#include "ui/WaveRasterRenderer.h"

using namespace lorvane;

namespace {

std::unique_ptr<OffscreenWaveRenderer> renderer;

SizeF canvasFor(int bars) { return bars >= 640 ? SizeF{3840, 420} : SizeF{bars * 5.2 + 1, 138}; }

std::vector<double> liveSpectrum() {
    std::vector<double> spectrum(96);
    for (int i = 0; i < 96; ++i) spectrum[static_cast<std::size_t>(i)] = 0.5 + 0.4 * std::sin(i * 0.37);
    return spectrum;
}

WaveInputs inputs(const std::vector<double>& spectrum) {
    WaveInputs in;
    in.color = WaveColor::aurora;
    in.audioLevel = 0.7;
    in.motionRate = 1.4;
    in.beatPulse = 0.5;
    in.spectrum = spectrum;
    return in;
}

void Layout(benchmark::State& state) {
    const auto spectrum = liveSpectrum();
    const SizeF canvas = canvasFor(static_cast<int>(state.range(0)));
    double t = 700000000;
    for (auto _ : state) {
        WaveLayout layout = layoutWave(inputs(spectrum), canvas, t += 1.0 / 30);
        benchmark::DoNotOptimize(layout.bars.data());
    }
}
BENCHMARK(Layout)->Arg(369)->Arg(640)->Unit(benchmark::kMicrosecond);

void LayoutAndPack(benchmark::State& state) {
    const auto spectrum = liveSpectrum();
    const SizeF canvas = canvasFor(static_cast<int>(state.range(0)));
    std::vector<WaveGlRenderer::BarInstance> packed;
    double t = 700000000;
    for (auto _ : state) {
        WaveLayout layout = layoutWave(inputs(spectrum), canvas, t += 1.0 / 30);
        WaveGlRenderer::packBars(layout, packed);
        benchmark::DoNotOptimize(packed.data());
    }
    state.counters["bytes_per_frame"] = static_cast<double>(packed.size() * sizeof(WaveGlRenderer::BarInstance));
}
BENCHMARK(LayoutAndPack)->Arg(369)->Arg(640)->Unit(benchmark::kMicrosecond);

void glFrame(benchmark::State& state, bool finish) {
    if (!renderer || !renderer->isValid()) {
        state.SkipWithError("no OpenGL");
        return;
    }
    const auto spectrum = liveSpectrum();
    const SizeF canvas = canvasFor(static_cast<int>(state.range(0)));
    // Render once so the target and buffers exist, then time frames into the same target.
    renderer->renderLayout(layoutWave(inputs(spectrum), canvas, 0), canvas, {0, 0, canvas.width, canvas.height}, 1);
    QOpenGLContext* context = QOpenGLContext::currentContext();
    WaveGlRenderer& gl = renderer->renderer();
    GLint framebuffer = 0;
    context->functions()->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &framebuffer);
    const WaveTarget target{static_cast<unsigned>(framebuffer),
                            QSize(int(std::lround(canvas.width)), int(std::lround(canvas.height))), 1};
    double t = 700000000;
    for (auto _ : state) {
        WaveLayout layout = layoutWave(inputs(spectrum), canvas, t += 1.0 / 30);
        gl.beginFrame(target, {0, 0, 0, 0});
        gl.drawWave(layout, {0, 0, canvas.width, canvas.height});
        if (finish) context->functions()->glFinish();
    }
    context->functions()->glFinish();
    state.counters["upload_bytes"] = static_cast<double>(gl.lastUploadBytes());
}

void GlSubmit(benchmark::State& state) { glFrame(state, false); }
BENCHMARK(GlSubmit)->Arg(369)->Arg(640)->Unit(benchmark::kMicrosecond);

void GlFrameFinished(benchmark::State& state) { glFrame(state, true); }
BENCHMARK(GlFrameFinished)->Arg(369)->Arg(640)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void GlCallsOnly(benchmark::State& state) {
    if (!renderer || !renderer->isValid()) {
        state.SkipWithError("no OpenGL");
        return;
    }
    const auto spectrum = liveSpectrum();
    const SizeF canvas = canvasFor(static_cast<int>(state.range(0)));
    const RectF pixel{0, 0, 1, 1};
    renderer->renderLayout(layoutWave(inputs(spectrum), canvas, 0), {1, 1}, pixel, 1);
    QOpenGLContext* context = QOpenGLContext::currentContext();
    WaveGlRenderer& gl = renderer->renderer();
    GLint framebuffer = 0;
    context->functions()->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &framebuffer);
    const WaveTarget target{static_cast<unsigned>(framebuffer), QSize(1, 1), 1};
    double t = 700000000;
    for (auto _ : state) {
        WaveLayout layout = layoutWave(inputs(spectrum), canvas, t += 1.0 / 30);
        gl.beginFrame(target, {0, 0, 0, 0});
        gl.drawWave(layout, pixel);
        context->functions()->glFinish();
    }
}
BENCHMARK(GlCallsOnly)->Arg(369)->Arg(640)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime();

// A three-pass box blur approximating a Gaussian, horizontally and vertically, in place.
void boxBlur(QImage& image, int radius) {
    const int w = image.width(), h = image.height();
    std::vector<int> line(static_cast<std::size_t>(std::max(w, h)) * 4);
    for (int pass = 0; pass < 3; ++pass) {
        for (int direction = 0; direction < 2; ++direction) {
            const int length = direction == 0 ? w : h, lines = direction == 0 ? h : w;
            for (int l = 0; l < lines; ++l) {
                auto pixel = [&](int i) -> QRgb& {
                    return reinterpret_cast<QRgb*>(image.scanLine(direction == 0 ? l : i))[direction == 0 ? i : l];
                };
                for (int i = 0; i < length; ++i) {
                    const QRgb p = pixel(i);
                    line[4 * i] = qAlpha(p), line[4 * i + 1] = qRed(p), line[4 * i + 2] = qGreen(p),
                             line[4 * i + 3] = qBlue(p);
                }
                int sum[4] = {0, 0, 0, 0};
                for (int i = -radius; i <= radius; ++i) {
                    const int k = std::clamp(i, 0, length - 1);
                    for (int c = 0; c < 4; ++c) sum[c] += line[4 * k + c];
                }
                const int n = 2 * radius + 1;
                for (int i = 0; i < length; ++i) {
                    pixel(i) = qRgba(sum[1] / n, sum[2] / n, sum[3] / n, sum[0] / n);
                    const int out = std::clamp(i - radius, 0, length - 1), in = std::clamp(i + radius + 1, 0, length - 1);
                    for (int c = 0; c < 4; ++c) sum[c] += line[4 * in + c] - line[4 * out + c];
                }
            }
        }
    }
}

QColor qcolor(const RgbaColor& c, double opacity) { return QColor::fromRgbF(float(c.red), float(c.green), float(c.blue), float(opacity)); }

void NaiveRaster(benchmark::State& state) {
    const auto spectrum = liveSpectrum();
    const SizeF canvas = canvasFor(static_cast<int>(state.range(0)));
    QImage image(int(canvas.width), int(canvas.height), QImage::Format_ARGB32_Premultiplied);
    QImage glow(image.size(), QImage::Format_ARGB32_Premultiplied);
    double t = 700000000;
    for (auto _ : state) {
        const WaveLayout layout = layoutWave(inputs(spectrum), canvas, t += 1.0 / 30);
        glow.fill(Qt::transparent);
        {
            QPainter p(&glow);
            p.setRenderHint(QPainter::Antialiasing);
            for (const WaveBar& bar : layout.bars) {
                p.setPen(QPen(qcolor(bar.glowColor, bar.glowOpacity), layout.glowLineWidth, Qt::SolidLine, Qt::RoundCap));
                p.drawLine(QPointF(bar.x, layout.midY - bar.halfHeight), QPointF(bar.x, layout.midY + bar.halfHeight));
            }
        }
        boxBlur(glow, int(std::lround(layout.glowRadius)));
        image.fill(Qt::transparent);
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(qcolor(layout.baselineStops[0].color, layout.baselineOpacity), layout.baselineWidth));
        p.drawLine(QPointF(0, layout.midY), QPointF(canvas.width, layout.midY));
        p.drawImage(0, 0, glow);
        for (const WaveBar& bar : layout.bars) {
            QPen pen(qcolor(bar.color, bar.strokeOpacity), layout.barWidth, Qt::CustomDashLine, Qt::RoundCap);
            pen.setDashPattern({layout.dashOn / layout.barWidth, layout.dashOff / layout.barWidth});
            p.setPen(pen);
            p.drawLine(QPointF(bar.x, layout.midY - bar.halfHeight), QPointF(bar.x, layout.midY + bar.halfHeight));
            p.setPen(Qt::NoPen);
            p.setBrush(qcolor(bar.color, bar.dotOpacity));
            p.drawEllipse(QPointF(bar.x, layout.midY), layout.dotDiameter / 2, layout.dotDiameter / 2);
            if (bar.sparkleReach) {
                p.setBrush(qcolor(bar.color, bar.sparkleOpacity));
                const double r = layout.sparkleDiameter / 2;
                p.drawEllipse(QPointF(bar.x, layout.midY - *bar.sparkleReach), r, r);
                p.drawEllipse(QPointF(bar.x, layout.midY + *bar.sparkleReach), r, r);
            }
        }
        benchmark::DoNotOptimize(image.bits());
    }
}
BENCHMARK(NaiveRaster)->Arg(369)->Arg(640)->Unit(benchmark::kMillisecond);

void drawOnCpu(benchmark::State& state, SizeF canvas, OverlayDisplayMode mode) {
    const auto spectrum = liveSpectrum();
    const SizeF panel{canvas.width, canvas.height + 12};
    WaveFrame frame;
    frame.panel = panel;
    frame.composition.waveform = {0, 6, canvas.width, canvas.height};
    WaveRasterRenderer cpu;
    QImage image(static_cast<int>(std::lround(panel.width)), static_cast<int>(std::lround(panel.height)),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    double t = 700000000;
    for (auto _ : state) {
        WaveInputs in = inputs(spectrum);
        in.displayMode = mode;
        frame.layout = layoutWave(in, canvas, t += 1.0 / 30);
        cpu.drawCanvas(frame, image, {0, 0, 0, 0});
        benchmark::DoNotOptimize(image.constBits());
    }
}

void CpuCanvas(benchmark::State& state) {
    drawOnCpu(state, canvasFor(static_cast<int>(state.range(0))), OverlayDisplayMode::compact);
}
BENCHMARK(CpuCanvas)->Arg(369)->Arg(640)->Unit(benchmark::kMillisecond);

// The canvases the overlay draws at 1x: the compact band on a 1920x1080 screen, the fog on a 3840x2160 one.
void CpuCompactBand1920(benchmark::State& state) {
    drawOnCpu(state, {1920, 258}, OverlayDisplayMode::compact);
}
BENCHMARK(CpuCompactBand1920)->Unit(benchmark::kMillisecond);

void CpuFog3840(benchmark::State& state) { drawOnCpu(state, {3840, 420}, OverlayDisplayMode::fullscreenFog); }
BENCHMARK(CpuFog3840)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    lorvane::test::XSession::Options options;
    options.windowManager = false;
    lorvane::test::XSession session(options);
    if (!session.isRunning()) {
        std::fprintf(stderr, "no X server: %s\n", session.error().c_str());
        return 1;
    }
    session.exportEnvironment();
    QGuiApplication app(argc, argv);
    renderer = std::make_unique<OffscreenWaveRenderer>();
    std::printf("OpenGL: %s\n", qPrintable(renderer->description()));
    benchmark::RunSpecifiedBenchmarks();
    renderer.reset();
    benchmark::Shutdown();
    return 0;
}
