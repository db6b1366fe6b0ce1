#include "ui/OverlayWindowFactory.h"

#include "ui/OverlayWindow.h"
#include "ui/QtScreenEnvironment.h"

namespace lorvane {

std::unique_ptr<OverlayWindowController> makeOverlayWindowController(std::shared_ptr<OverlayPreferences> preferences,
                                                                     std::shared_ptr<VisualizerModel> model,
                                                                     const Clock& clock) {
    auto window = std::make_unique<OverlayWindow>(preferences, std::move(model), clock);
    return std::make_unique<OverlayWindowController>(std::move(preferences), std::move(window),
                                                     std::make_unique<QtScreenEnvironment>());
}

}  // namespace lorvane
