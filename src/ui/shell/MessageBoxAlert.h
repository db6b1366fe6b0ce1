#pragma once
// Warning boxes that do not block: the box opens window-modal-free and returns at once, so the
// caller can bring the menu and the settings window up to date while it is shown. At most one box is
// on screen: a new warning replaces the text of the one already shown.

#include <QMessageBox>
#include <QPointer>

#include "core/app/AppServices.h"



namespace lorvane {

class MessageBoxAlert final : public AlertPresenting {
public:
    ~MessageBoxAlert() override;
    void showWarning(const std::string& message, const std::string& informativeText) override;
    // The box on screen, if any (for tests).
    QMessageBox* currentBox() const { return box_; }

private:
    QPointer<QMessageBox> box_;
};

}  // namespace lorvane
