#pragma once
// One Lorvane per session: the first instance owns a name on the session bus; a later start asks
// it to reopen (bring up its settings window) and then ends.

#include <QDBusConnection>
#include <QObject>
#include <functional>

namespace lorvane {

class SingleInstance final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tarnhollow.Lorvane")
public:
    static constexpr const char* serviceName = "com.tarnhollow.Lorvane";
    static constexpr const char* objectPath = "/com/tarnhollow/Lorvane";
    static constexpr const char* interfaceName = "com.tarnhollow.Lorvane";

    enum class Outcome {
        primary,     // this process owns the name and serves reopen requests
        handedOver,  // another instance runs and was asked to reopen: this one should end
        unreachable, // another instance owns the name but did not answer
        noBus,       // no session bus: run without the single-instance guard
    };

    explicit SingleInstance(QDBusConnection bus, QObject* parent = nullptr);
    ~SingleInstance() override;

    Outcome claim();
    // Called on the main thread when a later start asks this instance to reopen.
    std::function<void()> reopenRequested;

public slots:
    Q_SCRIPTABLE void Reopen();

private:
    QDBusConnection bus_;
    bool ownsName_ = false;
};

}  // namespace lorvane
