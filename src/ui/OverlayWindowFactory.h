#pragma once
// Builds the X11 overlay with Qt's screens.

#include <memory>

#include "core/Clock.h"
#include "core/VisualizerModel.h"
#include "core/render/OverlayWindowController.h"

namespace lorvane {

}  // namespace lorvane
#include "ui/OverlayWindow.h"
namespace lorvane {

// `steady` (a monotonic clock) drives the wave's animation and must outlive the overlay.
std::unique_ptr<OverlayWindow> makeOverlayWindowController(std::shared_ptr<OverlayPreferences> preferences,
                                                           std::shared_ptr<VisualizerModel> model, const Clock& steady);

// The same for the application controller, whose preferences and model outlive the overlay.
std::unique_ptr<OverlayPresenting> makeOverlay(OverlayPreferences& preferences, VisualizerModel& model,
                                               const Clock& steady);

}  // namespace lorvane
