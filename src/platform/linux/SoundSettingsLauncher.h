#pragma once
// Opens the desktop's sound settings: the first available of the usual sound-settings programs, those
// of the running desktop first. When none is installed (or none starts), a warning tells the user
// what to install.

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
    static constexpr const char* missingMessage = "No Sound Settings Program Found";

    // The running desktop ($XDG_CURRENT_DESKTOP) and the executable search path ($PATH).
    explicit SoundSettingsLauncher(AlertPresenting* alerts = nullptr);
    // Given values, for tests; an empty search path list means $PATH.
    SoundSettingsLauncher(QString currentDesktop, QStringList searchPaths, AlertPresenting* alerts = nullptr);

    void openAudioCaptureSettings() override;

    // The programs in the order they are tried.
    std::vector<SoundSettingsProgram> candidates() const;
    // The first installed candidate with its absolute path, or nothing.
    std::optional<SoundSettingsProgram> firstAvailable() const;
    // What to install, for the warning: the running desktop's own sound settings, else a mixer.
    QString installAdvice() const;

private:
    QString currentDesktop_;
    QStringList searchPaths_;
    AlertPresenting* alerts_ = nullptr;
};

}  // namespace lorvane
