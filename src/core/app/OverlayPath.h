#pragma once
// Which overlay the program runs, decided once at start-up from the session's environment and, in a
// Wayland session, the globals the compositor advertises: a native layer surface where the compositor
// offers wlr layer-shell, else the X11 overlay (through XWayland in a Wayland session).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/StringEnum.h"

namespace lorvane {

enum class OverlayPath { layerShell, x11 };

template <>
struct EnumTraits<OverlayPath> {
    static constexpr std::array<std::string_view, 2> rawValues{"layer-shell", "x11"};
};

// What start-up knows before the GUI exists. Empty strings stand for unset variables.
struct OverlayPathInputs {
    std::string waylandDisplay;    // WAYLAND_DISPLAY
    std::string x11Display;        // DISPLAY
    std::string qtPlatform;        // QT_QPA_PLATFORM, as the user set it
    std::string overlayOverride;   // LORVANE_OVERLAY: "layer-shell" or "x11"
    // The compositor's globals by interface name; none when there is no Wayland session or it could
    // not be reached.
    std::optional<std::vector<std::string>> waylandGlobals;
};

struct OverlayPathChoice {
    OverlayPath path = OverlayPath::x11;
    // The Qt platform plugin to set before the application object exists; empty leaves Qt's own choice.
    std::string qtPlatform;
    // One line for the log: what was chosen and why.
    std::string reason;
};

inline constexpr std::string_view layerShellGlobal = "zwlr_layer_shell_v1";

OverlayPathChoice chooseOverlayPath(const OverlayPathInputs& inputs);

}  // namespace lorvane
