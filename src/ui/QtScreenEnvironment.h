#pragma once
// The screens and the pointer as Qt sees them (global device-independent pixels, top-left origin):
// the full and available geometry of each screen in Qt's order, the primary screen as the main one,
// and one notification per burst of screen changes.

#include <QObject>
#include <QPointer>
#include <memory>

#include "core/render/OverlayWindowController.h"

class QScreen;

namespace lorvane {

class QtScreenEnvironment final : public ScreenEnvironment {
public:
    QtScreenEnvironment();
    ~QtScreenEnvironment() override;

    std::vector<ScreenInfo> screens() const override;
    std::optional<std::size_t> mainScreen() const override;
    PointF pointerLocation() const override;

private:
    void watch(QScreen* screen);
    void changed();

    std::unique_ptr<QObject> context_;  // owns every connection; they end with it
    bool pending_ = false;
};

}  // namespace lorvane
