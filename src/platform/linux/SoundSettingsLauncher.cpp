#include "platform/linux/SoundSettingsLauncher.h"

#include <QProcess>
#include <algorithm>
#include <QStandardPaths>

namespace lorvane {

namespace {

const std::vector<SoundSettingsProgram>& knownPrograms() {
    static const std::vector<SoundSettingsProgram> programs{
        {QStringLiteral("gnome-control-center"), {QStringLiteral("sound")}, {QStringLiteral("GNOME")}},
        {QStringLiteral("systemsettings"), {QStringLiteral("kcm_pulseaudio")}, {QStringLiteral("KDE")}},
        {QStringLiteral("cinnamon-settings"), {QStringLiteral("sound")}, {QStringLiteral("X-Cinnamon")}},
        {QStringLiteral("mate-volume-control"), {}, {QStringLiteral("MATE")}},
        {QStringLiteral("budgie-control-center"), {QStringLiteral("sound")}, {QStringLiteral("Budgie")}},
        {QStringLiteral("unity-control-center"), {QStringLiteral("sound")}, {QStringLiteral("Unity")}},
        {QStringLiteral("pavucontrol-qt"), {}, {QStringLiteral("LXQt")}},
        {QStringLiteral("pavucontrol"), {}, {}},
        {QStringLiteral("pavucontrol-qt"), {}, {}},
    };
    return programs;
}

}  // namespace

SoundSettingsLauncher::SoundSettingsLauncher()
    : SoundSettingsLauncher(qEnvironmentVariable("XDG_CURRENT_DESKTOP"), {}) {}

SoundSettingsLauncher::SoundSettingsLauncher(QString currentDesktop, QStringList searchPaths)
    : currentDesktop_(std::move(currentDesktop)), searchPaths_(std::move(searchPaths)) {}

std::vector<SoundSettingsProgram> SoundSettingsLauncher::candidates() const {
    const QStringList running = currentDesktop_.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    std::vector<SoundSettingsProgram> own, generic, others;
    for (const SoundSettingsProgram& program : knownPrograms()) {
        bool ours = false;
        for (const QString& desktop : program.desktops) ours = ours || running.contains(desktop, Qt::CaseInsensitive);
        if (ours) {
            own.push_back(program);
        } else if (program.desktops.isEmpty()) {
            generic.push_back(program);
        } else {
            others.push_back(program);
        }
    }
    // The desktop's own page, then a plain mixer, then any other desktop's page.
    std::vector<SoundSettingsProgram> ordered;
    for (const auto* group : {&own, &generic, &others}) {
        for (const SoundSettingsProgram& program : *group) {
            const bool seen = std::any_of(ordered.begin(), ordered.end(), [&](const SoundSettingsProgram& earlier) {
                return earlier.program == program.program && earlier.arguments == program.arguments;
            });
            if (!seen) ordered.push_back(program);
        }
    }
    return ordered;
}

std::optional<SoundSettingsProgram> SoundSettingsLauncher::firstAvailable() const {
    for (SoundSettingsProgram program : candidates()) {
        const QString path = searchPaths_.isEmpty() ? QStandardPaths::findExecutable(program.program)
                                                    : QStandardPaths::findExecutable(program.program, searchPaths_);
        if (path.isEmpty()) continue;
        program.program = path;
        return program;
    }
    return std::nullopt;
}

void SoundSettingsLauncher::openAudioCaptureSettings() {
    if (const auto program = firstAvailable()) QProcess::startDetached(program->program, program->arguments);
}

}  // namespace lorvane
