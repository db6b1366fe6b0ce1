#pragma once
// Builds the overlay window controller for the overlay path chosen at start-up: a layer surface on
// Qt's Wayland connection, or today's X11 window. A layer-shell path that cannot be set up (Qt not on
// Wayland after all, no layer-shell) falls back to the X11 window and says so.

#include <memory>

#include "core/Clock.h"
#include "core/app/OverlayPath.h"
#include "core/render/OverlayWindowController.h"

namespace lorvane {

class VisualizerModel;

std::unique_ptr<OverlayWindowController> makeOverlayController(OverlayPath path,
                                                                std::shared_ptr<OverlayPreferences> preferences,
                                                                std::shared_ptr<VisualizerModel> model,
                                                                const Clock& clock);

// The same for the application controller, whose preferences and model outlive the overlay. `clock`
// is a steady clock (the wave's animation).
std::unique_ptr<OverlayPresenting> makeOverlayController(OverlayPath path, OverlayPreferences& preferences,
                                                         VisualizerModel& model, const Clock& clock);

}  // namespace lorvane
