#include "ui/shell/MessageBoxAlert.h"

#include <QMessageBox>

#include "ui/shell/WaveformIcon.h"

namespace lorvane {

void MessageBoxAlert::showWarning(const std::string& message, const std::string& informativeText) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Lorvane"), QString::fromStdString(message), QMessageBox::Ok);
    box.setInformativeText(QString::fromStdString(informativeText));
    box.setWindowIcon(applicationIcon());
    box.setWindowModality(Qt::ApplicationModal);
    box.exec();
}

}  // namespace lorvane
