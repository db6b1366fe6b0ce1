#include "ui/shell/WaveformIcon.h"

#include <QString>

namespace lorvane {

namespace {

QIcon themedOrBuiltIn(const QString& name) {
    // The resource holds the files installed into hicolor, so both look the same.
    const QIcon builtIn(QStringLiteral(":/icons/%1.svg").arg(name));
    return QIcon::fromTheme(name, builtIn);
}

}  // namespace

QIcon waveformTrayIcon() {
    static const QString name = QString::fromLatin1(applicationId) + QStringLiteral("-symbolic");
    return themedOrBuiltIn(name);
}

QIcon applicationIcon() { return themedOrBuiltIn(QString::fromLatin1(applicationId)); }

}  // namespace lorvane
