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
            return std::make_unique<LayerShellOverlayWindow>(std::move(preferences), std::move(model), clock,
                                                             std::move(connection),
                                                             std::make_unique<QtScreenEnvironment>());
        }
        qCWarning(lcOverlay, "The layer-shell overlay cannot be set up; using an ordinary window");
    }
    return makeOverlayWindowController(std::move(preferences), std::move(model), clock);
}

namespace {
// Shared pointers that do not own.
template <typename T>
std::shared_ptr<T> borrowed(T& object) {
    return std::shared_ptr<T>(&object, [](T*) {});
}
}  // namespace

std::unique_ptr<OverlayPresenting> makeOverlayController(OverlayPath path, OverlayPreferences& preferences,
                                                         VisualizerModel& model, const Clock& clock) {
    return makeOverlayController(path, borrowed(preferences), borrowed(model), clock);
}

}  // namespace lorvane
