#pragma once
// Draws wave frames on the CPU into a premultiplied ARGB image, for machines whose OpenGL is missing
// or runs in software. It draws what the GL renderer draws, rule for rule: bars from pre-rendered
// dash sprites (one set per bar width and dash pattern, at sixteenth-pixel offsets), tinted and
// blitted per bar down to its half-height; dots and sparkles; the glow stroked and blurred at a
// quarter of the resolution (half for the compact band at 1x), then scaled up under the bars. Only
// the canvas's pixels are touched.

#include <QImage>
#include <QRect>
#include <QRegion>
#include <cstdint>
#include <vector>

#include "core/WaveColor.h"
#include "core/render/VisualizerView.h"

namespace lorvane {

class WaveRasterRenderer {
public:
    // The colour under the whole panel: the fog tint (if any) over the window's own background, both
    // premultiplied.
    static RgbaColor panelFill(const WaveFrame& frame, const RgbaColor& premultipliedBackground);

    // The canvas's pixels in a panel image at `devicePixelRatio`.
    static QRect canvasPixels(const WaveFrame& frame, double devicePixelRatio);

    // The pixels of the canvas this frame's wave (with its glow and sparkles) can touch.
    static QRect wavePixels(const WaveFrame& frame, double devicePixelRatio);

    // The same, finer: per slice of columns, the rows the wave can touch there (its bars there and
    // the glow of their neighbours). What changes on screen from one frame to the next lies within
    // this region of both frames.
    static QRegion waveRegion(const WaveFrame& frame, double devicePixelRatio);

    // Fills the canvas's pixels of `image` (the panel, premultiplied ARGB32, at `devicePixelRatio`)
    // with the panel's fill and draws the frame's wave over it. Pixels outside the canvas, or outside
    // `limit` when given (it must hold wavePixels()), are left as they are. Answers the rectangle drawn.
    QRect drawCanvas(const WaveFrame& frame, QImage& image, const RgbaColor& premultipliedBackground,
                     const QRect& limit = QRect());

    // The whole panel in a new image (pictures, tests and tools).
    QImage render(const WaveFrame& frame, double devicePixelRatio, const RgbaColor& premultipliedBackground);

    // Glow pixels per image pixel used for the last frame.
    double lastGlowScale() const { return glowScale_; }

private:
    struct DashSprites {
        double barWidth = -1, dashOn = -1, period = -1, length = -1;
        int columns = 0, rows = 0, columnOffset = 0, rowOffset = 0;
        std::vector<std::uint8_t> coverage;  // [yPhase][xPhase][row][column]
        const std::uint8_t* sprite(int xPhase, int yPhase) const {
            return coverage.data() + (static_cast<std::size_t>(yPhase) * phases + static_cast<std::size_t>(xPhase)) *
                                         static_cast<std::size_t>(rows * columns);
        }
        static constexpr int phases = 16;
    };

    // The image's pixels, taken once per frame.
    struct Target {
        std::uint8_t* bits;
        std::ptrdiff_t stride;
        std::uint8_t* scanLine(int y) const { return bits + y * stride; }
    };

    void ensureSprites(double barWidth, double dashOn, double period, double length);
    void drawBaseline(const WaveFrame& frame, const Target& image, const QRect& clip, double scale);
    void drawGlow(const WaveFrame& frame, const Target& image, const QRect& clip, double scale);
    void drawBars(const WaveFrame& frame, const Target& image, const QRect& clip, double scale);

    DashSprites sprites_;
    std::vector<double> baselineKey_;     // what baselineColours_ were worked out for
    std::vector<float> baselineColours_;  // the baseline's gradient by column: red, green, blue (0...255), alpha
    std::vector<std::uint8_t> strokes_;  // the glow's strokes: premultiplied RGBA bytes at glow resolution
    std::vector<float> strokeRow_;       // one row of them as floats
    std::vector<float> ring_;            // the last 2 x radius + 1 rows of them blurred across (0...255)
    std::vector<std::uint8_t> ringFilled_;  // per ring row and chunk of columns: anything there
    std::vector<float> zeroRow_;
    std::vector<int> strokeTop_, strokeBottom_;  // per chunk of glow columns: the rows stroked
    std::vector<int> acrossTop_, acrossBottom_;  // ... and the rows holding anything after the pass across
    std::vector<float> acrossCoverage_;          // one stroke's coverage by column, between its caps
    std::vector<std::uint32_t> alone_;           // ... and its pixel over nothing
    std::vector<std::uint32_t> lastUnder_, lastOver_;  // ... and the last pixel it went over, and the result
    std::vector<const float*> rowPointers_;
    std::vector<std::uint32_t> glowBytes_;  // the blurred glow in premultiplied ARGB bytes
    std::vector<std::uint16_t> upper_, lower_;  // one glow row widened to the image's columns, in sixteenths
    std::vector<std::uint8_t> upperFilled_, lowerFilled_;  // per run of columns: anything there
    std::vector<int> column0_, column1_;    // the glow columns under each image column
    std::vector<std::uint16_t> columnWeight_;
    double glowScale_ = 0.25;
};

}  // namespace lorvane
