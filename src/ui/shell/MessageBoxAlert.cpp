#include "ui/shell/MessageBoxAlert.h"

#include <QMessageBox>

#include "ui/shell/WaveformIcon.h"

namespace lorvane {

MessageBoxAlert::~MessageBoxAlert() { delete box_.data(); }

void MessageBoxAlert::showWarning(const std::string& message, const std::string& informativeText) {
    if (!box_) {
        box_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Lorvane"), QString(), QMessageBox::Ok);
        box_->setWindowIcon(applicationIcon());
        box_->setAttribute(Qt::WA_DeleteOnClose);
    }
    box_->setText(QString::fromStdString(message));
    box_->setInformativeText(QString::fromStdString(informativeText));
    // open() returns at once: no nested event loop, so a second click cannot stack a second box.
    if (!box_->isVisible()) box_->open();
    box_->raise();
    box_->activateWindow();
}

}  // namespace lorvane
