#include "ui/shell/SettingsWindow.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeySequence>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>

#include "ui/shell/SettingsView.h"
#include "ui/shell/WaveformIcon.h"

namespace lorvane {

SettingsWindow::SettingsWindow(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                               PlaybackStatus& playbackStatus, SettingsActions actions,
                               bool launchAtLoginEnabled, QString versionText)
    : QWidget(nullptr, Qt::Window), preferences_(preferences) {
    setWindowTitle(QStringLiteral("Lorvane Settings"));
    setWindowIcon(applicationIcon());
    setObjectName(QStringLiteral("LorvaneSettings"));
    setAccessibleName(QStringLiteral("Lorvane Settings"));
    setAccessibleDescription(QStringLiteral("Every setting of Lorvane's wave"));
    view_ = new SettingsView(preferences, visualizerModel, playbackStatus, std::move(actions), launchAtLoginEnabled,
                             std::move(versionText), this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
    setMinimumSize(minimumWindowSize);
    QSize size = defaultSize;
    if (const auto remembered = preferences_.settingsWindowSize()) {
        size = QSize(remembered->first, remembered->second).expandedTo(minimumWindowSize);
    }
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        // A size remembered on a larger screen still fits this one.
        size = size.boundedTo(screen->availableGeometry().size()).expandedTo(minimumWindowSize);
    }
    resize(size);
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), this->size());
        frame.moveCenter(screen->availableGeometry().center());
        move(frame.topLeft());
    }
    // The usual window keys: Escape and Ctrl+W close (hide) the window, Ctrl+Q quits the program.
    for (const QKeySequence& key : {QKeySequence(Qt::Key_Escape), QKeySequence(QStringLiteral("Ctrl+W"))}) {
        new QShortcut(key, this, this, &QWidget::close);
    }
    new QShortcut(QKeySequence(QStringLiteral("Ctrl+Q")), this, [] { QCoreApplication::quit(); });
}

void SettingsWindow::present() {
    // Opens on the desktop the user is on, like any other window.
    if (isMinimized()) {
        showNormal();
    } else {
        show();
    }
    raise();
    activateWindow();
}

void SettingsWindow::hideEvent(QHideEvent* event) {
    // Remembered when the window goes away, not on every step of a resize.
    const auto stored = preferences_.settingsWindowSize();
    if (!isMinimized() && (!stored || stored->first != width() || stored->second != height())) {
        preferences_.setSettingsWindowSize(width(), height());
    }
    QWidget::hideEvent(event);
}

}  // namespace lorvane
