#include "app/OverlayAdapter.h"

#include "platform/wayland/OverlayControllerFactory.h"

namespace lorvane {

namespace {

// Shared pointers that do not own: the controller keeps its parts alive itself.
template <typename T>
std::shared_ptr<T> borrowed(T& object) {
    return std::shared_ptr<T>(&object, [](T*) {});
}

}  // namespace

OverlayAdapter::OverlayAdapter(OverlayPreferences& preferences, VisualizerModel& model, const Clock& dates,
                               OverlayPath path)
    : controller_(makeOverlayController(path, borrowed(preferences), borrowed(model), dates)) {}

OverlayAdapter::~OverlayAdapter() = default;

}  // namespace lorvane
