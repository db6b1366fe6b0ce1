#pragma once
// Opens the desktop's sound settings: the first available of the usual sound-settings programs, those
// of the running desktop first. Nothing happens when none is installed.

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

#include "core/app/AppServices.h"

namespace lorvane {

struct SoundSettingsProgram {
    QString program;
    QStringList arguments;
    // XDG_CURRENT_DESKTOP names for which this is the desktop's own page; empty for generic mixers.
    QStringList desktops;
};

class SoundSettingsLauncher final : public AudioSettingsOpening {
public:
    // The running desktop ($XDG_CURRENT_DESKTOP) and the executable search path ($PATH).
    SoundSettingsLauncher();
    // Given values, for tests; an empty search path list means $PATH.
    SoundSettingsLauncher(QString currentDesktop, QStringList searchPaths);

    void openAudioCaptureSettings() override;

    // The programs in the order they are tried.
    std::vector<SoundSettingsProgram> candidates() const;
    // The first installed candidate with its absolute path, or nothing.
    std::optional<SoundSettingsProgram> firstAvailable() const;

private:
    QString currentDesktop_;
    QStringList searchPaths_;
};

}  // namespace lorvane
