#pragma once
// GLSL for the wave. Every shape is drawn analytically: a fragment's coverage comes from its signed
// distance to the shape in device pixels, so edges are antialiased at any device pixel ratio without
// multisampling. Colours are premultiplied; blending is source-over (ONE, ONE_MINUS_SRC_ALPHA).
// The version line is prepended at run time (GLSL 3.30 core or GLSL ES 3.00).

namespace lorvane::shaders {

// Coverage of a pixel by a band of the given width whose edge lies `distance` away (negative inside):
// exact for straight edges, and for bands thinner than a pixel it never exceeds their width.
inline constexpr const char* coverage = R"(
float coverage(float distance, float width) {
    return clamp(min(0.5 - distance, width), 0.0, 1.0);
}
)";

// One quad per bar, centred on (x, midY) and tall enough for the bar, its caps, its dot and its
// sparkles (bars) or for the wide glow stroke (glow).
inline constexpr const char* barVertex = R"(
layout(location = 0) in vec2 corner;
layout(location = 1) in vec4 bar;        // x, half-height, sparkle reach (0: none), intensity
layout(location = 2) in vec4 barColor;   // bar, dot and sparkle colour
layout(location = 3) in vec4 glowColor;
uniform vec2 targetSize;    // pixels
uniform vec2 origin;        // the canvas's top-left corner in the target, pixels
uniform float scale;        // pixels per point
uniform float midY;         // points
uniform float capExtent;    // points beyond the half-height the stroke reaches (half its width)
uniform float sparkleRadius;
uniform float quadHalfWidth;  // pixels
out vec2 local;             // pixels from the bar's centre, y downward
flat out vec4 instance;
flat out vec4 color;
uniform bool glowPass;
void main() {
    float reach = bar.z > 0.0 ? bar.z + sparkleRadius : 0.0;
    float halfHeight = max(bar.y + capExtent, reach) * scale + 1.5;
    local = corner * vec2(quadHalfWidth, halfHeight);
    vec2 p = origin + vec2(bar.x, midY) * scale + local;
    gl_Position = vec4(p.x / targetSize.x * 2.0 - 1.0, 1.0 - p.y / targetSize.y * 2.0, 0.0, 1.0);
    instance = bar;
    color = glowPass ? glowColor : barColor;
}
)";

// A chain of round-capped dashes [dashOn, dashOff] from the upper end downward, a dot on the centre
// line and, for some bars, a sparkle dot beyond each tip; composited in that order.
inline constexpr const char* barFragment = R"(
in vec2 local;
flat in vec4 instance;
flat in vec4 color;
uniform float scale;
uniform float barWidth;
uniform float dashOn;
uniform float dashOff;
uniform float dotRadius;
uniform float sparkleRadius;
uniform vec3 opacity;       // stroke factor, dot boost, sparkle factor
out vec4 fragment;
void main() {
    float w = barWidth * scale;
    float h = instance.y * scale;
    float on = dashOn * scale;
    float period = on + dashOff * scale;
    float pathLength = 2.0 * h;
    float along = local.y + h;  // distance from the upper end along the path
    // Dashes never overlap (the gap exceeds the cap radii), so only the dash whose half-gap-extended
    // interval holds this point matters.
    float lastDash = ceil(pathLength / period) - 1.0;
    float j = clamp(floor((along + 0.5 * (period - on)) / period), 0.0, lastDash);
    float start = j * period;
    float end = min(start + on, pathLength);
    float outside = max(max(start - along, along - end), 0.0);
    float stroke = length(vec2(local.x, outside)) - 0.5 * w;
    float intensity = instance.w;
    float a = opacity.x * intensity * coverage(stroke, w);
    float dotR = dotRadius * scale;
    float dotA = min(intensity + opacity.y, 1.0) * coverage(length(local) - dotR, 2.0 * dotR);
    a = dotA + a * (1.0 - dotA);
    if (instance.z > 0.0) {
        float sparkR = sparkleRadius * scale;
        float sparkle = length(vec2(local.x, abs(local.y) - instance.z * scale)) - sparkR;
        float sparkA = opacity.z * intensity * coverage(sparkle, 2.0 * sparkR);
        a = sparkA + a * (1.0 - sparkA);
    }
    fragment = vec4(color.rgb * a, a);
}
)";

// The glow stroke: a solid round-capped segment, before blurring.
inline constexpr const char* glowFragment = R"(
in vec2 local;
flat in vec4 instance;
flat in vec4 color;
uniform float scale;
uniform float glowWidth;
uniform float glowOpacity;
out vec4 fragment;
void main() {
    float w = glowWidth * scale;
    float h = instance.y * scale;
    float outside = max(abs(local.y) - h, 0.0);
    float a = glowOpacity * instance.w * coverage(length(vec2(local.x, outside)) - 0.5 * w, w);
    fragment = vec4(color.rgb * a, a);
}
)";

// A quad given in target pixels (y downward).
inline constexpr const char* rectVertex = R"(
layout(location = 0) in vec2 corner;
uniform vec2 targetSize;
uniform vec4 rect;          // x, y, width, height in pixels
out vec2 pixel;             // pixels, y downward
void main() {
    pixel = rect.xy + (corner * 0.5 + 0.5) * rect.zw;
    gl_Position = vec4(pixel.x / targetSize.x * 2.0 - 1.0, 1.0 - pixel.y / targetSize.y * 2.0, 0.0, 1.0);
}
)";

// The baseline: a round-capped horizontal stroke with a colour gradient of up to four even stops.
inline constexpr const char* baselineFragment = R"(
in vec2 pixel;
uniform vec2 start;         // pixels
uniform float lineLength;   // pixels
uniform float lineWidth;    // pixels
uniform int stopCount;
uniform vec4 stops[4];      // straight colours with alpha
out vec4 fragment;
void main() {
    vec2 d = pixel - start;
    float outside = max(max(-d.x, d.x - lineLength), 0.0);
    float a = coverage(length(vec2(outside, d.y)) - 0.5 * lineWidth, lineWidth);
    vec4 c = stops[0];
    if (stopCount > 1) {
        float position = clamp(d.x / lineLength, 0.0, 1.0) * float(stopCount - 1);
        int lower = min(int(floor(position)), stopCount - 2);
        c = mix(stops[lower], stops[lower + 1], position - float(lower));
    }
    a *= c.a;
    fragment = vec4(c.rgb * a, a);
}
)";

// One direction of the separable Gaussian, with paired taps read through bilinear filtering. The taps
// are spliced in as constants (TAPS, one line per tap pair): Mesa's software rasteriser runs a loop
// over uniform arrays an order of magnitude slower than straight-line code.
inline constexpr const char* blurFragment = R"(
in vec2 pixel;
uniform sampler2D source;
uniform vec2 sourceSize;
uniform vec2 direction;     // (1, 0) or (0, 1)
out vec4 fragment;
#define TAP(offset, weight) sum += (texture(source, uv + step * offset) + texture(source, uv - step * offset)) * weight;
void main() {
    vec2 uv = gl_FragCoord.xy / sourceSize;
    vec2 step = direction / sourceSize;
    vec4 sum = vec4(0.0);
    TAPS
    fragment = sum;
}
)";

// The blurred glow laid over the target, scaled up from its own resolution.
inline constexpr const char* compositeFragment = R"(
in vec2 pixel;
uniform sampler2D glow;
uniform vec2 glowSize;      // pixels of the glow texture
uniform vec2 glowOrigin;    // the target pixel at the glow texture's top-left corner
uniform float glowScale;    // glow pixels per target pixel
out vec4 fragment;
void main() {
    vec2 g = (pixel - glowOrigin) * glowScale;
    fragment = texture(glow, vec2(g.x / glowSize.x, 1.0 - g.y / glowSize.y));
}
)";

}  // namespace lorvane::shaders
