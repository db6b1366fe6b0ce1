#pragma once
// The program's log categories. Warnings are on by default and are kept for real failures; debug
// output is enabled by --verbose or QT_LOGGING_RULES. Nothing is logged per frame.

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcCapture)   // lorvane.capture: sound server, capture stream, analysis
Q_DECLARE_LOGGING_CATEGORY(lcPlayback)  // lorvane.playback: MPRIS players, playback snapshots
Q_DECLARE_LOGGING_CATEGORY(lcOverlay)   // lorvane.overlay: overlay window, renderer, GL context
Q_DECLARE_LOGGING_CATEGORY(lcTray)      // lorvane.tray: tray icon, StatusNotifier watcher, menu
Q_DECLARE_LOGGING_CATEGORY(lcSettings)  // lorvane.settings: settings file, autostart entry
