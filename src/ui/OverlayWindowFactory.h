#pragma once
// Builds the overlay window controller with the real window and Qt's screens.

#include <memory>

#include "core/Clock.h"
#include "core/render/OverlayWindowController.h"

namespace lorvane {

class VisualizerModel;

// The window draws with time from `clock` (seconds since 1 January 2001 UTC); it must outlive the
// controller. The controller's panel() is an OverlayWindow.
std::unique_ptr<OverlayWindowController> makeOverlayWindowController(std::shared_ptr<OverlayPreferences> preferences,
                                                                     std::shared_ptr<VisualizerModel> model,
                                                                     const Clock& clock);

}  // namespace lorvane
