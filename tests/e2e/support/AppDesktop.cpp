#include "AppDesktop.h"

#include <signal.h>
#include <sys/prctl.h>
#include <xcb/xcb.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <cstdlib>
#include <sstream>

namespace lorvane::test {

namespace {

std::vector<unsigned long> parseIds(const std::string& output) {
    std::vector<unsigned long> ids;
    std::istringstream in(output);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        char* end = nullptr;
        const unsigned long id = std::strtoul(line.c_str(), &end, 10);
        if (end && *end == '\0' && id != 0) ids.push_back(id);
    }
    return ids;
}

}  // namespace


// MARK: ChildProcess

ChildProcess::~ChildProcess() { terminate(std::chrono::seconds(5)); }

bool ChildProcess::start(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment) {
    process_ = std::make_unique<QProcess>();
    process_->setProgram(program);
    process_->setArguments(arguments);
    process_->setProcessEnvironment(environment);
    // The child dies with the test process, however that ends.
    process_->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process_->start();
    return process_->waitForStarted(10000);
}

void ChildProcess::readAvailable() {
    if (!process_) return;
    partial_ += QString::fromUtf8(process_->readAllStandardOutput());
    errors_ += QString::fromUtf8(process_->readAllStandardError());
    for (;;) {
        const auto end = partial_.indexOf(QLatin1Char('\n'));
        if (end < 0) break;
        lines_ << partial_.left(end);
        partial_.remove(0, end + 1);
    }
}

bool ChildProcess::waitForLine(const QString& prefix, std::chrono::milliseconds bound) {
    QElapsedTimer timer;
    timer.start();
    qsizetype checked = 0;
    for (;;) {
        readAvailable();
        for (; checked < lines_.size(); ++checked) {
            if (lines_[checked].startsWith(prefix)) return true;
        }
        if (!running() || timer.elapsed() > bound.count()) return false;
        process_->waitForReadyRead(50);
    }
}

int ChildProcess::terminate(std::chrono::milliseconds bound) {
    if (!process_) return -1;
    if (process_->state() != QProcess::NotRunning) {
        process_->terminate();
        if (!process_->waitForFinished(static_cast<int>(bound.count()))) {
            process_->kill();
            process_->waitForFinished(5000);
            readAvailable();
            return -1;
        }
    }
    readAvailable();
    return process_->exitStatus() == QProcess::NormalExit ? process_->exitCode() : -1;
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds bound) {
    if (!process_) return std::nullopt;
    if (process_->state() != QProcess::NotRunning && !process_->waitForFinished(static_cast<int>(bound.count()))) {
        return std::nullopt;
    }
    readAvailable();
    return process_->exitStatus() == QProcess::NormalExit ? process_->exitCode() : -1;
}

QString ChildProcess::output() const { return lines_.join(QLatin1Char('\n')) + partial_ + errors_; }

// MARK: AppDesktop

AppDesktop::AppDesktop() : AppDesktop(Options{}) {}

AppDesktop::AppDesktop(Options options) : options_(options) {
    if (!home_.isValid()) {
        error_ = "no temporary home folder";
        return;
    }
    for (const char* dir : {"config", "data", "cache", "xdg"}) QDir(home_.path()).mkpath(QString::fromLatin1(dir));

    XSession::Options xOptions;
    xOptions.width = options.width;
    xOptions.height = options.height;
    x_ = std::make_unique<XSession>(xOptions);
    if (!x_->isRunning()) {
        error_ = "X session: " + x_->error();
        return;
    }
    bus_ = std::make_unique<SessionBus>();
    if (!bus_->isRunning()) {
        error_ = "session bus: " + bus_->error();
        return;
    }
    if (options.sound) {
        pulse_ = std::make_unique<PulseServer>();
        if (!pulse_->running()) {
            error_ = "sound server: " + pulse_->why();
            return;
        }
    }
    connection_ = QDBusConnection::connectToBus(QString::fromStdString(bus_->address()),
                                                QStringLiteral("lorvane-e2e-%1").arg(reinterpret_cast<quintptr>(this)));
    if (!connection_.isConnected()) {
        error_ = "cannot connect to the private bus";
        return;
    }
    tray_ = std::make_unique<TrayClient>(connection_);
    if (options.trayWatcher && !startTrayWatcher()) {
        error_ = "StatusNotifier watcher did not start: " + watcher_->output().toStdString();
    }
}

bool AppDesktop::startTrayWatcher() {
    watcher_ = std::make_unique<ChildProcess>();
    return watcher_->start(QStringLiteral(LORVANE_TEST_SNI_WATCHER), {}, environment()) &&
           watcher_->waitForLine(QStringLiteral("ready"), std::chrono::seconds(15));
}

void AppDesktop::stopTrayWatcher() {
    if (watcher_) watcher_->terminate(std::chrono::seconds(5));
    // Gone from the bus as well, not only ended.
    waitFor([&] {
        const QDBusReply<bool> owned =
            connection_.interface()->isServiceRegistered(QStringLiteral("org.kde.StatusNotifierWatcher"));
        return owned.isValid() && !owned.value();
    }, std::chrono::seconds(10));
}

std::optional<QString> AppDesktop::uniqueNameOf(qint64 pid) const {
    if (!connection_.isConnected() || pid <= 0) return std::nullopt;
    const QDBusReply<QStringList> names = connection_.interface()->registeredServiceNames();
    if (!names.isValid()) return std::nullopt;
    for (const QString& name : names.value()) {
        if (!name.startsWith(QLatin1Char(':'))) continue;
        const QDBusReply<uint> owner = connection_.interface()->servicePid(name);
        if (owner.isValid() && static_cast<qint64>(owner.value()) == pid) return name;
    }
    return std::nullopt;
}

AppDesktop::~AppDesktop() {
    if (watcher_) watcher_->terminate(std::chrono::seconds(5));
    if (connection_.isConnected()) QDBusConnection::disconnectFromBus(connection_.name());
}

QProcessEnvironment AppDesktop::environment() const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString home = home_.path();
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/cache"));
    // No system-wide autostart entries or settings of the machine leak in.
    environment.insert(QStringLiteral("XDG_CONFIG_DIRS"), home + QStringLiteral("/xdg"));
    environment.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    environment.remove(QStringLiteral("SESSION_MANAGER"));
    if (x_) {
        environment.insert(QStringLiteral("DISPLAY"), QString::fromStdString(x_->display()));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), QString::fromStdString(x_->runtimeDirectory()));
    }
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    if (bus_) environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromStdString(bus_->address()));
    // PulseServer points this process's PULSE_* variables at the private server while it lives.
    if (!pulse_) environment.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:/nonexistent"));
    return environment;
}

QString AppDesktop::programPath() const { return QStringLiteral(LORVANE_PROGRAM); }

QString AppDesktop::settingsFile() const { return home_.path() + QStringLiteral("/config/Tarnhollow/Lorvane.conf"); }

bool AppDesktop::launch(ChildProcess& process, const QStringList& arguments) const {
    return process.start(programPath(), arguments, environment());
}

bool AppDesktop::launchAndWaitForTray(ChildProcess& process, std::chrono::milliseconds bound,
                                      const QStringList& arguments) const {
    if (!launch(process, arguments)) return false;
    return waitFor([&] { return !tray_->registeredItems().isEmpty() && tray_->layout().has_value(); }, bound);
}

std::vector<unsigned long> AppDesktop::windowsNamed(const std::string& title, bool onlyVisible) const {
    std::vector<std::string> argv{"xdotool", "search"};
    if (onlyVisible) argv.push_back("--onlyvisible");
    argv.insert(argv.end(), {"--name", "^" + title + "$"});
    return parseIds(x_->run(argv).output);
}

std::vector<unsigned long> AppDesktop::windowsOfClass(const std::string& windowClass, bool onlyVisible) const {
    std::vector<std::string> argv{"xdotool", "search"};
    if (onlyVisible) argv.push_back("--onlyvisible");
    argv.insert(argv.end(), {"--class", windowClass});
    return parseIds(x_->run(argv).output);
}

bool AppDesktop::isViewable(unsigned long window) const {
    const auto result = x_->run({"xwininfo", "-id", std::to_string(window)});
    return result.status == 0 && result.output.find("Map State: IsViewable") != std::string::npos;
}

std::optional<AppDesktop::Geometry> AppDesktop::geometry(unsigned long window) const {
    const auto result = x_->run({"xwininfo", "-id", std::to_string(window)});
    if (result.status != 0) return std::nullopt;
    Geometry geometry;
    const auto field = [&](const std::string& name) -> std::optional<int> {
        const auto at = result.output.find(name);
        if (at == std::string::npos) return std::nullopt;
        return std::atoi(result.output.c_str() + at + name.size());
    };
    const auto x = field("Absolute upper-left X:");
    const auto y = field("Absolute upper-left Y:");
    const auto width = field("Width:");
    const auto height = field("Height:");
    if (!x || !y || !width || !height) return std::nullopt;
    return Geometry{*x, *y, *width, *height};
}

std::string AppDesktop::property(unsigned long window, const std::string& name) const {
    return x_->run({"xprop", "-id", std::to_string(window), name}).output;
}

std::optional<AppDesktop::Colour> AppDesktop::vividColour(const Geometry& area) const {
    xcb_connection_t* connection = xcb_connect(x_->display().c_str(), nullptr);
    if (!connection || xcb_connection_has_error(connection)) {
        if (connection) xcb_disconnect(connection);
        return std::nullopt;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    std::optional<Colour> answer;
    auto cookie = xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, static_cast<int16_t>(area.x),
                                static_cast<int16_t>(area.y), static_cast<uint16_t>(area.width),
                                static_cast<uint16_t>(area.height), ~0u);
    if (xcb_get_image_reply_t* reply = xcb_get_image_reply(connection, cookie, nullptr)) {
        const uint8_t* data = xcb_get_image_data(reply);
        const int length = xcb_get_image_data_length(reply);
        Colour sum;
        // 32 bits per pixel, blue green red unused, as Xvfb's 24-bit visual stores them.
        for (int i = 0; i + 3 < length; i += 4) {
            const int blue = data[i], green = data[i + 1], red = data[i + 2];
            // Only vivid pixels: the wave, not grey window chrome or the dark background.
            const int brightest = std::max({red, green, blue});
            if (brightest < 90 || brightest - std::min({red, green, blue}) < 60) continue;
            sum.red += red;
            sum.green += green;
            sum.blue += blue;
            ++sum.pixels;
        }
        if (sum.pixels > 0) {
            sum.red /= sum.pixels;
            sum.green /= sum.pixels;
            sum.blue /= sum.pixels;
        }
        answer = sum;
        std::free(reply);
    }
    xcb_disconnect(connection);
    return answer;
}

}  // namespace lorvane::test
