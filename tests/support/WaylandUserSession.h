#pragma once
// A private headless Wayland compositor for tests, run as an unprivileged user with its own
// XDG_RUNTIME_DIR (sway refuses to run as root). When the tests run as root, the user
// "lorvane-test" is created if it is missing and the compositor and every program the test starts
// in the session run as that user; otherwise they run as the current user.
//
// SwaySession: headless sway (WLR_BACKENDS=headless, WLR_RENDERER=pixman) with one output, no bar,
// no borders and no XWayland, driven through swaymsg. WestonSession: headless weston, which offers
// no layer-shell, optionally with XWayland. Everything started is stopped by the destructor and
// dies with the test process. Needs a QCoreApplication for its processes.

#include <QImage>
#include <QJsonDocument>
#include <QProcess>
#include <QStringList>
#include <memory>
#include <sys/types.h>

namespace lorvane::test {

class WaylandUserSession {
public:
    struct CommandResult {
        int status = -1;  // -1 when it could not start or was killed at the timeout
        QByteArray output;
        QByteArray errors;
    };

    virtual ~WaylandUserSession();
    WaylandUserSession(const WaylandUserSession&) = delete;
    WaylandUserSession& operator=(const WaylandUserSession&) = delete;

    bool isRunning() const { return running_; }
    const QString& error() const { return error_; }
    const QString& runtimeDirectory() const { return runtimeDirectory_; }
    // The compositor's process (for benchmarks); 0 when it does not run.
    qint64 compositorPid() const { return compositor_ ? compositor_->processId() : 0; }
    // The environment of programs in the session: WAYLAND_DISPLAY, XDG_RUNTIME_DIR, HOME, and no DISPLAY
    // unless the session has XWayland.
    QProcessEnvironment environment() const;

    // Starts `program` in the session as the session's user; `extra` adds or replaces variables.
    std::unique_ptr<QProcess> start(const QString& program, const QStringList& arguments,
                                     const QProcessEnvironment& extra = {}) const;
    CommandResult run(const QString& program, const QStringList& arguments, double timeout = 10,
                      const QProcessEnvironment& extra = {}) const;
    // A screenshot of the whole layout (grim); a null image on failure.
    QImage screenshot() const;
    // Makes a file or directory the session's user can read (and write, for directories).
    void handOver(const QString& path) const;

protected:
    WaylandUserSession();
    bool prepare();
    bool waitForSocket(const QString& name, double timeout) const;
    void configureProcess(QProcess& process, const QProcessEnvironment& extra) const;

    bool running_ = false;
    QString error_;
    QString runtimeDirectory_;
    QString socketName_;
    QString x11Display_;
    std::unique_ptr<QProcess> compositor_;
    uid_t uid_ = 0;
    gid_t gid_ = 0;
    bool switchUser_ = false;
};

class SwaySession final : public WaylandUserSession {
public:
    struct Options {
        int width = 800;
        int height = 600;
        double startTimeout = 20;
    };
    SwaySession();
    explicit SwaySession(Options options);
    ~SwaySession() override;

    // A sway command through swaymsg; true when sway reports success.
    bool command(const QString& text) const;
    // `swaymsg -t get_tree`.
    QJsonDocument tree() const;

private:
    QString swaySocket_;
};

class WestonSession final : public WaylandUserSession {
public:
    explicit WestonSession(bool xwayland, double startTimeout = 20);
    ~WestonSession() override;
    // ":N" when XWayland listens, else empty.
    const QString& x11Display() const { return x11Display_; }
};

}  // namespace lorvane::test
