#include "ui/FrostedBackground.h"

#include "platform/x11/X11Desktop.h"

namespace lorvane {

void FrostedBackground::apply(QWindow& window, bool enabled) {
    if (known_ && applied_ == enabled) return;
    x11::setBlurBehind(window, enabled);
    applied_ = enabled;
    known_ = true;
}

}  // namespace lorvane
