#include "platform/wayland/OverlayControllerFactory.h"

#include "core/Logging.h"
#include "platform/wayland/LayerShellOverlayWindow.h"
#include "platform/wayland/QtWaylandNative.h"
#include "ui/OverlayWindowFactory.h"
#include "ui/QtScreenEnvironment.h"

namespace lorvane {

std::unique_ptr<OverlayWindowController> makeOverlayController(OverlayPath path,
                                                                std::shared_ptr<OverlayPreferences> preferences,
                                                                std::shared_ptr<VisualizerModel> model,
                                                                const Clock& clock) {
    if (path == OverlayPath::layerShell) {
        if (auto connection = LayerShellConnection::connect(qtWaylandDisplay())) {
            auto window = std::make_unique<LayerShellOverlayWindow>(preferences, std::move(model), clock,
                                                                    std::move(connection));
            return std::make_unique<OverlayWindowController>(std::move(preferences), std::move(window),
                                                             std::make_unique<QtScreenEnvironment>());
        }
        qCWarning(lcOverlay, "The layer-shell overlay cannot be set up; using an ordinary window");
    }
    return makeOverlayWindowController(std::move(preferences), std::move(model), clock);
}

}  // namespace lorvane
