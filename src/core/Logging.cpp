#include "core/Logging.h"

Q_LOGGING_CATEGORY(lcCapture, "lorvane.capture", QtWarningMsg)
Q_LOGGING_CATEGORY(lcPlayback, "lorvane.playback", QtWarningMsg)
Q_LOGGING_CATEGORY(lcOverlay, "lorvane.overlay", QtWarningMsg)
Q_LOGGING_CATEGORY(lcTray, "lorvane.tray", QtWarningMsg)
Q_LOGGING_CATEGORY(lcSettings, "lorvane.settings", QtWarningMsg)
