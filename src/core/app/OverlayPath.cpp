#include "core/app/OverlayPath.h"

#include <algorithm>

namespace lorvane {

namespace {

bool advertises(const std::optional<std::vector<std::string>>& globals, std::string_view name) {
    return globals && std::find(globals->begin(), globals->end(), name) != globals->end();
}

// The Qt platform for a path, unless the user chose one: a layer surface needs Qt's Wayland connection,
// the X11 overlay needs xcb (XWayland in a Wayland session).
std::string platformFor(OverlayPath path, const OverlayPathInputs& inputs) {
    if (!inputs.qtPlatform.empty()) return {};
    if (path == OverlayPath::layerShell) return "wayland";
    return inputs.waylandDisplay.empty() ? std::string() : std::string("xcb");
}

OverlayPathChoice choice(OverlayPath path, const OverlayPathInputs& inputs, std::string reason) {
    return {path, platformFor(path, inputs), std::move(reason)};
}

}  // namespace

OverlayPathChoice chooseOverlayPath(const OverlayPathInputs& inputs) {
    const bool wayland = !inputs.waylandDisplay.empty();
    const bool layerShell = advertises(inputs.waylandGlobals, layerShellGlobal);
    // The user's own platform choice wins over ours; a layer surface needs Qt on Wayland.
    const bool qtOnWayland = inputs.qtPlatform.empty() || inputs.qtPlatform.rfind("wayland", 0) == 0;

    if (!inputs.overlayOverride.empty()) {
        const auto wanted = fromRawValue<OverlayPath>(inputs.overlayOverride);
        if (wanted == OverlayPath::layerShell) {
            if (wayland && layerShell && qtOnWayland) return choice(*wanted, inputs, "layer-shell (asked for by LORVANE_OVERLAY)");
            return choice(OverlayPath::x11, inputs,
                          "x11: LORVANE_OVERLAY asks for layer-shell, but Qt does not run on a Wayland "
                          "compositor that offers it");
        }
        if (wanted == OverlayPath::x11) return choice(*wanted, inputs, "x11 (asked for by LORVANE_OVERLAY)");
        // An unknown value is ignored: the automatic choice follows.
    }
    if (!wayland) return choice(OverlayPath::x11, inputs, "x11: an X11 session");
    if (!inputs.waylandGlobals)
        return choice(OverlayPath::x11, inputs, "x11 through XWayland: the Wayland compositor could not be reached");
    if (!layerShell)
        return choice(OverlayPath::x11, inputs, "x11 through XWayland: the Wayland compositor offers no wlr layer-shell");
    if (!qtOnWayland)
        return choice(OverlayPath::x11, inputs, "x11: QT_QPA_PLATFORM asks for a platform other than Wayland");
    return choice(OverlayPath::layerShell, inputs, "layer-shell: the Wayland compositor offers wlr layer-shell");
}

}  // namespace lorvane
