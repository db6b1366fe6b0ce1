#pragma once
// A modal warning box that blocks until the user dismisses it.

#include "core/app/AppServices.h"

namespace lorvane {

class MessageBoxAlert final : public AlertPresenting {
public:
    void showWarning(const std::string& message, const std::string& informativeText) override;
};

}  // namespace lorvane
