// The layer-shell overlay under a headless sway: for each band position and fog, on both layers, the
// wave demo's overlay is no window, draws exactly where the layout puts it, shows on every workspace,
// and lets a click through to the window below.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>
#include <algorithm>
#include <memory>
#include <ostream>

#include "WaylandTestSupport.h"
#include "core/render/OverlayPlacement.h"
#include "support/EventLoopWait.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

constexpr int outputWidth = 800;
constexpr int outputHeight = 600;

struct Case {
    OverlayDisplayMode mode;
    OverlayPosition position;
    bool above;  // kept above windows (top layer) rather than on the desktop (bottom layer)
};

// A stable description for test names (the struct's padding bytes are not).
void PrintTo(const Case& c, std::ostream* out) {
    *out << rawValue(c.mode) << "/" << rawValue(c.position) << (c.above ? "/above" : "/desktop");
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    std::string name = info.param.mode == OverlayDisplayMode::fullscreenFog
                           ? std::string("fog")
                           : std::string(rawValue(info.param.position));
    return name + (info.param.above && info.param.mode == OverlayDisplayMode::compact ? "_top_layer" : "_bottom_layer");
}

struct PixelCount {
    long inside = 0, outside = 0;
    int left = outputWidth, right = -1;
};

// Pixels the overlay changed against the black desktop, inside and outside `band`.
PixelCount countDrawn(const QImage& shot, const QRect& band) {
    PixelCount count;
    for (int y = 0; y < shot.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(shot.constScanLine(y));
        for (int x = 0; x < shot.width(); ++x) {
            const QRgb pixel = row[x];
            if (qRed(pixel) + qGreen(pixel) + qBlue(pixel) <= 6) continue;
            if (band.contains(x, y)) {
                ++count.inside;
                count.left = std::min(count.left, x);
                count.right = std::max(count.right, x);
            } else {
                ++count.outside;
            }
        }
    }
    return count;
}

// Pixels in `area` that are not the white of the pointer recorder's window.
long countNotWhite(const QImage& shot, const QRect& area) {
    long count = 0;
    for (int y = std::max(area.top(), 0); y <= std::min(area.bottom(), shot.height() - 1); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(shot.constScanLine(y));
        for (int x = std::max(area.left(), 0); x <= std::min(area.right(), shot.width() - 1); ++x)
            if (qRed(row[x]) + qGreen(row[x]) + qBlue(row[x]) < 3 * 255 - 6) ++count;
    }
    return count;
}

// Nodes in the tree that are windows (tiled or floating), anywhere.
void collectWindows(const QJsonObject& node, std::vector<QJsonObject>& windows) {
    const QString type = node.value(QStringLiteral("type")).toString();
    if (type == QLatin1String("con") || type == QLatin1String("floating_con")) windows.push_back(node);
    for (const char* key : {"nodes", "floating_nodes"})
        for (const auto& child : node.value(QLatin1String(key)).toArray()) collectWindows(child.toObject(), windows);
}

class LayerShellOverlay : public testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite() {
        sway_ = new SwaySession(SwaySession::Options{outputWidth, outputHeight, 20});
        if (sway_->isRunning()) recording_ = new QString(writeDemoRecording(*sway_));
    }
    static void TearDownTestSuite() {
        delete recording_;
        recording_ = nullptr;
        delete sway_;
        sway_ = nullptr;
    }

    void SetUp() override {
        ASSERT_TRUE(sway_->isRunning()) << sway_->error().toStdString();
        ASSERT_FALSE(recording_->isEmpty());
        ASSERT_TRUE(sway_->command(QStringLiteral("workspace 1")));
    }

    void TearDown() override {
        if (client_) stopProcess(*client_);
        if (demo_) stopProcess(*demo_);
        // The next case starts from an empty, black desktop on the first workspace.
        if (sway_ && sway_->isRunning()) {
            sway_->command(QStringLiteral("workspace 1"));
            waitUntil([] { return countDrawn(sway_->screenshot(), QRect()).outside == 0; },
                      std::chrono::milliseconds(5000), std::chrono::milliseconds(50));
        }
    }

    QRect expectedBand() const {
        const ScreenInfo output{{0, 0, outputWidth, outputHeight}, {0, 0, outputWidth, outputHeight}};
        const RectF frame = overlayFrame(output, GetParam().mode, GetParam().position);
        return QRect(int(frame.x), int(frame.y), int(frame.width), int(frame.height));
    }

    // Screenshots until the overlay has drawn in its band (bounded).
    PixelCount waitForOverlay(const QRect& band) {
        PixelCount count;
        waitUntil(
            [&] {
                count = countDrawn(sway_->screenshot(), band);
                return count.inside > minimumDrawn(band);
            },
            std::chrono::milliseconds(20000), std::chrono::milliseconds(100));
        return count;
    }

    static long minimumDrawn(const QRect& band) {
        // The fog tints the whole output; a band's wave covers a fair share of it.
        return GetParam().mode == OverlayDisplayMode::fullscreenFog ? long(band.width()) * band.height() * 9 / 10
                                                                    : long(band.width()) * band.height() / 50;
    }

    void expectDrawnOnlyInBand(const PixelCount& count, const QRect& band, const char* where) {
        EXPECT_GT(count.inside, minimumDrawn(band)) << where;
        EXPECT_EQ(count.outside, 0) << where << ": the overlay drew outside its band";
        // The band spans the whole width of the output.
        EXPECT_LT(count.left, outputWidth / 8) << where;
        EXPECT_GT(count.right, outputWidth * 7 / 8) << where;
    }

    static SwaySession* sway_;
    static QString* recording_;
    std::unique_ptr<QProcess> demo_;
    std::unique_ptr<QProcess> client_;
};

SwaySession* LayerShellOverlay::sway_ = nullptr;
QString* LayerShellOverlay::recording_ = nullptr;

TEST_P(LayerShellOverlay, IsNoWindowDrawsInItsBandOnEveryWorkspaceAndLetsClicksThrough) {
    const Case param = GetParam();
    QStringList arguments{"--mode", QString::fromLatin1(rawValue(param.mode).data()), "--position",
                          QString::fromLatin1(rawValue(param.position).data()), "--color", "aurora", "--loop"};
    if (param.above) arguments << QStringLiteral("--above");
    arguments << *recording_;
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("lorvane.overlay.info=true"));
    demo_ = sway_->start(QStringLiteral(LORVANE_WAVE_DEMO), arguments, extra);
    ASSERT_TRUE(demo_->waitForStarted(10000));

    QByteArray log;
    ASSERT_TRUE(waitForLog(*demo_, log, "Overlay: layer-shell")) << log.toStdString();
    // This headless compositor's OpenGL runs in software: the band is drawn on the CPU.
    EXPECT_TRUE(waitForLog(*demo_, log, "drawing the wave with cpu on a layer surface")) << log.toStdString();

    const QRect band = expectedBand();
    const PixelCount first = waitForOverlay(band);
    expectDrawnOnlyInBand(first, band, "first workspace");

    // No window: nothing in sway's tree, so no tiling, no decoration, no focus.
    std::vector<QJsonObject> windows;
    collectWindows(sway_->tree().object(), windows);
    EXPECT_TRUE(windows.empty()) << "the overlay is a window in sway's tree";

    // Every workspace: the overlay belongs to the output.
    ASSERT_TRUE(sway_->command(QStringLiteral("workspace 2")));
    expectDrawnOnlyInBand(waitForOverlay(band), band, "second workspace");

    // A window under the band receives a click at the band's centre.
    client_ = sway_->start(QStringLiteral(LORVANE_WAYLAND_TEST_CLIENT), {"window"});
    QByteArray clientOutput;
    ASSERT_TRUE(waitUntil(
        [&] {
            clientOutput += client_->readAllStandardOutput();
            return clientOutput.contains("ready\n") || client_->state() == QProcess::NotRunning;
        },
        std::chrono::milliseconds(10000), std::chrono::milliseconds(20)) &&
                clientOutput.contains("ready\n"))
        << client_->readAllStandardError().toStdString();
    collectWindows(sway_->tree().object(), windows);
    ASSERT_EQ(windows.size(), 1u) << "the recorder's window is the only window";

    // The layer: kept above, the band draws over the window; on the desktop the window hides it.
    const bool topLayer = param.above && param.mode == OverlayDisplayMode::compact;
    const QRect screen(0, 0, outputWidth, outputHeight);
    long outside = -1, inside = -1;
    waitUntil(
        [&] {
            const QImage shot = sway_->screenshot();
            inside = countNotWhite(shot, band);
            outside = countNotWhite(shot, screen) - inside;
            // The window is drawn everywhere the band is not, and the band is settled for the layer.
            return outside == 0 && (topLayer ? inside > minimumDrawn(band) : inside == 0);
        },
        std::chrono::milliseconds(10000), std::chrono::milliseconds(100));
    EXPECT_EQ(outside, 0) << "the window is not drawn around the band, or the band drew outside itself";
    if (topLayer)
        EXPECT_GT(inside, minimumDrawn(band)) << "the top-layer band does not show over the window";
    else
        EXPECT_EQ(inside, 0) << "the desktop-layer overlay shows over a window";

    const QPoint centre = band.center();
    const auto click = sway_->run(QStringLiteral(LORVANE_WAYLAND_TEST_CLIENT),
                                  {"click", QString::number(centre.x()), QString::number(centre.y())});
    ASSERT_EQ(click.status, 0) << click.errors.toStdString();
    const QByteArray expected = "press " + QByteArray::number(centre.x()) + " " + QByteArray::number(centre.y());
    EXPECT_TRUE(waitUntil(
        [&] {
            clientOutput += client_->readAllStandardOutput();
            return clientOutput.contains(expected);
        },
        std::chrono::milliseconds(10000), std::chrono::milliseconds(20)))
        << "the window below did not get the click; it recorded: " << clientOutput.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Sway, LayerShellOverlay,
    testing::Values(Case{OverlayDisplayMode::compact, OverlayPosition::top, true},
                    Case{OverlayDisplayMode::compact, OverlayPosition::top, false},
                    Case{OverlayDisplayMode::compact, OverlayPosition::center, true},
                    Case{OverlayDisplayMode::compact, OverlayPosition::center, false},
                    Case{OverlayDisplayMode::compact, OverlayPosition::bottom, true},
                    Case{OverlayDisplayMode::compact, OverlayPosition::bottom, false},
                    // Fog always sits on the desktop, whatever "kept above" says: one case covers it.
                    Case{OverlayDisplayMode::fullscreenFog, OverlayPosition::center, false}),
    caseName);

}  // namespace

// After a change of outputs the overlay asks for a new surface, which the compositor puts on the
// output the user works on (the focused one).
TEST(LayerShellOverlayOutputs, MovesToTheFocusedOutputWhenTheOutputsChange) {
    SwaySession sway(SwaySession::Options{outputWidth, outputHeight, 20});
    ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
    const QString recording = writeDemoRecording(sway);
    ASSERT_FALSE(recording.isEmpty());
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO),
                           {"--position", "top", "--above", "--color", "aurora", "--loop", recording});
    ASSERT_TRUE(demo->waitForStarted(10000));
    const auto drawnOnlyIn = [&](const QImage& shot, const QRect& band) {
        const PixelCount count = countDrawn(shot, band);
        return count.inside > long(band.width()) * band.height() / 50 && count.outside == 0;
    };
    ASSERT_TRUE(waitUntil([&] { return drawnOnlyIn(sway.screenshot(), QRect(0, 28, outputWidth, 150)); },
                          std::chrono::milliseconds(20000), std::chrono::milliseconds(100)));

    // A second output to the right gets the focus, then changes its mode.
    ASSERT_TRUE(sway.command(QStringLiteral("create_output")));
    ASSERT_TRUE(sway.command(QStringLiteral("output HEADLESS-2 bg #000000 solid_color")));
    ASSERT_TRUE(sway.command(QStringLiteral("focus output HEADLESS-2")));
    ASSERT_TRUE(sway.command(QStringLiteral("output HEADLESS-2 resolution 640x480 position %1 0").arg(outputWidth)));
    const QRect secondBand(outputWidth, 28, 640, 150);
    QImage shot;
    EXPECT_TRUE(waitUntil(
        [&] {
            shot = sway.screenshot();
            return shot.width() == outputWidth + 640 && drawnOnlyIn(shot, secondBand);
        },
        std::chrono::milliseconds(20000), std::chrono::milliseconds(100)))
        << "the band did not move to the focused output";
    EXPECT_EQ(demo->state(), QProcess::Running);
    stopProcess(*demo);
}

// On an output at scale 2 the wave is drawn at the output's own resolution, not at half of it and
// enlarged: with the compositor told to enlarge by repeating pixels, a half-resolution picture would
// be made of 2x2 blocks of one colour, and the band's edges and bars show finer detail than that.
TEST(LayerShellOverlayScale, DrawsAtTheOutputsScale) {
    SwaySession sway(SwaySession::Options{outputWidth, outputHeight, 20});
    ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
    ASSERT_TRUE(sway.command(QStringLiteral("output HEADLESS-1 scale 2 scale_filter nearest")));
    const QString recording = writeDemoRecording(sway);
    ASSERT_FALSE(recording.isEmpty());
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO),
                           {"--position", "center", "--above", "--color", "aurora", "--loop", recording});
    ASSERT_TRUE(demo->waitForStarted(10000));
    // Blocks of 2x2 pixels the overlay drew in, and those among them that are not of one colour.
    struct Blocks {
        long drawn = 0, detailed = 0;
    };
    const auto blocks = [](const QImage& shot) {
        Blocks count;
        for (int y = 0; y + 1 < shot.height(); y += 2) {
            const auto* top = reinterpret_cast<const QRgb*>(shot.constScanLine(y));
            const auto* bottom = reinterpret_cast<const QRgb*>(shot.constScanLine(y + 1));
            for (int x = 0; x + 1 < shot.width(); x += 2) {
                const QRgb a = top[x], b = top[x + 1], c = bottom[x], d = bottom[x + 1];
                if (qRed(a) + qGreen(a) + qBlue(a) <= 6 && qRed(d) + qGreen(d) + qBlue(d) <= 6) continue;
                ++count.drawn;
                if (a != b || a != c || a != d) ++count.detailed;
            }
        }
        return count;
    };
    QImage shot;
    Blocks count;
    ASSERT_TRUE(waitUntil(
        [&] {
            shot = sway.screenshot();
            count = blocks(shot);
            return shot.width() == outputWidth && count.drawn > 2000;
        },
        std::chrono::milliseconds(20000), std::chrono::milliseconds(100)))
        << shot.width() << "x" << shot.height() << ", " << count.drawn << " blocks drawn";
    EXPECT_TRUE(waitUntil(
        [&] {
            count = blocks(sway.screenshot());
            return count.detailed > count.drawn / 20;
        },
        std::chrono::milliseconds(10000), std::chrono::milliseconds(100)))
        << count.detailed << " of " << count.drawn << " drawn blocks show detail finer than 2x2";
    EXPECT_EQ(demo->state(), QProcess::Running);
    stopProcess(*demo);
}

// Asked for OpenGL, the layer surface draws with EGL, in the same band.
TEST(LayerShellOverlayGl, DrawsWithOpenGlWhenAskedTo) {
    SwaySession sway(SwaySession::Options{outputWidth, outputHeight, 20});
    ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
    const QString recording = writeDemoRecording(sway);
    ASSERT_FALSE(recording.isEmpty());
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("lorvane.overlay.info=true"));
    extra.insert(QStringLiteral("LORVANE_RENDERER"), QStringLiteral("gl"));
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO),
                           {"--position", "bottom", "--above", "--color", "aurora", "--loop", recording}, extra);
    ASSERT_TRUE(demo->waitForStarted(10000));
    QByteArray log;
    EXPECT_TRUE(waitForLog(*demo, log, "drawing the wave with gl on a layer surface")) << log.toStdString();
    const ScreenInfo output{{0, 0, outputWidth, outputHeight}, {0, 0, outputWidth, outputHeight}};
    const RectF frame = overlayFrame(output, OverlayDisplayMode::compact, OverlayPosition::bottom);
    const QRect band(int(frame.x), int(frame.y), int(frame.width), int(frame.height));
    PixelCount count;
    EXPECT_TRUE(waitUntil(
        [&] {
            count = countDrawn(sway.screenshot(), band);
            return count.inside > long(band.width()) * band.height() / 50 && count.outside == 0;
        },
        std::chrono::milliseconds(20000), std::chrono::milliseconds(100)))
        << count.inside << " pixels drawn in the band, " << count.outside << " outside";
    EXPECT_EQ(demo->state(), QProcess::Running);
    stopProcess(*demo);
}

// While live the band is drawn once per analysis frame, on the frames' beat: no frame drawn twice,
// hardly one replaced before it was drawn.
TEST(LayerShellOverlayPacing, DrawsEachLiveFrameOnce) {
    SwaySession sway(SwaySession::Options{outputWidth, outputHeight, 20});
    ASSERT_TRUE(sway.isRunning()) << sway.error().toStdString();
    const QString recording = writeDemoRecording(sway);
    ASSERT_FALSE(recording.isEmpty());
    auto demo = sway.start(QStringLiteral(LORVANE_WAVE_DEMO),
                           {"--position", "center", "--loop", "--seconds", "6", recording});
    ASSERT_TRUE(demo->waitForStarted(10000));
    ASSERT_TRUE(demo->waitForFinished(30000)) << "the demo did not end after its six seconds";
    const QByteArray output = demo->readAllStandardOutput();
    long long published = -1, drawn = -1, repeated = -1, skipped = -1;
    const int line = output.indexOf("live frames: ");
    ASSERT_GE(line, 0) << output.toStdString();
    ASSERT_EQ(std::sscanf(output.constData() + line, "live frames: %lld published, %lld drawn, %lld repeated, %lld skipped",
                          &published, &drawn, &repeated, &skipped),
              4)
        << output.toStdString();
    RecordProperty("published", static_cast<int>(published));
    RecordProperty("skipped", static_cast<int>(skipped));
    // About 30 a second over most of six seconds.
    EXPECT_GT(published, 90) << output.toStdString();
    EXPECT_EQ(repeated, 0) << output.toStdString();
    EXPECT_LE(skipped, published / 20) << output.toStdString();
    EXPECT_GE(drawn, published - skipped - 1) << output.toStdString();
}
