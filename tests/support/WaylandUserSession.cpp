#include "support/WaylandUserSession.h"

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include "support/EventLoopWait.h"

namespace lorvane::test {

namespace {

constexpr const char* testUser = "lorvane-test";

// The test user, made on first use (a fresh CI machine has none).
bool ensureUser(uid_t& uid, gid_t& gid, QString& error) {
    passwd* entry = getpwnam(testUser);
    if (!entry) {
        QProcess useradd;
        useradd.start(QStringLiteral("useradd"), {"--system", "--no-create-home", "--shell", "/usr/sbin/nologin",
                                                  QString::fromLatin1(testUser)});
        useradd.waitForFinished(30000);
        entry = getpwnam(testUser);
        if (!entry) {
            error = QStringLiteral("cannot create the test user %1: %2")
                        .arg(QString::fromLatin1(testUser), QString::fromLocal8Bit(useradd.readAllStandardError()));
            return false;
        }
    }
    uid = entry->pw_uid;
    gid = entry->pw_gid;
    return true;
}

}  // namespace

WaylandUserSession::WaylandUserSession() = default;

WaylandUserSession::~WaylandUserSession() {
    if (compositor_ && compositor_->state() != QProcess::NotRunning) {
        compositor_->terminate();
        if (!compositor_->waitForFinished(3000)) {
            compositor_->kill();
            compositor_->waitForFinished(3000);
        }
    }
    if (!runtimeDirectory_.isEmpty()) QDir(runtimeDirectory_).removeRecursively();
}

bool WaylandUserSession::prepare() {
    uid_ = getuid();
    gid_ = getgid();
    if (uid_ == 0) {
        if (!ensureUser(uid_, gid_, error_)) return false;
        switchUser_ = true;
    }
    QByteArray pattern = QDir::tempPath().toLocal8Bit() + "/lorvane-wayland-XXXXXX";
    if (!mkdtemp(pattern.data())) {
        error_ = QStringLiteral("cannot create a runtime directory");
        return false;
    }
    runtimeDirectory_ = QString::fromLocal8Bit(pattern);
    chmod(pattern.constData(), 0700);
    if (switchUser_ && chown(pattern.constData(), uid_, gid_) != 0) {
        error_ = QStringLiteral("cannot hand the runtime directory to the test user");
        return false;
    }
    return true;
}

void WaylandUserSession::handOver(const QString& path) const {
    if (switchUser_) (void)!chown(QFile::encodeName(path).constData(), uid_, gid_);
}

QProcessEnvironment WaylandUserSession::environment() const {
    QProcessEnvironment environment;
    const QProcessEnvironment own = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"PATH", "LANG", "LC_ALL", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (own.contains(QString::fromLatin1(name)))
            environment.insert(QString::fromLatin1(name), own.value(QString::fromLatin1(name)));
    }
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDirectory_);
    environment.insert(QStringLiteral("HOME"), runtimeDirectory_);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), runtimeDirectory_ + "/config");
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), runtimeDirectory_ + "/cache");
    if (!socketName_.isEmpty()) environment.insert(QStringLiteral("WAYLAND_DISPLAY"), socketName_);
    if (!x11Display_.isEmpty()) environment.insert(QStringLiteral("DISPLAY"), x11Display_);
    return environment;
}

void WaylandUserSession::configureProcess(QProcess& process, const QProcessEnvironment& extra) const {
    QProcessEnvironment environment = this->environment();
    for (const QString& key : extra.keys()) environment.insert(key, extra.value(key));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(runtimeDirectory_);
    const bool switchUser = switchUser_;
    const uid_t uid = uid_;
    const gid_t gid = gid_;
    const pid_t parent = getpid();
    process.setChildProcessModifier([switchUser, uid, gid, parent] {
        // Dies with the test process; drops to the test user.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        if (switchUser && (setgroups(0, nullptr) != 0 || setgid(gid) != 0 || setuid(uid) != 0)) _exit(126);
    });
}

std::unique_ptr<QProcess> WaylandUserSession::start(const QString& program, const QStringList& arguments,
                                                    const QProcessEnvironment& extra) const {
    auto process = std::make_unique<QProcess>();
    configureProcess(*process, extra);
    process->start(program, arguments);
    return process;
}

WaylandUserSession::CommandResult WaylandUserSession::run(const QString& program, const QStringList& arguments,
                                                          double timeout, const QProcessEnvironment& extra) const {
    CommandResult result;
    auto process = start(program, arguments, extra);
    if (!process->waitForStarted(static_cast<int>(timeout * 1000))) return result;
    if (!process->waitForFinished(static_cast<int>(timeout * 1000))) {
        process->kill();
        process->waitForFinished(3000);
        return result;
    }
    result.output = process->readAllStandardOutput();
    result.errors = process->readAllStandardError();
    result.status = process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1;
    return result;
}

QImage WaylandUserSession::screenshot() const {
    const QString path = runtimeDirectory_ + "/screenshot.png";
    QFile::remove(path);
    if (run(QStringLiteral("grim"), {path}).status != 0) return {};
    return QImage(path).convertToFormat(QImage::Format_RGB32);
}

bool WaylandUserSession::waitForSocket(const QString& name, double timeout) const {
    return waitUntil([&] { return QFileInfo::exists(runtimeDirectory_ + "/" + name) || !compositor_ ||
                                  compositor_->state() == QProcess::NotRunning; },
                     std::chrono::milliseconds(static_cast<int>(timeout * 1000)), std::chrono::milliseconds(20)) &&
           QFileInfo::exists(runtimeDirectory_ + "/" + name);
}

// --- sway

SwaySession::SwaySession() : SwaySession(Options{}) {}

SwaySession::SwaySession(Options options) {
    if (!prepare()) return;
    const QString config = runtimeDirectory_ + "/sway.config";
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) {
        error_ = QStringLiteral("cannot write the sway configuration");
        return;
    }
    file.write(QStringLiteral("xwayland disable\n"
                              "default_border none\n"
                              "default_floating_border none\n"
                              "focus_follows_mouse no\n"
                              // The software cursor would show in screenshots; it hides once still.
                              "seat * hide_cursor 100\n"
                              "output * resolution %1x%2 position 0 0 bg #000000 solid_color\n")
                   .arg(options.width)
                   .arg(options.height)
                   .toUtf8());
    file.close();
    handOver(config);

    QProcessEnvironment extra;
    extra.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    extra.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    extra.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
    socketName_ = QStringLiteral("wayland-lorvane");
    extra.insert(QStringLiteral("WAYLAND_DISPLAY"), QString());  // sway is a client of nothing
    compositor_ = std::make_unique<QProcess>();
    configureProcess(*compositor_, extra);
    compositor_->setStandardOutputFile(runtimeDirectory_ + "/sway.log");
    compositor_->setStandardErrorFile(runtimeDirectory_ + "/sway.log", QIODevice::Append);
    compositor_->start(QStringLiteral("sway"), {"-c", config});
    // sway names its socket wayland-N; the IPC socket appears once it is ready for commands.
    QString ipc;
    waitUntil(
        [&] {
            const QStringList found = QDir(runtimeDirectory_).entryList({"sway-ipc.*.sock"}, QDir::System);
            if (!found.isEmpty()) ipc = runtimeDirectory_ + "/" + found.first();
            return !ipc.isEmpty() || compositor_->state() == QProcess::NotRunning;
        },
        std::chrono::milliseconds(static_cast<int>(options.startTimeout * 1000)), std::chrono::milliseconds(20));
    const QStringList sockets = QDir(runtimeDirectory_).entryList({"wayland-*"}, QDir::System);
    socketName_.clear();
    for (const QString& name : sockets)
        if (!name.endsWith(QLatin1String(".lock"))) socketName_ = name;
    if (ipc.isEmpty() || socketName_.isEmpty()) {
        error_ = QStringLiteral("sway did not start (see %1/sway.log)").arg(runtimeDirectory_);
        return;
    }
    swaySocket_ = ipc;
    // Ready once the output is configured to the asked size.
    const bool ready = waitUntil(
        [&] {
            const QJsonDocument outputs = QJsonDocument::fromJson(
                run(QStringLiteral("swaymsg"), {"-r", "-s", swaySocket_, "-t", "get_outputs"}).output);
            const QJsonArray list = outputs.array();
            if (list.isEmpty()) return false;
            const QJsonObject rect = list.first().toObject().value(QStringLiteral("rect")).toObject();
            return rect.value(QStringLiteral("width")).toInt() == options.width &&
                   rect.value(QStringLiteral("height")).toInt() == options.height;
        },
        std::chrono::milliseconds(static_cast<int>(options.startTimeout * 1000)), std::chrono::milliseconds(50));
    if (!ready) {
        error_ = QStringLiteral("sway's output did not come up (see %1/sway.log)").arg(runtimeDirectory_);
        return;
    }
    running_ = true;
}

SwaySession::~SwaySession() = default;

bool SwaySession::command(const QString& text) const {
    const auto result = run(QStringLiteral("swaymsg"), {"-r", "-s", swaySocket_, text});
    if (result.status != 0) return false;
    const QJsonArray replies = QJsonDocument::fromJson(result.output).array();
    for (const auto& reply : replies)
        if (!reply.toObject().value(QStringLiteral("success")).toBool()) return false;
    return !replies.isEmpty();
}

QJsonDocument SwaySession::tree() const {
    return QJsonDocument::fromJson(run(QStringLiteral("swaymsg"), {"-r", "-s", swaySocket_, "-t", "get_tree"}).output);
}

// --- weston

WestonSession::WestonSession(bool xwayland, double startTimeout) {
    if (!prepare()) return;
    socketName_ = QStringLiteral("wayland-lorvane");
    QStringList arguments{"--backend=headless-backend.so", "--socket=" + socketName_, "--idle-time=0",
                          "--width=800", "--height=600", "--shell=desktop-shell.so"};
    if (xwayland) arguments << QStringLiteral("--xwayland");
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("WAYLAND_DISPLAY"), QString());
    compositor_ = std::make_unique<QProcess>();
    configureProcess(*compositor_, extra);
    compositor_->setStandardOutputFile(runtimeDirectory_ + "/weston.log");
    compositor_->setStandardErrorFile(runtimeDirectory_ + "/weston.log", QIODevice::Append);
    compositor_->start(QStringLiteral("weston"), arguments);
    if (!waitForSocket(socketName_, startTimeout)) {
        error_ = QStringLiteral("weston did not start (see %1/weston.log)").arg(runtimeDirectory_);
        return;
    }
    if (xwayland) {
        // weston says on which display its XWayland listens.
        waitUntil(
            [&] {
                QFile log(runtimeDirectory_ + "/weston.log");
                if (!log.open(QIODevice::ReadOnly)) return false;
                const QByteArray text = log.readAll();
                const int at = text.indexOf("xserver listening on display ");
                if (at < 0) return false;
                const QByteArray rest = text.mid(at + 29);
                x11Display_ = QString::fromLatin1(rest.left(rest.indexOf('\n')).trimmed());
                return true;
            },
            std::chrono::milliseconds(static_cast<int>(startTimeout * 1000)), std::chrono::milliseconds(50));
        if (x11Display_.isEmpty()) {
            error_ = QStringLiteral("weston's XWayland did not start (see %1/weston.log)").arg(runtimeDirectory_);
            return;
        }
    }
    running_ = true;
}

WestonSession::~WestonSession() = default;

}  // namespace lorvane::test
