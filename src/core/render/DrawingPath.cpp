#include "core/render/DrawingPath.h"

#include <algorithm>
#include <cctype>

namespace lorvane {

bool isSoftwareOpenGl(std::string_view glRenderer) {
    std::string lower(glRenderer);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const char* name : {"llvmpipe", "softpipe", "swrast"}) {
        if (lower.find(name) != std::string::npos) return true;
    }
    return false;
}

DrawingPath chooseDrawingPath(std::string_view environment, RendererChoice preference,
                              const std::optional<std::string>& glRenderer) {
    if (!glRenderer) return DrawingPath::cpu;
    if (environment == "cpu") return DrawingPath::cpu;
    if (environment == "gl") return DrawingPath::gl;
    switch (preference) {
        case RendererChoice::cpu:
            return DrawingPath::cpu;
        case RendererChoice::gl:
            return DrawingPath::gl;
        case RendererChoice::automatic:
            break;
    }
    return isSoftwareOpenGl(*glRenderer) ? DrawingPath::cpu : DrawingPath::gl;
}

}  // namespace lorvane
