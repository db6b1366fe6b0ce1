#include "ui/WaveRasterRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lorvane {

namespace {

// The GL path's coverage rule: a pixel's share of a band of `width` whose edge lies `distance` away.
inline float coverage(float distance, float width) { return std::clamp(std::min(0.5f - distance, width), 0.0f, 1.0f); }

inline int toByte(float unit) { return static_cast<int>(unit * 255.0f + 0.5f); }

inline std::uint32_t pack(int alpha, int red, int green, int blue) {
    return (static_cast<std::uint32_t>(alpha) << 24) | (static_cast<std::uint32_t>(red) << 16) |
           (static_cast<std::uint32_t>(green) << 8) | static_cast<std::uint32_t>(blue);
}

// A straight colour on the 0...255 scale, rounded to bytes as the GL path uploads it.
struct Colour {
    float red = 0, green = 0, blue = 0;
};

Colour bytes(const RgbaColor& c) {
    auto byte = [](double v) { return static_cast<float>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); };
    return {byte(c.red), byte(c.green), byte(c.blue)};
}

// Source-over of `colour` at `alpha` onto a premultiplied pixel.
inline void blend(std::uint32_t& pixel, const Colour& colour, float alpha) {
    const float keep = 1.0f - alpha;
    const float a = alpha * 255.0f + static_cast<float>(pixel >> 24) * keep;
    const float r = colour.red * alpha + static_cast<float>((pixel >> 16) & 0xFF) * keep;
    const float g = colour.green * alpha + static_cast<float>((pixel >> 8) & 0xFF) * keep;
    const float b = colour.blue * alpha + static_cast<float>(pixel & 0xFF) * keep;
    pixel = pack(static_cast<int>(a + 0.5f), static_cast<int>(r + 0.5f), static_cast<int>(g + 0.5f),
                 static_cast<int>(b + 0.5f));
}

// Pixels whose centres lie in [from, to).
inline std::pair<int, int> centresWithin(double from, double to) {
    return {static_cast<int>(std::ceil(from - 0.5)), static_cast<int>(std::ceil(to - 0.5))};
}

// The stroke of a dash chain at `along` pixels from its upper end and `across` pixels from its centre
// line; `lastDash` bounds the dash index (a chain clipped to its length), or is negative for none.
inline float dashCoverage(float across, float along, float width, float on, float period, float pathLength,
                          float lastDash) {
    float j = std::max(std::floor((along + 0.5f * (period - on)) / period), 0.0f);
    if (lastDash >= 0) j = std::min(j, lastDash);
    const float start = j * period;
    const float end = lastDash >= 0 ? std::min(start + on, pathLength) : start + on;
    const float outside = std::max(std::max(start - along, along - end), 0.0f);
    return coverage(std::sqrt(across * across + outside * outside) - 0.5f * width, width);
}

struct Blur {
    int radius = 0;
    std::vector<float> weights;  // weights[0] is the centre, then one per distance
};

Blur gaussian(double sigma) {
    Blur blur;
    blur.radius = std::max(1, static_cast<int>(std::ceil(sigma * 3)));
    double total = 0;
    for (int i = 0; i <= blur.radius; ++i) {
        const double w = std::exp(-(i * i) / (2 * sigma * sigma));
        blur.weights.push_back(static_cast<float>(w));
        total += i == 0 ? w : 2 * w;
    }
    for (float& w : blur.weights) w = static_cast<float>(w / total);
    return blur;
}

// Glow columns per chunk: the blur and the clearing skip chunks the strokes never reached.
constexpr int glowChunk = 16;

// One glow pixel's four floats; the blurs keep several pixels' sums in registers at once, so each
// runs through its kernel without waiting on the one before.
typedef float Pixel4 __attribute__((vector_size(16)));
typedef int Integer4 __attribute__((vector_size(16)));
typedef std::uint8_t Bytes4 __attribute__((vector_size(4)));

// One stroke pixel's four bytes as floats.
inline Pixel4 widen(const std::uint8_t* p) {
    Bytes4 b;
    std::memcpy(&b, p, sizeof b);
    return __builtin_convertvector(b, Pixel4);
}

inline Pixel4 load(const float* p) {
    Pixel4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void store(float* p, Pixel4 v) { std::memcpy(p, &v, sizeof v); }

// The blurs get an AVX2 build too, picked when the processor has it: twice the lanes.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define LORVANE_WIDE_VECTORS __attribute__((target_clones("avx2", "default")))
#else
#define LORVANE_WIDE_VECTORS
#endif

// Two glow pixels' floats, for the blurs: one register under AVX, two otherwise.
typedef float Pixels2 __attribute__((vector_size(32)));

#define LORVANE_LOAD2(target, pointer) std::memcpy(&(target), (pointer), sizeof(Pixels2))

// Pixels [from, to) of a glow row (four floats each) blurred across.
LORVANE_WIDE_VECTORS void blurAcross(const float* __restrict in, float* __restrict out, std::size_t from,
                                     std::size_t to, const float* weights, int radius) {
    const float w0 = weights[0];
    std::size_t p = from;
    for (; p + 8 <= to; p += 8) {
        const float* c = in + p * 4;
        Pixels2 a[4];
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j) {
            LORVANE_LOAD2(a[j], c + j * 8);
            a[j] *= w0;
        }
        for (int k = 1; k <= radius; ++k) {
            const float w = weights[k];
            const std::size_t s = static_cast<std::size_t>(k) * 4;
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j) {
                Pixels2 l, r;
                LORVANE_LOAD2(l, c + j * 8 - s);
                LORVANE_LOAD2(r, c + j * 8 + s);
                a[j] += (l + r) * w;
            }
        }
        std::memcpy(out + p * 4, a, sizeof a);
    }
    for (; p < to; ++p) {
        const float* c = in + p * 4;
        Pixel4 a = load(c) * w0;
        for (int k = 1; k <= radius; ++k) {
            const float w = weights[k];
            const std::size_t s = static_cast<std::size_t>(k) * 4;
            a += (load(c - s) + load(c + s)) * w;
        }
        store(out + p * 4, a);
    }
}

// `pixels` pixels from float `from` of the rows around[-radius...radius] blurred down and rounded to
// premultiplied ARGB bytes.
LORVANE_WIDE_VECTORS void blurDownToBytes(const float* const* around, std::size_t from, std::size_t pixels,
                                          const float* weights, int radius, std::uint32_t* __restrict out) {
    // Always a whole chunk (the rows have room past their end), eight pixels' sums at a time.
    alignas(32) float sum[glowChunk * 4];
    const float w0 = weights[0];
    for (int half = 0; half < glowChunk; half += 8) {
        const std::size_t base = from + static_cast<std::size_t>(half) * 4;
        Pixels2 a[4];
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j) {
            LORVANE_LOAD2(a[j], around[0] + base + static_cast<std::size_t>(j) * 8);
            a[j] *= w0;
        }
        for (int k = 1; k <= radius; ++k) {
            const float w = weights[k];
            const float* above = around[-k] + base;
            const float* below = around[k] + base;
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j) {
                Pixels2 u, d;
                LORVANE_LOAD2(u, above + j * 8);
                LORVANE_LOAD2(d, below + j * 8);
                a[j] += (u + d) * w;
            }
        }
        std::memcpy(sum + half * 4, a, sizeof a);
    }
    for (std::size_t x = 0; x < pixels; ++x) {
        const float* p = sum + x * 4;
        const int alpha = std::clamp(static_cast<int>(p[3] + 0.5f), 0, 255);
        // Premultiplied colour never exceeds its alpha, which the compositing relies on.
        const int red = std::clamp(static_cast<int>(p[0] + 0.5f), 0, alpha);
        const int green = std::clamp(static_cast<int>(p[1] + 0.5f), 0, alpha);
        const int blue = std::clamp(static_cast<int>(p[2] + 0.5f), 0, alpha);
        out[x] = pack(alpha, red, green, blue);
    }
}

}  // namespace

RgbaColor WaveRasterRenderer::panelFill(const WaveFrame& frame, const RgbaColor& background) {
    if (!frame.composition.tint) return background;
    const RgbaColor& tint = *frame.composition.tint;
    const RgbaColor over{tint.red * tint.alpha, tint.green * tint.alpha, tint.blue * tint.alpha, tint.alpha};
    const double keep = 1 - over.alpha;
    return {over.red + background.red * keep, over.green + background.green * keep,
            over.blue + background.blue * keep, over.alpha + background.alpha * keep};
}

QRect WaveRasterRenderer::canvasPixels(const WaveFrame& frame, double ratio) {
    const RectF& canvas = frame.composition.waveform;
    const int left = static_cast<int>(std::floor(canvas.left() * ratio));
    const int top = static_cast<int>(std::floor(canvas.top() * ratio));
    const int right = static_cast<int>(std::ceil(canvas.right() * ratio));
    const int bottom = static_cast<int>(std::ceil(canvas.bottom() * ratio));
    return QRect(left, top, right - left, bottom - top);
}

QImage WaveRasterRenderer::render(const WaveFrame& frame, double ratio, const RgbaColor& background) {
    QImage image(static_cast<int>(std::lround(frame.panel.width * ratio)),
                 static_cast<int>(std::lround(frame.panel.height * ratio)), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    const RgbaColor fill = panelFill(frame, background);
    image.fill(QColor::fromRgbF(static_cast<float>(fill.alpha > 0 ? fill.red / fill.alpha : 0),
                                static_cast<float>(fill.alpha > 0 ? fill.green / fill.alpha : 0),
                                static_cast<float>(fill.alpha > 0 ? fill.blue / fill.alpha : 0),
                                static_cast<float>(fill.alpha)));
    // Exact bytes, as the GL path clears them.
    const std::uint32_t packed =
        pack(toByte(static_cast<float>(fill.alpha)), toByte(static_cast<float>(fill.red)),
             toByte(static_cast<float>(fill.green)), toByte(static_cast<float>(fill.blue)));
    for (int y = 0; y < image.height(); ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(image.scanLine(y));
        std::fill(row, row + image.width(), packed);
    }
    drawCanvas(frame, image, background);
    return image;
}

QRect WaveRasterRenderer::wavePixels(const WaveFrame& frame, double ratio) {
    const WaveLayout& layout = frame.layout;
    double extent = 0;
    for (const WaveBar& bar : layout.bars) {
        extent = std::max(extent, bar.halfHeight + layout.barWidth / 2 + layout.dotDiameter / 2);
        if (bar.sparkleReach) extent = std::max(extent, *bar.sparkleReach + layout.sparkleDiameter / 2);
    }
    // The glow reaches its stroke's half width plus three standard deviations of the blur beyond.
    extent += layout.glowLineWidth / 2 + 3 * layout.glowRadius + 2;
    const RectF& canvas = frame.composition.waveform;
    const double mid = canvas.y + layout.midY;
    const int top = static_cast<int>(std::floor((mid - extent) * ratio)) - 2;
    const int bottom = static_cast<int>(std::ceil((mid + extent) * ratio)) + 2;
    const QRect all = canvasPixels(frame, ratio);
    return QRect(all.left(), top, all.width(), bottom - top).intersected(all);
}

QRegion WaveRasterRenderer::waveRegion(const WaveFrame& frame, double ratio) {
    const QRect all = wavePixels(frame, ratio);
    if (all.isEmpty()) return {};
    const WaveLayout& layout = frame.layout;
    const RectF& canvas = frame.composition.waveform;
    // The glow spreads its stroke's half width plus three standard deviations of the blur.
    const double spread = layout.glowLineWidth / 2 + 3 * layout.glowRadius + 2;
    constexpr int slice = 128;
    const int slices = (all.width() + slice - 1) / slice;
    std::vector<double> extent(static_cast<std::size_t>(slices), -1);
    for (const WaveBar& bar : layout.bars) {
        double reach = bar.halfHeight + layout.barWidth / 2 + layout.dotDiameter / 2;
        if (bar.sparkleReach) reach = std::max(reach, *bar.sparkleReach + layout.sparkleDiameter / 2);
        const double x = (canvas.x + bar.x) * ratio - all.left();
        const int from = std::max(static_cast<int>(std::floor((x - spread * ratio) / slice)), 0);
        const int to = std::min(static_cast<int>(std::floor((x + spread * ratio) / slice)), slices - 1);
        for (int i = from; i <= to; ++i) extent[static_cast<std::size_t>(i)] = std::max(extent[static_cast<std::size_t>(i)], reach);
    }
    const double mid = canvas.y + layout.midY;
    QRegion region;
    for (int i = 0; i < slices; ++i) {
        const double reach = extent[static_cast<std::size_t>(i)];
        if (reach < 0) continue;
        const int top = static_cast<int>(std::floor((mid - reach - spread) * ratio)) - 2;
        const int bottom = static_cast<int>(std::ceil((mid + reach + spread) * ratio)) + 2;
        region += QRect(all.left() + i * slice, top, slice, bottom - top).intersected(all);
    }
    return region;
}

QRect WaveRasterRenderer::drawCanvas(const WaveFrame& frame, QImage& image, const RgbaColor& background,
                                     const QRect& limit) {
    const double scale = image.devicePixelRatio();
    QRect clip = canvasPixels(frame, scale).intersected(image.rect());
    if (!limit.isNull()) clip = clip.intersected(limit);
    if (clip.isEmpty()) return {};
    const RgbaColor fill = panelFill(frame, background);
    const std::uint32_t packed =
        pack(toByte(static_cast<float>(fill.alpha)), toByte(static_cast<float>(fill.red)),
             toByte(static_cast<float>(fill.green)), toByte(static_cast<float>(fill.blue)));
    // QImage::scanLine() checks for sharing on every call: take the pixels once.
    const Target target{image.bits(), static_cast<std::ptrdiff_t>(image.bytesPerLine())};
    for (int y = clip.top(); y <= clip.bottom(); ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(target.scanLine(y));
        std::fill(row + clip.left(), row + clip.right() + 1, packed);
    }
    if (frame.layout.bars.empty()) return clip;
    // The GL path's order: baseline, the blurred glow over it, then the bars.
    drawBaseline(frame, target, clip, scale);
    drawGlow(frame, target, clip, scale);
    drawBars(frame, target, clip, scale);
    return clip;
}

void WaveRasterRenderer::drawBaseline(const WaveFrame& frame, const Target& image, const QRect& clip, double scale) {
    const WaveLayout& layout = frame.layout;
    const RectF& canvas = frame.composition.waveform;
    const float lineWidth = static_cast<float>(layout.baselineWidth * scale);
    const float x0 = static_cast<float>(canvas.x * scale);
    const float y = static_cast<float>((canvas.y + layout.midY) * scale);
    const float length = static_cast<float>(layout.canvas.width * scale);
    const float pad = lineWidth * 0.5f + 1.5f;
    const int stopCount = static_cast<int>(std::min<std::size_t>(layout.baselineStops.size(), 4));
    if (stopCount == 0) return;
    auto [left, right] = centresWithin(x0 - pad, x0 + length + pad);
    auto [top, bottom] = centresWithin(y - pad, y + pad);
    left = std::max(left, clip.left());
    right = std::min(right, clip.right() + 1);
    top = std::max(top, clip.top());
    bottom = std::min(bottom, clip.bottom() + 1);
    if (left >= right || top >= bottom) return;
    // The gradient's colour depends on the column alone: worked out once for all the line's rows, and
    // again only when the line or its colours change.
    const std::size_t columns = static_cast<std::size_t>(right - left);
    std::vector<double>& key = baselineKey_;
    const std::size_t keySize = key.size();
    std::vector<double> now{static_cast<double>(left), static_cast<double>(right), x0, length};
    for (int i = 0; i < stopCount; ++i) {
        const RgbaColor& c = layout.baselineStops[static_cast<std::size_t>(i)].color;
        now.insert(now.end(), {c.red, c.green, c.blue, c.alpha});
    }
    const bool same = keySize == now.size() && std::equal(now.begin(), now.end(), key.begin());
    if (!same) key = std::move(now);
    baselineColours_.resize(columns * 4);
    for (int px = same ? right : left; px < right; ++px) {
        const float dx = static_cast<float>(px) + 0.5f - x0;
        RgbaColor c = layout.baselineStops[0].color;
        if (stopCount > 1) {
            const double position = std::clamp(dx / length, 0.0f, 1.0f) * (stopCount - 1);
            const int lower = std::min(static_cast<int>(std::floor(position)), stopCount - 2);
            c = layout.baselineStops[static_cast<std::size_t>(lower)].color.blended(
                position - lower, layout.baselineStops[static_cast<std::size_t>(lower + 1)].color);
        }
        const std::size_t n = static_cast<std::size_t>(px - left);
        float* stored = baselineColours_.data() + n * 4;
        stored[0] = static_cast<float>(c.red * 255);
        stored[1] = static_cast<float>(c.green * 255);
        stored[2] = static_cast<float>(c.blue * 255);
        stored[3] = static_cast<float>(c.alpha);
    }
    for (int py = top; py < bottom; ++py) {
        auto* row = reinterpret_cast<std::uint32_t*>(image.scanLine(py));
        const float dy = static_cast<float>(py) + 0.5f - y;
        // Between the ends the coverage depends on the row alone.
        const float inner = coverage(std::fabs(dy) - 0.5f * lineWidth, lineWidth);
        for (int px = left; px < right; ++px) {
            const float dx = static_cast<float>(px) + 0.5f - x0;
            const float outside = std::max(std::max(-dx, dx - length), 0.0f);
            float a = outside > 0 ? coverage(std::sqrt(outside * outside + dy * dy) - 0.5f * lineWidth, lineWidth) : inner;
            if (a <= 0) continue;
            const float* c = baselineColours_.data() + static_cast<std::size_t>(px - left) * 4;
            blend(row[px], Colour{c[0], c[1], c[2]}, a * c[3]);
        }
    }
}

void WaveRasterRenderer::drawGlow(const WaveFrame& frame, const Target& image, const QRect& clip, double scale) {
    const WaveLayout& layout = frame.layout;
    const RectF& canvas = frame.composition.waveform;
    const double sigma = layout.glowRadius * scale;
    // The GL path's grid: a quarter of the resolution for blurs of 5 pixels or more (fog, and every
    // 2x screen), half for the compact band's 4 at 1x, where a quarter would show the coarser grid.
    glowScale_ = sigma >= 5 ? 0.25 : sigma >= 3 ? 0.5 : 1.0;
    const double toGlow = scale * glowScale_;
    const Blur blur = gaussian(sigma * glowScale_);
    const int margin = blur.radius + 2;
    const int innerWidth = static_cast<int>(std::ceil(canvas.width * toGlow));
    const int innerHeight = static_cast<int>(std::ceil(canvas.height * toGlow));
    const int width = innerWidth + 2 * margin;
    const int height = innerHeight + 2 * margin;
    const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    if (strokes_.size() != size || strokeRow_.size() != static_cast<std::size_t>(width) * 4) {
        strokes_.assign(size, 0);
        strokeRow_.assign(static_cast<std::size_t>(width) * 4, 0.0f);
    }

    // Only the rows the glow can reach this frame: the strokes' rows, widened by the kernel.
    double extent = 0;
    for (const WaveBar& bar : layout.bars) extent = std::max(extent, bar.halfHeight);
    extent += layout.glowLineWidth / 2;
    const int top = static_cast<int>(std::floor(margin + std::max(layout.midY - extent, 0.0) * toGlow)) - 1;
    const int bottom =
        static_cast<int>(std::ceil(margin + std::min(layout.midY + extent, canvas.height) * toGlow)) + 1;
    const int radius = blur.radius;
    auto rows = [height](int first, int last) { return std::pair{std::clamp(first, 0, height), std::clamp(last, 0, height)}; };
    const auto [bandTop, bandBottom] = rows(top - radius - 1, bottom + radius + 1);

    // The strokes are all clear between frames; the rows each chunk of columns was stroked in (and,
    // after the pass across, holds anything in) bound the work and the clearing afterwards.
    const int chunks = (width + glowChunk - 1) / glowChunk;
    strokeTop_.assign(static_cast<std::size_t>(chunks), height);
    strokeBottom_.assign(static_cast<std::size_t>(chunks), 0);

    // The strokes: solid round-capped segments, clipped to the canvas.
    const float strokeWidth = static_cast<float>(layout.glowLineWidth * toGlow);
    const float quadHalfWidth = static_cast<float>(layout.glowLineWidth * 0.5 * toGlow + 1.5);
    const float midY = static_cast<float>(margin + layout.midY * toGlow);
    acrossCoverage_.resize(static_cast<std::size_t>(std::ceil(2 * quadHalfWidth)) + 2);
    alone_.resize(acrossCoverage_.size());
    lastUnder_.resize(acrossCoverage_.size());
    lastOver_.resize(acrossCoverage_.size());
    for (const WaveBar& bar : layout.bars) {
        const float x = static_cast<float>(margin + bar.x * toGlow);
        const float h = static_cast<float>(bar.halfHeight * toGlow);
        // Coverage ends half a pixel beyond the stroke's edge.
        const float reachY = h + 0.5f * strokeWidth + 0.5f;
        auto [quadLeft, quadRight] = centresWithin(x - quadHalfWidth, x + quadHalfWidth);
        auto [first, last] = centresWithin(midY - reachY, midY + reachY);
        quadRight = std::min(quadRight, quadLeft + static_cast<int>(acrossCoverage_.size()));
        first = std::max(first, margin);
        last = std::min(last, margin + innerHeight);
        if (quadLeft >= quadRight || first >= last) continue;
        const float opacity = static_cast<float>(WaveOpacity::glow * bar.intensity);
        const Colour colour = bytes(bar.glowColor);
        const Pixel4 source{colour.red, colour.green, colour.blue, 255.0f};
        // Between the caps a stroke's coverage depends on the column alone, and so does the pixel
        // it leaves where nothing was stroked before.
        float* across = acrossCoverage_.data() - quadLeft;
        std::uint32_t* alone = alone_.data() - quadLeft;
        std::uint32_t* lastUnder = lastUnder_.data() - quadLeft;
        std::uint32_t* lastOver = lastOver_.data() - quadLeft;
        std::fill(lastUnder_.begin(), lastUnder_.end(), 0u);
        int left = quadRight, right = quadLeft;
        for (int px = quadLeft; px < quadRight; ++px) {
            const float dx = static_cast<float>(px) + 0.5f - x;
            const float a = opacity * coverage(std::fabs(dx) - 0.5f * strokeWidth, strokeWidth);
            across[px] = a;
            const Bytes4 rounded = __builtin_convertvector(__builtin_convertvector(source * a + 0.5f, Integer4), Bytes4);
            std::memcpy(&alone[px], &rounded, sizeof rounded);
            if (a > 0) {
                left = std::min(left, px);
                right = px + 1;
            }
        }
        // The caps cover no column the middle does not.
        left = std::max(left, margin);
        right = std::min(right, margin + innerWidth);
        if (left >= right) continue;
        for (int c = left / glowChunk; c <= (right - 1) / glowChunk; ++c) {
            const std::size_t n = static_cast<std::size_t>(c);
            strokeTop_[n] = std::min(strokeTop_[n], first);
            strokeBottom_[n] = std::max(strokeBottom_[n], last);
        }
        for (int py = first; py < last; ++py) {
            const float dy = static_cast<float>(py) + 0.5f - midY;
            const float outside = std::max(std::fabs(dy) - h, 0.0f);
            std::uint8_t* p = strokes_.data() + (static_cast<std::size_t>(py) * static_cast<std::size_t>(width) +
                                                 static_cast<std::size_t>(left)) * 4;
            for (int px = left; px < right; ++px, p += 4) {
                float a;
                if (outside == 0) {
                    std::uint32_t under;
                    std::memcpy(&under, p, sizeof under);
                    if (under == 0) {
                        std::memcpy(p, &alone[px], sizeof under);
                        continue;
                    }
                    // Over a neighbour's middle the pixel under repeats from row to row, and so does
                    // the result.
                    if (under == lastUnder[px]) {
                        std::memcpy(p, &lastOver[px], sizeof under);
                        continue;
                    }
                    const Pixel4 mixed = source * across[px] + widen(p) * (1 - across[px]);
                    const Bytes4 rounded = __builtin_convertvector(__builtin_convertvector(mixed + 0.5f, Integer4), Bytes4);
                    std::memcpy(p, &rounded, sizeof rounded);
                    lastUnder[px] = under;
                    std::memcpy(&lastOver[px], &rounded, sizeof rounded);
                    continue;
                } else {
                    const float dx = static_cast<float>(px) + 0.5f - x;
                    a = opacity * coverage(std::sqrt(dx * dx + outside * outside) - 0.5f * strokeWidth, strokeWidth);
                }
                if (a <= 0) continue;
                // In bytes, as the GL path's glow target holds them.
                const Pixel4 mixed = source * a + widen(p) * (1 - a);
                const Bytes4 rounded = __builtin_convertvector(__builtin_convertvector(mixed + 0.5f, Integer4), Bytes4);
                std::memcpy(p, &rounded, sizeof rounded);
            }
        }
    }

    // The separable Gaussian: across into the scratch buffer, then down, straight into bytes. The
    // margins are wider than the kernel and stay clear, so neither pass needs to clamp at the edges.
    const int spread = (radius + glowChunk - 1) / glowChunk;
    acrossTop_.assign(static_cast<std::size_t>(chunks), height);
    acrossBottom_.assign(static_cast<std::size_t>(chunks), 0);
    int acrossFirst = height, acrossLast = 0;
    for (int c = 0; c < chunks; ++c) {
        const std::size_t n = static_cast<std::size_t>(c);
        for (int d = std::max(c - spread, 0); d <= std::min(c + spread, chunks - 1); ++d) {
            acrossTop_[n] = std::min(acrossTop_[n], strokeTop_[static_cast<std::size_t>(d)]);
            acrossBottom_[n] = std::max(acrossBottom_[n], strokeBottom_[static_cast<std::size_t>(d)]);
        }
        acrossFirst = std::min(acrossFirst, acrossTop_[n]);
        acrossLast = std::max(acrossLast, acrossBottom_[n]);
    }
    const float* weights = blur.weights.data();
    const std::size_t rowFloats = static_cast<std::size_t>(width) * 4;
    constexpr std::size_t chunkFloats = glowChunk * 4;
    // Across into a ring of 2 x radius + 1 rows, and down out of it as soon as a row's neighbourhood
    // is there: the blurred-across rows stay in the cache. Each chunk of each ring row is cleared when
    // it held something and the row now in its place has nothing there.
    const auto [quantTop, quantBottom] = rows(bandTop - 1, bandBottom + 1);
    const int ringRows = 2 * radius + 1;
    const std::size_t ringFloats = static_cast<std::size_t>(ringRows) * rowFloats + chunkFloats;  // room past the end
    if (ring_.size() != ringFloats || ringFilled_.size() != static_cast<std::size_t>(ringRows * chunks)) {
        ring_.assign(ringFloats, 0.0f);
        ringFilled_.assign(static_cast<std::size_t>(ringRows * chunks), 0);
        zeroRow_.assign(rowFloats + chunkFloats, 0.0f);
    }
    auto ringRow = [&](int y) { return ring_.data() + static_cast<std::size_t>(y % ringRows) * rowFloats; };
    // Rows outside those blurred across this frame are clear.
    const int acrossStart = std::max(quantTop - radius, 0), acrossEnd = std::min(quantBottom + radius, height);
    for (int slot = 0; slot < ringRows; ++slot) {
        for (int c = 0; c < chunks; ++c) {
            std::uint8_t& filled = ringFilled_[static_cast<std::size_t>(slot * chunks + c)];
            if (!filled) continue;
            float* out = ring_.data() + static_cast<std::size_t>(slot) * rowFloats;
            std::fill(out + static_cast<std::size_t>(c) * chunkFloats,
                      out + std::min(static_cast<std::size_t>(c + 1) * chunkFloats, rowFloats), 0.0f);
            filled = 0;
        }
    }
    glowBytes_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    rowPointers_.resize(static_cast<std::size_t>(2 * radius + 1));
    const float** rowPointers = rowPointers_.data();
    const int passFirst = std::min(acrossStart, acrossFirst), passLast = std::max(acrossEnd, acrossLast);
    for (int y = passFirst; y < passLast; ++y) {
        // The row's strokes as floats, in a row that is clear outside them.
        std::uint8_t* strokes = strokes_.data() + static_cast<std::size_t>(y) * rowFloats;
        float* in = strokeRow_.data();
        for (int c = 0; c < chunks; ++c) {
            const std::size_t n = static_cast<std::size_t>(c);
            if (y < strokeTop_[n] || y >= strokeBottom_[n]) continue;
            for (std::size_t i = n * chunkFloats; i < std::min((n + 1) * chunkFloats, rowFloats); ++i) {
                in[i] = static_cast<float>(strokes[i]);
            }
        }
        float* __restrict out = ringRow(y);
        std::uint8_t* filled = ringFilled_.data() + static_cast<std::size_t>((y % ringRows) * chunks);
        for (int c = 0; c < chunks; ++c) {
            const std::size_t n = static_cast<std::size_t>(c);
            if (y < acrossTop_[n] || y >= acrossBottom_[n]) {
                if (filled[n]) {
                    std::fill(out + n * chunkFloats, out + std::min((n + 1) * chunkFloats, rowFloats), 0.0f);
                    filled[n] = 0;
                }
                continue;
            }
            const std::size_t from = std::max(n * glowChunk, static_cast<std::size_t>(radius));
            const std::size_t to = std::min((n + 1) * glowChunk, static_cast<std::size_t>(width - radius));
            blurAcross(in, out, from, to, weights, radius);
            filled[n] = 1;
        }
        for (int c = 0; c < chunks; ++c) {
            const std::size_t n = static_cast<std::size_t>(c);
            if (y < strokeTop_[n] || y >= strokeBottom_[n]) continue;
            std::fill(in + n * chunkFloats, in + std::min((n + 1) * chunkFloats, rowFloats), 0.0f);
            std::fill(strokes + n * chunkFloats, strokes + std::min((n + 1) * chunkFloats, rowFloats), std::uint8_t(0));
        }

        // Down, for the rows the scale-up reads, each chunk turned into premultiplied ARGB bytes as
        // the GL path's glow target holds them; the scale-up then runs in integers and skips empty
        // stretches.
        const int down = y - radius;
        if (down < quantTop || down >= quantBottom) continue;
        std::uint32_t* bytesRow = glowBytes_.data() + static_cast<std::size_t>(down) * static_cast<std::size_t>(width);
        for (int k = -radius; k <= radius; ++k) {
            const int source = down + k;
            rowPointers[k + radius] = source >= acrossStart && source < acrossEnd ? ringRow(source) : zeroRow_.data();
        }
        for (int c = 0; c < chunks; ++c) {
            const std::size_t n = static_cast<std::size_t>(c);
            const int begin = c * glowChunk, end = std::min(begin + glowChunk, width);
            if (down < acrossTop_[n] - radius || down >= acrossBottom_[n] + radius) {
                std::fill(bytesRow + begin, bytesRow + end, 0u);
                continue;
            }
            blurDownToBytes(rowPointers + radius, n * chunkFloats, static_cast<std::size_t>(end - begin), weights, radius,
                            bytesRow + begin);
        }
    }

    // Scaled up (bilinear, texel centres at half pixels, weights in sixteenths) over the canvas rows the
    // glow reached. Each glow row is widened once to the image's columns, in runs of `run` columns;
    // a run whose glow is empty in both rows an image row mixes is skipped.
    const double originX = canvas.x * scale, originY = canvas.y * scale;
    const float gs = static_cast<float>(glowScale_);
    auto [left, right] = centresWithin(originX, originX + canvas.width * scale);
    auto [first, last] = centresWithin(originY + (bandTop - margin) / glowScale_, originY + (bandBottom - margin) / glowScale_);
    left = std::max(left, clip.left());
    right = std::min(right, clip.right() + 1);
    first = std::max(first, clip.top());
    last = std::min(last, clip.bottom() + 1);
    if (left >= right || first >= last) return;
    constexpr int run = 16;
    const int columns = right - left;
    const int runs = (columns + run - 1) / run;
    column0_.resize(static_cast<std::size_t>(columns));
    column1_.resize(static_cast<std::size_t>(columns));
    columnWeight_.resize(static_cast<std::size_t>(columns));
    for (int i = 0; i < columns; ++i) {
        const float u = (static_cast<float>(left + i) + 0.5f - static_cast<float>(originX)) * gs + margin - 0.5f;
        const float floorU = std::floor(u);
        column0_[static_cast<std::size_t>(i)] = std::clamp(static_cast<int>(floorU), 0, width - 1);
        column1_[static_cast<std::size_t>(i)] = std::clamp(static_cast<int>(floorU) + 1, 0, width - 1);
        columnWeight_[static_cast<std::size_t>(i)] = static_cast<std::uint16_t>((u - floorU) * 16.0f + 0.5f);
    }
    // Per run: the four channels of each column, then its alpha four times over, so mixing and
    // compositing run channel by channel over flat arrays.
    const std::size_t wideSize = static_cast<std::size_t>(runs) * run * 8;
    upper_.assign(wideSize, 0);
    lower_.assign(wideSize, 0);
    upperFilled_.assign(static_cast<std::size_t>(runs), 0);
    lowerFilled_.assign(static_cast<std::size_t>(runs), 0);
    auto widen = [&](int glowRow, std::vector<std::uint16_t>& out, std::vector<std::uint8_t>& filled) {
        const std::uint32_t* glowRowBytes =
            glowBytes_.data() + static_cast<std::size_t>(glowRow) * static_cast<std::size_t>(width);
        for (int r = 0; r < runs; ++r) {
            const int begin = r * run, end = std::min(begin + run, columns);
            std::uint32_t any = 0;
            for (int g = column0_[static_cast<std::size_t>(begin)]; g <= column1_[static_cast<std::size_t>(end - 1)]; ++g) {
                any |= glowRowBytes[g];
            }
            std::uint16_t* wide = out.data() + static_cast<std::size_t>(begin) * 8;
            if (any == 0) {
                if (filled[static_cast<std::size_t>(r)]) std::fill(wide, wide + run * 8, std::uint16_t(0));
                filled[static_cast<std::size_t>(r)] = 0;
                continue;
            }
            filled[static_cast<std::size_t>(r)] = 1;
            for (int i = begin; i < end; ++i) {
                const std::size_t n = static_cast<std::size_t>(i);
                const std::uint32_t a = glowRowBytes[column0_[n]], b = glowRowBytes[column1_[n]];
                const std::uint32_t f = columnWeight_[n], keep = 16 - f;
                std::uint16_t* w = wide + static_cast<std::size_t>(i - begin) * 4;
                for (int c = 0; c < 4; ++c) {
                    w[c] = static_cast<std::uint16_t>(((a >> (8 * c)) & 0xFF) * keep + ((b >> (8 * c)) & 0xFF) * f);
                }
                for (int c = 0; c < 4; ++c) w[run * 4 + c] = w[3];
            }
        }
    };
    int upperRow = -1, lowerRow = -1;
    alignas(16) std::uint8_t mixed[run * 8];
    for (int py = first; py < last; ++py) {
        const float v = (static_cast<float>(py) + 0.5f - static_cast<float>(originY)) * gs + margin - 0.5f;
        const float floorV = std::floor(v);
        const int row0 = std::clamp(static_cast<int>(floorV), 0, height - 1);
        const int row1 = std::clamp(static_cast<int>(floorV) + 1, 0, height - 1);
        const auto f = static_cast<std::uint16_t>((v - floorV) * 16.0f + 0.5f);
        const auto keep = static_cast<std::uint16_t>(16 - f);
        if (row0 != upperRow) {
            if (row0 == lowerRow) {
                std::swap(upper_, lower_);
                std::swap(upperFilled_, lowerFilled_);
            } else {
                widen(row0, upper_, upperFilled_);
            }
            upperRow = row0;
            lowerRow = -1;
        }
        if (row1 != lowerRow) {
            widen(row1, lower_, lowerFilled_);
            lowerRow = row1;
        }
        auto* row = reinterpret_cast<std::uint32_t*>(image.scanLine(py)) + left;
        for (int r = 0; r < runs; ++r) {
            if (!(upperFilled_[static_cast<std::size_t>(r)] | lowerFilled_[static_cast<std::size_t>(r)])) continue;
            const int begin = r * run, count = std::min(run, columns - begin);
            const std::uint16_t* __restrict upper = upper_.data() + static_cast<std::size_t>(begin) * 8;
            const std::uint16_t* __restrict lower = lower_.data() + static_cast<std::size_t>(begin) * 8;
            for (int j = 0; j < run * 8; ++j) {
                // At most 255 x 16 x 16: sixteen bits suffice, so the compiler can use 16-bit lanes.
                const auto sum = static_cast<std::uint16_t>(static_cast<std::uint16_t>(upper[j] * keep) +
                                                            static_cast<std::uint16_t>(lower[j] * f) + 128);
                mixed[j] = static_cast<std::uint8_t>(sum >> 8);
            }
            // Premultiplied source-over, channel by channel: source + destination x (255 - alpha) / 255,
            // rounded; each channel stays within a byte because premultiplied colour never exceeds
            // its alpha.
            auto* __restrict out = reinterpret_cast<std::uint8_t*>(row + begin);
            for (int j = 0; j < count * 4; ++j) {
                const auto scaled = static_cast<std::uint16_t>(out[j] * (255 - mixed[run * 4 + j]) + 128);
                out[j] = static_cast<std::uint8_t>(mixed[j] + (static_cast<std::uint16_t>(scaled + (scaled >> 8)) >> 8));
            }
        }
    }
}

void WaveRasterRenderer::ensureSprites(double barWidth, double dashOn, double period, double length) {
    if (sprites_.barWidth == barWidth && sprites_.dashOn == dashOn && sprites_.period == period &&
        sprites_.length >= length) {
        return;
    }
    DashSprites& s = sprites_;
    s.barWidth = barWidth;
    s.dashOn = dashOn;
    s.period = period;
    s.length = length;
    s.columnOffset = static_cast<int>(std::ceil(barWidth / 2 + 0.5));
    s.columns = 2 * s.columnOffset + 2;
    s.rowOffset = s.columnOffset + 1;
    s.rows = static_cast<int>(std::ceil(length)) + 2 * s.rowOffset + 2;
    const int phases = DashSprites::phases;
    s.coverage.assign(static_cast<std::size_t>(phases * phases * s.rows * s.columns), 0);
    const float w = static_cast<float>(barWidth), on = static_cast<float>(dashOn), p = static_cast<float>(period);
    for (int yPhase = 0; yPhase < phases; ++yPhase) {
        for (int xPhase = 0; xPhase < phases; ++xPhase) {
            auto* sprite = const_cast<std::uint8_t*>(s.sprite(xPhase, yPhase));
            for (int row = 0; row < s.rows; ++row) {
                const float along = static_cast<float>(row - s.rowOffset) + 0.5f - static_cast<float>(yPhase) / phases;
                for (int column = 0; column < s.columns; ++column) {
                    const float across =
                        static_cast<float>(column - s.columnOffset) + 0.5f - static_cast<float>(xPhase) / phases;
                    sprite[row * s.columns + column] =
                        static_cast<std::uint8_t>(toByte(dashCoverage(across, along, w, on, p, 0, -1)));
                }
            }
        }
    }
}

void WaveRasterRenderer::drawBars(const WaveFrame& frame, const Target& image, const QRect& clip, double scale) {
    const WaveLayout& layout = frame.layout;
    const RectF& canvas = frame.composition.waveform;
    const float w = static_cast<float>(layout.barWidth * scale);
    const float on = static_cast<float>(layout.dashOn * scale);
    const float period = on + static_cast<float>(layout.dashOff * scale);
    ensureSprites(w, on, period, 2 * layout.maxHalfHeight * scale);
    const DashSprites& sprites = sprites_;
    const int phases = DashSprites::phases;
    const float midY = static_cast<float>((canvas.y + layout.midY) * scale);
    const float dotRadius = static_cast<float>(layout.dotDiameter * 0.5 * scale);
    const float sparkleRadius = static_cast<float>(layout.sparkleDiameter * 0.5 * scale);
    const int clipLeft = clip.left(), clipRight = clip.right() + 1, clipTop = clip.top(), clipBottom = clip.bottom() + 1;

    // A filled circle, antialiased like the GL path's dots.
    auto disc = [&](float cx, float cy, float r, const Colour& colour, float opacity) {
        const int left = std::max(static_cast<int>(std::floor(cx - r - 1)), clipLeft);
        const int right = std::min(static_cast<int>(std::ceil(cx + r + 1)), clipRight);
        const int top = std::max(static_cast<int>(std::floor(cy - r - 1)), clipTop);
        const int bottom = std::min(static_cast<int>(std::ceil(cy + r + 1)), clipBottom);
        for (int py = top; py < bottom; ++py) {
            auto* row = reinterpret_cast<std::uint32_t*>(image.scanLine(py));
            const float dy = static_cast<float>(py) + 0.5f - cy;
            for (int px = left; px < right; ++px) {
                const float dx = static_cast<float>(px) + 0.5f - cx;
                const float a = opacity * coverage(std::sqrt(dx * dx + dy * dy) - r, 2 * r);
                if (a > 0) blend(row[px], colour, a);
            }
        }
    };

    for (const WaveBar& bar : layout.bars) {
        const Colour colour = bytes(bar.color);
        const float intensity = static_cast<float>(bar.intensity);
        const double x = (canvas.x + bar.x) * scale;
        const double upperEnd = midY - bar.halfHeight * scale;
        const float h = static_cast<float>(bar.halfHeight * scale);
        const float pathLength = 2 * h;
        const float strokeOpacity = static_cast<float>(WaveOpacity::stroke) * intensity;
        // A sprite coverage c (0...255) gives the alpha (c x opacityScale) / 2^16 in 256ths.
        const auto opacityScale =
            static_cast<std::uint32_t>(std::clamp(strokeOpacity, 0.0f, 1.0f) * (256.0f * 65536.0f / 255.0f) + 0.5f);
        const auto redBlue = (static_cast<std::uint32_t>(colour.red) << 16) | static_cast<std::uint32_t>(colour.blue);
        const auto alphaGreen = (255u << 16) | static_cast<std::uint32_t>(colour.green);

        // The sprite at the nearest sixteenth of a pixel.
        const long long xSteps = std::llround(x * phases);
        const long long ySteps = std::llround(upperEnd * phases);
        const int xPhase = static_cast<int>(((xSteps % phases) + phases) % phases);
        const int yPhase = static_cast<int>(((ySteps % phases) + phases) % phases);
        const int baseX = static_cast<int>((xSteps - xPhase) / phases) - sprites.columnOffset;
        const int baseY = static_cast<int>((ySteps - yPhase) / phases) - sprites.rowOffset;
        const float spriteTop = static_cast<float>(ySteps) / phases;
        const std::uint8_t* sprite = sprites.sprite(xPhase, yPhase);

        // Rows before the last dash come from the sprite; the last dash, which the bar's end may cut
        // short, is worked out here.
        const float lastDash = std::ceil(pathLength / period) - 1;
        const float spriteEnd = lastDash >= 1 ? lastDash * period - 0.5f * (period - on) : -1e9f;
        const int endRow = static_cast<int>(std::ceil(upperEnd + pathLength + 0.5 * w + 1));
        const int left = std::max(baseX, clipLeft);
        const int right = std::min(baseX + sprites.columns, clipRight);
        const int top = std::max(baseY, clipTop);
        const int bottom = std::min(endRow, clipBottom);
        for (int py = top; py < bottom; ++py) {
            auto* row = reinterpret_cast<std::uint32_t*>(image.scanLine(py));
            const int spriteRow = py - baseY;
            const float along = static_cast<float>(py) + 0.5f - spriteTop;
            if (along < spriteEnd && spriteRow < sprites.rows) {
                const std::uint8_t* cover = sprite + spriteRow * sprites.columns;
                for (int px = left; px < right; ++px) {
                    const std::uint32_t c = cover[px - baseX];
                    if (c == 0) continue;
                    // Source-over in integers, alpha in 256ths, two channels at a time.
                    const std::uint32_t a = (c * opacityScale + 32768) >> 16, keep = 256 - a;
                    const std::uint32_t d = row[px];
                    const std::uint32_t rb = ((redBlue * a + (d & 0xFF00FF) * keep + 0x800080) >> 8) & 0xFF00FF;
                    const std::uint32_t ag = (alphaGreen * a + ((d >> 8) & 0xFF00FF) * keep + 0x800080) & 0xFF00FF00;
                    row[px] = rb | ag;
                }
            } else {
                const float trueAlong = static_cast<float>(py + 0.5 - upperEnd);
                for (int px = left; px < right; ++px) {
                    const float across = static_cast<float>(px + 0.5 - x);
                    const float c = dashCoverage(across, trueAlong, w, on, period, pathLength, lastDash);
                    if (c > 0) blend(row[px], colour, strokeOpacity * c);
                }
            }
        }

        disc(static_cast<float>(x), midY, dotRadius, colour,
             std::min(intensity + static_cast<float>(WaveOpacity::dotBoost), 1.0f));
        if (bar.sparkleReach) {
            const float reach = static_cast<float>(*bar.sparkleReach * scale);
            const float opacity = static_cast<float>(WaveOpacity::sparkle) * intensity;
            disc(static_cast<float>(x), midY - reach, sparkleRadius, colour, opacity);
            disc(static_cast<float>(x), midY + reach, sparkleRadius, colour, opacity);
        }
    }
}

}  // namespace lorvane
