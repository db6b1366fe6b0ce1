#pragma once
// Whether the desktop shows tray icons at all, as the tray last found out; views observe it to offer
// another way back to the program when there is none.

#include "core/Signal.h"

namespace lorvane {

class TrayHost {
public:
    // Assumed present until the tray finds otherwise, so nothing warns before it has looked.
    bool available() const { return available_; }
    void setAvailable(bool available) {
        if (available == available_) return;
        available_ = available;
        changed();
    }
    // Announced after the value changed.
    Signal<> changed;

private:
    bool available_ = true;
};

}  // namespace lorvane
