#pragma once
// Which path draws the wave: OpenGL, or the CPU into a shared-memory image. Decided once per window
// from LORVANE_RENDERER, the preference and what the OpenGL driver says of itself.

#include <optional>
#include <string>
#include <string_view>

#include "core/OverlayPreferences.h"
#include "core/StringEnum.h"

namespace lorvane {

enum class DrawingPath { gl, cpu };
template <>
struct EnumTraits<DrawingPath> {
    static constexpr std::array<std::string_view, 2> rawValues{"gl", "cpu"};
};

// True for Mesa's software rasterisers (the GL_RENDERER string names llvmpipe, softpipe or swrast):
// there the GPU path costs a CPU many times what the CPU path does.
bool isSoftwareOpenGl(std::string_view glRenderer);

// `environment` is LORVANE_RENDERER ("cpu" or "gl" win over the preference; anything else is
// ignored); `glRenderer` is the GL_RENDERER of a wave context, nothing when none could be made.
// Without OpenGL the CPU path is used whatever was asked.
DrawingPath chooseDrawingPath(std::string_view environment, RendererChoice preference,
                              const std::optional<std::string>& glRenderer);

}  // namespace lorvane
