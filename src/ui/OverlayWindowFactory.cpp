#include "ui/OverlayWindowFactory.h"

#include "ui/OverlayWindow.h"
#include "ui/QtScreenEnvironment.h"

namespace lorvane {

namespace {
// Shared pointers that do not own.
template <typename T>
std::shared_ptr<T> borrowed(T& object) {
    return std::shared_ptr<T>(&object, [](T*) {});
}
}  // namespace

std::unique_ptr<OverlayWindow> makeOverlayWindowController(std::shared_ptr<OverlayPreferences> preferences,
                                                           std::shared_ptr<VisualizerModel> model, const Clock& steady) {
    return std::make_unique<OverlayWindow>(std::move(preferences), std::move(model), steady,
                                           std::make_unique<QtScreenEnvironment>());
}

std::unique_ptr<OverlayPresenting> makeOverlay(OverlayPreferences& preferences, VisualizerModel& model,
                                               const Clock& steady) {
    return makeOverlayWindowController(borrowed(preferences), borrowed(model), steady);
}

}  // namespace lorvane
