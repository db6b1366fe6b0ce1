#pragma once
// The overlay window controller as the application controller drives it.

#include <memory>

#include "core/Clock.h"
#include "core/app/AppServices.h"
#include "core/app/OverlayPath.h"
#include "core/render/OverlayWindowController.h"

namespace lorvane {

class OverlayAdapter final : public OverlayPresenting {
public:
    // The preferences and the model belong to the application controller, which outlives the overlay.
    OverlayAdapter(OverlayPreferences& preferences, VisualizerModel& model, const Clock& dates,
                   OverlayPath path = OverlayPath::x11);
    ~OverlayAdapter() override;

    void applyWindowLevel() override { controller_->applyWindowLevel(); }
    void reposition() override { controller_->reposition(); }
    void orderFrontRegardless() override { controller_->panel().orderFrontWithoutActivating(); }
    void orderOut() override { controller_->panel().orderOut(); }

private:
    std::unique_ptr<OverlayWindowController> controller_;
};

}  // namespace lorvane
