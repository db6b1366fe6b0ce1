#pragma once
// One Lorvane per session: the first instance owns a name on the session bus; a later start asks
// it to reopen (bring up its settings window) and then ends. The command line's actions reach the
// running instance the same way.

#include <QDBusConnection>
#include <QObject>
#include <functional>

#include "app/CommandLine.h"

namespace lorvane {

class SingleInstance final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tarnhollow.Lorvane")
public:
    static constexpr const char* serviceName = "com.tarnhollow.Lorvane";
    static constexpr const char* objectPath = "/com/tarnhollow/Lorvane";
    static constexpr const char* interfaceName = "com.tarnhollow.Lorvane";

    enum class Outcome {
        primary,     // this process owns the name and serves requests
        handedOver,  // another instance runs and took the request: this one should end
        unreachable, // another instance owns the name but did not answer
        noBus,       // no session bus: run without the single-instance guard
        notRunning,  // (requests only) no instance owns the name
    };

    explicit SingleInstance(QDBusConnection bus, QObject* parent = nullptr);
    ~SingleInstance() override;

    // Owns the name, or hands `request` to the instance that owns it (`none` reopens it; `quietly`
    // only checks that it answers, for a start in the background).
    Outcome claim(bool quietly = false);
    // Sends an action to the running instance without ever owning the name.
    Outcome send(InstanceAction action);

    // After `unreachable`: who owns the name (process id and program, from the bus) and how to recover.
    QString unreachableExplanation() const;
    // How long a later start waits for the running instance's answer.
    void setCallTimeout(int milliseconds) { callTimeout_ = milliseconds; }

    // Called on the main thread when a request arrives.
    std::function<void()> reopenRequested;
    std::function<void()> showSettingsRequested;
    std::function<void()> toggleWaveRequested;
    std::function<void()> quitRequested;

public slots:
    Q_SCRIPTABLE void Reopen();
    Q_SCRIPTABLE void ShowSettings();
    Q_SCRIPTABLE void ToggleWave();
    Q_SCRIPTABLE void Quit();

private:
    bool callOwner(const QString& method);

    QDBusConnection bus_;
    bool ownsName_ = false;
    int callTimeout_ = 5000;
};

}  // namespace lorvane
