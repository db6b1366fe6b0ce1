#pragma once
// The screens and the pointer as Qt sees them (global device-independent pixels, top-left origin):
// the full and available geometry of each screen in Qt's order, the primary screen as the main one,
// and one notification per burst of screen changes. On X11 the visible frame comes from the window
// manager's work area for the current desktop, read when asked: Qt keeps only the first desktop's
// and can miss an update that arrives while it rebuilds its screens.

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

    class WorkAreaFilter;
    std::unique_ptr<QObject> context_;  // owns every connection; they end with it
    std::unique_ptr<WorkAreaFilter> filter_;
    bool pending_ = false;
};

}  // namespace lorvane
