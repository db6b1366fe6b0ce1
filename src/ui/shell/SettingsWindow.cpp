#include "ui/shell/SettingsWindow.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeySequence>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>
#include <QWindow>

#include "ui/shell/SettingsView.h"
#include "ui/shell/WaveformIcon.h"
#include "platform/x11/X11Desktop.h"

namespace lorvane {

SettingsWindow::SettingsWindow(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                               PlaybackStatus& playbackStatus, SettingsActions actions,
                               bool launchAtLoginEnabled, QString versionText)
    : QWidget(nullptr, Qt::Window) {
    setWindowTitle(QStringLiteral("Lorvane Settings"));
    setWindowIcon(applicationIcon());
    setObjectName(QStringLiteral("LorvaneSettings"));
    view_ = new SettingsView(preferences, visualizerModel, playbackStatus, std::move(actions), launchAtLoginEnabled,
                             std::move(versionText), this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
    setMinimumSize(560, 430);
    resize(620, 470);
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), size());
        frame.moveCenter(screen->availableGeometry().center());
        move(frame.topLeft());
    }
    // The usual window keys: Ctrl+W closes (hides) the window, Ctrl+Q quits the program.
    new QShortcut(QKeySequence(QStringLiteral("Ctrl+W")), this, this, &QWidget::close);
    new QShortcut(QKeySequence(QStringLiteral("Ctrl+Q")), this, [] { QCoreApplication::quit(); });
}

void SettingsWindow::present() {
    // The desktop hint is an X11 window-manager property; a Wayland compositor shows a new window on
    // the current workspace by itself.
    const bool x11 = QGuiApplication::platformName() == QLatin1String("xcb");
    if (x11) {
        winId();  // the native window must exist to carry the desktop hint
        x11::putOnAllDesktops(windowHandle());
    }
    if (isMinimized()) {
        showNormal();
    } else {
        show();
    }
    if (x11) x11::putOnAllDesktops(windowHandle());
    raise();
    activateWindow();
}

}  // namespace lorvane
