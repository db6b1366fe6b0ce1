#include "platform/linux/SoundSettingsLauncher.h"

#include <QProcess>
#include <algorithm>
#include <QStandardPaths>

#include "core/Logging.h"

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

SoundSettingsLauncher::SoundSettingsLauncher(AlertPresenting* alerts)
    : SoundSettingsLauncher(qEnvironmentVariable("XDG_CURRENT_DESKTOP"), {}, alerts) {}

SoundSettingsLauncher::SoundSettingsLauncher(QString currentDesktop, QStringList searchPaths, AlertPresenting* alerts)
    : currentDesktop_(std::move(currentDesktop)), searchPaths_(std::move(searchPaths)), alerts_(alerts) {}

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

QString SoundSettingsLauncher::installAdvice() const {
    const QStringList running = currentDesktop_.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    const auto runs = [&](const char* name) { return running.contains(QLatin1String(name), Qt::CaseInsensitive); };
    QString own;
    if (runs("GNOME") || runs("Unity") || runs("Budgie")) own = QStringLiteral("gnome-control-center");
    if (runs("KDE")) own = QStringLiteral("plasma-pa");
    if (runs("X-Cinnamon")) own = QStringLiteral("cinnamon-control-center");
    if (runs("MATE")) own = QStringLiteral("mate-media");
    if (runs("LXQt")) own = QStringLiteral("pavucontrol-qt");
    const QString mixer = QStringLiteral("Install PulseAudio Volume Control (the package “pavucontrol”)");
    if (own.isEmpty() || own == QStringLiteral("pavucontrol-qt")) {
        return mixer + QStringLiteral(" to choose which sound Lorvane hears.");
    }
    return QStringLiteral("Install your desktop's sound settings (the package “%1”) or PulseAudio Volume Control "
                          "(the package “pavucontrol”) to choose which sound Lorvane hears.")
        .arg(own);
}

void SoundSettingsLauncher::openAudioCaptureSettings() {
    const auto program = firstAvailable();
    if (program && QProcess::startDetached(program->program, program->arguments)) {
        qCDebug(lcCapture).noquote() << "Opened the sound settings:" << program->program
                                     << program->arguments.join(QLatin1Char(' '));
        return;
    }
    if (program) {
        qCWarning(lcCapture).noquote() << "The sound settings program" << program->program << "could not be started.";
    } else {
        qCWarning(lcCapture) << "No sound settings program is installed.";
    }
    if (alerts_) alerts_->showWarning(missingMessage, installAdvice().toStdString());
}

}  // namespace lorvane
