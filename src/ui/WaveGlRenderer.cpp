#include "ui/WaveGlRenderer.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/Logging.h"
#include "ui/WaveShaders.h"

namespace lorvane {

namespace {

std::uint8_t toByte(double component) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(component, 0.0, 1.0) * 255.0));
}

std::array<std::uint8_t, 4> toBytes(const RgbaColor& c) {
    return {toByte(c.red), toByte(c.green), toByte(c.blue), toByte(c.alpha)};
}

}  // namespace

// Gaussian taps for one direction, paired so that each fetch between two texels reads both.
WaveGlRenderer::BlurKernel WaveGlRenderer::gaussianKernel(double sigma) {
    BlurKernel kernel;
    kernel.sigma = sigma;
    kernel.radius = std::max(1, static_cast<int>(std::ceil(sigma * 3)));
    const int radius = kernel.radius;
    std::vector<double> w(static_cast<std::size_t>(radius) + 2, 0.0);
    double total = 0;
    for (int i = 0; i <= radius; ++i) {
        w[static_cast<std::size_t>(i)] = std::exp(-(i * i) / (2 * sigma * sigma));
        total += i == 0 ? w[0] : 2 * w[static_cast<std::size_t>(i)];
    }
    kernel.weights.push_back(w[0] / total);
    kernel.offsets.push_back(0);
    for (int i = 1; i <= radius; i += 2) {
        const double a = w[static_cast<std::size_t>(i)] / total;
        const double b = w[static_cast<std::size_t>(i + 1)] / total;
        kernel.weights.push_back(a + b);
        kernel.offsets.push_back((i * a + (i + 1) * b) / (a + b));
    }
    return kernel;
}

namespace {
}  // namespace

RgbaColor sourceOver(const RgbaColor& over, const RgbaColor& under) {
    const double keep = 1 - over.alpha;
    return {over.red + under.red * keep, over.green + under.green * keep, over.blue + under.blue * keep,
            over.alpha + under.alpha * keep};
}

RgbaColor premultiplied(const RgbaColor& c) { return {c.red * c.alpha, c.green * c.alpha, c.blue * c.alpha, c.alpha}; }

struct WaveGlRenderer::Program {
    QOpenGLExtraFunctions* gl = nullptr;
    GLuint id = 0;
    std::vector<std::pair<const char*, GLint>> locations;

    GLint uniform(const char* name) {
        for (const auto& [key, location] : locations) {
            if (key == name || std::strcmp(key, name) == 0) return location;
        }
        const GLint location = gl->glGetUniformLocation(id, name);
        locations.emplace_back(name, location);
        return location;
    }
    void set(const char* name, float value) { gl->glUniform1f(uniform(name), value); }
    void set(const char* name, int value) { gl->glUniform1i(uniform(name), value); }
    void set(const char* name, float x, float y) { gl->glUniform2f(uniform(name), x, y); }
    void set(const char* name, float x, float y, float z) { gl->glUniform3f(uniform(name), x, y, z); }
    void set(const char* name, float x, float y, float z, float w) { gl->glUniform4f(uniform(name), x, y, z, w); }
};

struct WaveGlRenderer::GlowTarget {
    GLuint texture = 0;
    GLuint framebuffer = 0;
};

WaveGlRenderer::WaveGlRenderer() = default;

WaveGlRenderer::~WaveGlRenderer() {
    if (gl_ && QOpenGLContext::currentContext()) release();
}

static GLuint compile(QOpenGLExtraFunctions* gl, GLenum type, const std::string& source) {
    const GLuint shader = gl->glCreateShader(type);
    const char* text = source.c_str();
    gl->glShaderSource(shader, 1, &text, nullptr);
    gl->glCompileShader(shader);
    GLint ok = 0;
    gl->glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (!ok) {
        char log[2048] = {};
        gl->glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        qCWarning(lcOverlay, "wave shader failed to compile: %s", log);
        gl->glDeleteShader(shader);
        return 0;
    }
    return shader;
}

bool WaveGlRenderer::initialize(QOpenGLContext& context) {
    if (gl_) return true;
    const QSurfaceFormat format = context.format();
    es_ = context.isOpenGLES();
    const bool capable = es_ ? format.majorVersion() >= 3 : (format.version() >= qMakePair(3, 3));
    if (!capable) return false;
    QOpenGLExtraFunctions* gl = context.extraFunctions();
    gl_ = gl;
    header_ = es_ ? "#version 300 es\nprecision highp float;\nprecision highp int;\n" : "#version 330 core\n";
    auto build = [this](const char* vertex, const char* fragment) { return buildProgram(vertex, fragment); };

    barProgram_ = build(shaders::barVertex, shaders::barFragment);
    glowProgram_ = build(shaders::barVertex, shaders::glowFragment);
    baselineProgram_ = build(shaders::rectVertex, shaders::baselineFragment);
    compositeProgram_ = build(shaders::rectVertex, shaders::compositeFragment);
    if (!barProgram_ || !glowProgram_ || !baselineProgram_ || !compositeProgram_ ||
        !blurProgram(gaussianKernel(2.0))) {
        release();
        return false;
    }

    static const float corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
    gl->glGenBuffers(1, &quadBuffer_);
    gl->glBindBuffer(GL_ARRAY_BUFFER, quadBuffer_);
    gl->glBufferData(GL_ARRAY_BUFFER, sizeof corners, corners, GL_STATIC_DRAW);
    gl->glGenBuffers(1, &instanceBuffer_);

    gl->glGenVertexArrays(1, &rectArray_);
    gl->glBindVertexArray(rectArray_);
    gl->glBindBuffer(GL_ARRAY_BUFFER, quadBuffer_);
    gl->glEnableVertexAttribArray(0);
    gl->glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);

    gl->glGenVertexArrays(1, &barArray_);
    gl->glBindVertexArray(barArray_);
    gl->glBindBuffer(GL_ARRAY_BUFFER, quadBuffer_);
    gl->glEnableVertexAttribArray(0);
    gl->glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    gl->glBindBuffer(GL_ARRAY_BUFFER, instanceBuffer_);
    const GLsizei stride = sizeof(BarInstance);
    gl->glEnableVertexAttribArray(1);
    gl->glVertexAttribPointer(1, 4, GL_FLOAT, GL_FALSE, stride, reinterpret_cast<void*>(offsetof(BarInstance, x)));
    gl->glVertexAttribDivisor(1, 1);
    gl->glEnableVertexAttribArray(2);
    gl->glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride,
                              reinterpret_cast<void*>(offsetof(BarInstance, color)));
    gl->glVertexAttribDivisor(2, 1);
    gl->glEnableVertexAttribArray(3);
    gl->glVertexAttribPointer(3, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride,
                              reinterpret_cast<void*>(offsetof(BarInstance, glowColor)));
    gl->glVertexAttribDivisor(3, 1);
    gl->glBindVertexArray(0);
    return true;
}

std::unique_ptr<WaveGlRenderer::Program> WaveGlRenderer::buildProgram(const std::string& vertex,
                                                                      const std::string& fragment) {
    QOpenGLExtraFunctions* gl = gl_;
    const GLuint vs = compile(gl, GL_VERTEX_SHADER, header_ + vertex);
    const GLuint fs = compile(gl, GL_FRAGMENT_SHADER, header_ + shaders::coverage + fragment);
    if (!vs || !fs) {
        if (vs) gl->glDeleteShader(vs);
        if (fs) gl->glDeleteShader(fs);
        return nullptr;
    }
    auto program = std::make_unique<Program>();
    program->gl = gl;
    program->id = gl->glCreateProgram();
    gl->glAttachShader(program->id, vs);
    gl->glAttachShader(program->id, fs);
    gl->glLinkProgram(program->id);
    gl->glDeleteShader(vs);
    gl->glDeleteShader(fs);
    GLint ok = 0;
    gl->glGetProgramiv(program->id, GL_LINK_STATUS, &ok);
    if (!ok) {
        char log[2048] = {};
        gl->glGetProgramInfoLog(program->id, sizeof log, nullptr, log);
        qCWarning(lcOverlay, "wave shader failed to link: %s", log);
        gl->glDeleteProgram(program->id);
        return nullptr;
    }
    return program;
}

WaveGlRenderer::Program* WaveGlRenderer::blurProgram(const BlurKernel& kernel) {
    // One program per kernel; a window sees one or two (compact and fog) at its pixel ratio.
    const long long key = std::lround(kernel.sigma * 1000);
    if (const auto found = blurPrograms_.find(key); found != blurPrograms_.end()) return found->second.get();
    char line[128];
    std::snprintf(line, sizeof line, "sum += texture(source, uv) * %.9g;\n", kernel.weights[0]);
    std::string taps = line;
    for (std::size_t i = 1; i < kernel.weights.size(); ++i) {
        std::snprintf(line, sizeof line, "    TAP(%.9g, %.9g)\n", kernel.offsets[i], kernel.weights[i]);
        taps += line;
    }
    std::string fragment = shaders::blurFragment;
    fragment.replace(fragment.find("TAPS"), 4, taps);
    auto program = buildProgram(shaders::rectVertex, fragment);
    Program* result = program.get();
    blurPrograms_.emplace(key, std::move(program));
    return result;
}

void WaveGlRenderer::release() {
    if (!gl_) return;
    for (auto* program : {&barProgram_, &glowProgram_, &baselineProgram_, &compositeProgram_}) {
        if (*program) gl_->glDeleteProgram((*program)->id);
        program->reset();
    }
    for (auto& [key, program] : blurPrograms_) {
        if (program) gl_->glDeleteProgram(program->id);
    }
    blurPrograms_.clear();
    for (auto& target : glow_) {
        if (!target) continue;
        gl_->glDeleteFramebuffers(1, &target->framebuffer);
        gl_->glDeleteTextures(1, &target->texture);
        target.reset();
    }
    glowSize_ = {};
    gl_->glDeleteBuffers(1, &quadBuffer_);
    gl_->glDeleteBuffers(1, &instanceBuffer_);
    gl_->glDeleteVertexArrays(1, &barArray_);
    gl_->glDeleteVertexArrays(1, &rectArray_);
    quadBuffer_ = instanceBuffer_ = barArray_ = rectArray_ = 0;
    instanceCapacity_ = 0;
    gl_ = nullptr;
}

void WaveGlRenderer::packBars(const WaveLayout& layout, std::vector<BarInstance>& out) {
    out.resize(layout.bars.size());
    for (std::size_t i = 0; i < layout.bars.size(); ++i) {
        const WaveBar& bar = layout.bars[i];
        out[i] = {static_cast<float>(bar.x),
                  static_cast<float>(bar.halfHeight),
                  bar.sparkleReach ? static_cast<float>(*bar.sparkleReach) : 0.0f,
                  static_cast<float>(bar.intensity),
                  toBytes(bar.color),
                  toBytes(bar.glowColor)};
    }
}

void WaveGlRenderer::beginFrame(const WaveTarget& target, const RgbaColor& fill) {
    if (!gl_) return;
    target_ = target;
    gl_->glBindFramebuffer(GL_FRAMEBUFFER, target.framebuffer);
    gl_->glViewport(0, 0, target.pixelSize.width(), target.pixelSize.height());
    gl_->glDisable(GL_DEPTH_TEST);
    gl_->glDisable(GL_CULL_FACE);
    gl_->glDisable(GL_SCISSOR_TEST);
    gl_->glClearColor(static_cast<float>(fill.red), static_cast<float>(fill.green), static_cast<float>(fill.blue),
                      static_cast<float>(fill.alpha));
    gl_->glClear(GL_COLOR_BUFFER_BIT);
    lastUploadBytes_ = 0;
}

void WaveGlRenderer::setScissor(const RectF& canvas) {
    const double scale = target_.devicePixelRatio;
    const int left = static_cast<int>(std::floor(canvas.left() * scale));
    const int top = static_cast<int>(std::floor(canvas.top() * scale));
    const int right = static_cast<int>(std::ceil(canvas.right() * scale));
    const int bottom = static_cast<int>(std::ceil(canvas.bottom() * scale));
    gl_->glEnable(GL_SCISSOR_TEST);
    gl_->glScissor(left, target_.pixelSize.height() - bottom, right - left, bottom - top);
}

void WaveGlRenderer::drawWave(const WaveLayout& layout, const RectF& canvas) {
    if (!gl_ || layout.bars.empty()) return;
    packBars(layout, instances_);
    const std::size_t bytes = instances_.size() * sizeof(BarInstance);
    gl_->glBindBuffer(GL_ARRAY_BUFFER, instanceBuffer_);
    if (bytes > instanceCapacity_) {
        gl_->glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(bytes), instances_.data(), GL_STREAM_DRAW);
        instanceCapacity_ = bytes;
    } else {
        // Orphan the old storage so the driver need not wait for the previous frame.
        gl_->glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(instanceCapacity_), nullptr, GL_STREAM_DRAW);
        gl_->glBufferSubData(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(bytes), instances_.data());
    }
    lastUploadBytes_ += bytes;

    drawGlow(layout, canvas);

    gl_->glBindFramebuffer(GL_FRAMEBUFFER, target_.framebuffer);
    gl_->glViewport(0, 0, target_.pixelSize.width(), target_.pixelSize.height());
    gl_->glEnable(GL_BLEND);
    gl_->glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    setScissor(canvas);

    drawBaseline(layout, canvas);

    // The blurred glow, under the bars.
    const float scale = static_cast<float>(target_.devicePixelRatio);
    const float glowScale = static_cast<float>(glowScaleUsed_);
    Program& composite = *compositeProgram_;
    gl_->glUseProgram(composite.id);
    gl_->glActiveTexture(GL_TEXTURE0);
    gl_->glBindTexture(GL_TEXTURE_2D, glow_[0]->texture);
    composite.set("glow", 0);
    composite.set("targetSize", static_cast<float>(target_.pixelSize.width()),
                  static_cast<float>(target_.pixelSize.height()));
    composite.set("glowSize", static_cast<float>(glowSize_.width()), static_cast<float>(glowSize_.height()));
    composite.set("glowOrigin", static_cast<float>(canvas.x * scale) - glowMargin_ / glowScale,
                  static_cast<float>(canvas.y * scale) - glowMargin_ / glowScale);
    composite.set("glowScale", glowScale);
    // Only the rows the glow reached this frame.
    const float bandTop = static_cast<float>(canvas.y * scale) + (glowBandTop_ - glowMargin_) / glowScale;
    const float bandBottom = static_cast<float>(canvas.y * scale) + (glowBandBottom_ - glowMargin_) / glowScale;
    composite.set("rect", static_cast<float>(canvas.x * scale), bandTop, static_cast<float>(canvas.width * scale),
                  bandBottom - bandTop);
    gl_->glBindVertexArray(rectArray_);
    gl_->glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);

    drawBars(layout, false, target_, static_cast<float>(canvas.x * scale), static_cast<float>(canvas.y * scale), scale);

    gl_->glDisable(GL_SCISSOR_TEST);
    gl_->glBindVertexArray(0);
}

void WaveGlRenderer::drawBaseline(const WaveLayout& layout, const RectF& canvas) {
    const float scale = static_cast<float>(target_.devicePixelRatio);
    const float lineWidth = static_cast<float>(layout.baselineWidth) * scale;
    const float x0 = static_cast<float>(canvas.x) * scale;
    const float y = static_cast<float>(canvas.y + layout.midY) * scale;
    const float length = static_cast<float>(layout.canvas.width) * scale;
    Program& program = *baselineProgram_;
    gl_->glUseProgram(program.id);
    program.set("targetSize", static_cast<float>(target_.pixelSize.width()),
                static_cast<float>(target_.pixelSize.height()));
    const float pad = lineWidth * 0.5f + 1.5f;
    program.set("rect", x0 - pad, y - pad, length + 2 * pad, 2 * pad);
    program.set("start", x0, y);
    program.set("lineLength", length);
    program.set("lineWidth", lineWidth);
    const int count = static_cast<int>(std::min<std::size_t>(layout.baselineStops.size(), 4));
    program.set("stopCount", count);
    float stops[16] = {};
    for (int k = 0; k < count; ++k) {
        const RgbaColor& c = layout.baselineStops[static_cast<std::size_t>(k)].color;
        stops[4 * k + 0] = static_cast<float>(c.red);
        stops[4 * k + 1] = static_cast<float>(c.green);
        stops[4 * k + 2] = static_cast<float>(c.blue);
        stops[4 * k + 3] = static_cast<float>(c.alpha);
    }
    gl_->glUniform4fv(program.uniform("stops"), 4, stops);
    gl_->glBindVertexArray(rectArray_);
    gl_->glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

void WaveGlRenderer::drawBars(const WaveLayout& layout, bool glowPass, const WaveTarget& target, float originX,
                              float originY, float scale) {
    Program& program = glowPass ? *glowProgram_ : *barProgram_;
    gl_->glUseProgram(program.id);
    program.set("targetSize", static_cast<float>(target.pixelSize.width()),
                static_cast<float>(target.pixelSize.height()));
    program.set("origin", originX, originY);
    program.set("scale", scale);
    program.set("midY", static_cast<float>(layout.midY));
    program.set("glowPass", glowPass ? 1 : 0);
    const float w = static_cast<float>(layout.barWidth);
    const float sparkleRadius = static_cast<float>(layout.sparkleDiameter * 0.5);
    program.set("sparkleRadius", sparkleRadius);
    if (glowPass) {
        const float glowWidth = static_cast<float>(layout.glowLineWidth);
        program.set("capExtent", glowWidth * 0.5f);
        program.set("quadHalfWidth", glowWidth * 0.5f * scale + 1.5f);
        program.set("glowWidth", glowWidth);
        program.set("glowOpacity", static_cast<float>(WaveOpacity::glow));
    } else {
        const float dotRadius = static_cast<float>(layout.dotDiameter * 0.5);
        program.set("capExtent", w * 0.5f);
        program.set("quadHalfWidth", std::max({w * 0.5f, dotRadius, sparkleRadius}) * scale + 1.5f);
        program.set("barWidth", w);
        program.set("dashOn", static_cast<float>(layout.dashOn));
        program.set("dashOff", static_cast<float>(layout.dashOff));
        program.set("dotRadius", dotRadius);
        program.set("opacity", static_cast<float>(WaveOpacity::stroke), static_cast<float>(WaveOpacity::dotBoost),
                    static_cast<float>(WaveOpacity::sparkle));
    }
    gl_->glBindVertexArray(barArray_);
    gl_->glDrawArraysInstanced(GL_TRIANGLE_STRIP, 0, 4, static_cast<GLsizei>(layout.bars.size()));
}

void WaveGlRenderer::ensureGlowTargets(QSize size) {
    if (size == glowSize_ && glow_[0]) return;
    for (auto& target : glow_) {
        if (!target) {
            target = std::make_unique<GlowTarget>();
            gl_->glGenTextures(1, &target->texture);
            gl_->glGenFramebuffers(1, &target->framebuffer);
        }
        gl_->glBindTexture(GL_TEXTURE_2D, target->texture);
        gl_->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, size.width(), size.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE,
                          nullptr);
        gl_->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        gl_->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        gl_->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        gl_->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        gl_->glBindFramebuffer(GL_FRAMEBUFFER, target->framebuffer);
        gl_->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target->texture, 0);
    }
    glowSize_ = size;
}

void WaveGlRenderer::drawGlow(const WaveLayout& layout, const RectF& canvas) {
    const double pixelRatio = target_.devicePixelRatio;
    const double sigma = layout.glowRadius * pixelRatio;
    double glowScale = 1;
    if (glowResolution_ == GlowResolution::automatic) {
        // Keep the blur at 1.25 to 2.5 glow pixels: wide enough that the coarser grid does not show.
        if (sigma >= 5) {
            glowScale = 0.25;
        } else if (sigma >= 3) {
            glowScale = 0.5;
        }
    }
    const BlurKernel kernel = gaussianKernel(sigma * glowScale);
    // Transparent margins at least as wide as the kernel, so the blur fades out instead of clamping.
    const int margin = kernel.radius + 2;
    const int innerWidth = static_cast<int>(std::ceil(canvas.width * pixelRatio * glowScale));
    const int innerHeight = static_cast<int>(std::ceil(canvas.height * pixelRatio * glowScale));
    ensureGlowTargets(QSize(innerWidth + 2 * margin, innerHeight + 2 * margin));
    glowScaleUsed_ = glowScale;
    glowMargin_ = static_cast<float>(margin);
    const int height = glowSize_.height();

    // Only the rows the glow can reach this frame are cleared, blurred and composited: the strokes'
    // rows, widened by the kernel for the vertical pass and by twice the kernel for what it reads.
    double extent = 0;
    for (const WaveBar& bar : layout.bars) extent = std::max(extent, bar.halfHeight);
    extent += layout.glowLineWidth / 2;
    const double toGlow = pixelRatio * glowScale;
    const int top = static_cast<int>(std::floor(margin + std::max(layout.midY - extent, 0.0) * toGlow)) - 1;
    const int bottom =
        static_cast<int>(std::ceil(margin + std::min(layout.midY + extent, canvas.height) * toGlow)) + 1;
    const int radius = kernel.radius;
    auto rows = [height](int first, int last) { return std::pair{std::clamp(first, 0, height), std::clamp(last, 0, height)}; };
    const auto [bandTop, bandBottom] = rows(top - radius - 1, bottom + radius + 1);
    const auto [readTop, readBottom] = rows(top - 2 * radius - 2, bottom + 2 * radius + 2);
    glowBandTop_ = bandTop;
    glowBandBottom_ = bandBottom;
    // Scissor rectangles count rows from the bottom.
    auto scissorRows = [this, height](int first, int last) {
        gl_->glScissor(0, height - last, glowSize_.width(), last - first);
    };

    // The glow strokes, clipped to the canvas like everything else drawn in it.
    gl_->glBindFramebuffer(GL_FRAMEBUFFER, glow_[0]->framebuffer);
    gl_->glViewport(0, 0, glowSize_.width(), height);
    gl_->glEnable(GL_SCISSOR_TEST);
    scissorRows(readTop, readBottom);
    gl_->glClearColor(0, 0, 0, 0);
    gl_->glClear(GL_COLOR_BUFFER_BIT);
    gl_->glScissor(margin, margin, innerWidth, innerHeight);
    gl_->glEnable(GL_BLEND);
    gl_->glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    WaveTarget glowTarget{glow_[0]->framebuffer, glowSize_, toGlow};
    drawBars(layout, true, glowTarget, static_cast<float>(margin), static_cast<float>(margin),
             static_cast<float>(toGlow));
    gl_->glDisable(GL_BLEND);

    // Two passes of the separable Gaussian: across into the second target, then down back into the first.
    Program* blurShader = blurProgram(kernel);
    if (!blurShader) {
        gl_->glDisable(GL_SCISSOR_TEST);
        return;
    }
    Program& blur = *blurShader;
    gl_->glUseProgram(blur.id);
    blur.set("targetSize", static_cast<float>(glowSize_.width()), static_cast<float>(height));
    blur.set("sourceSize", static_cast<float>(glowSize_.width()), static_cast<float>(height));
    blur.set("rect", 0.0f, 0.0f, static_cast<float>(glowSize_.width()), static_cast<float>(height));
    blur.set("source", 0);
    gl_->glActiveTexture(GL_TEXTURE0);
    gl_->glBindVertexArray(rectArray_);
    for (int pass = 0; pass < 2; ++pass) {
        const GlowTarget& source = *glow_[pass];
        const GlowTarget& destination = *glow_[1 - pass];
        gl_->glBindFramebuffer(GL_FRAMEBUFFER, destination.framebuffer);
        gl_->glBindTexture(GL_TEXTURE_2D, source.texture);
        if (pass == 0) {
            scissorRows(readTop, readBottom);
        } else {
            scissorRows(bandTop, bandBottom);
        }
        blur.set("direction", pass == 0 ? 1.0f : 0.0f, pass == 0 ? 0.0f : 1.0f);
        gl_->glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    }
    gl_->glDisable(GL_SCISSOR_TEST);
}

}  // namespace lorvane
