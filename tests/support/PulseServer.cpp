#include "support/PulseServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>

namespace lorvane::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& string : strings) result.push_back(string.data());
    result.push_back(nullptr);
    return result;
}

// Forks and execs; the child dies with this process. Everything the child needs is built before fork().
pid_t spawn(std::vector<std::string> argv, std::vector<std::string> env, int outputFd) {
    auto argvPointers = pointers(argv);
    auto envPointers = pointers(env);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    const int devNull = open("/dev/null", O_RDONLY);
    if (devNull >= 0) dup2(devNull, STDIN_FILENO);
    if (outputFd >= 0) {
        dup2(outputFd, STDOUT_FILENO);
        dup2(outputFd, STDERR_FILENO);
    }
    // Leave only the standard descriptors open in the child.
    for (int fd = 3; fd < 1024; ++fd) close(fd);
    execvpe(argvPointers[0], argvPointers.data(), envPointers.data());
    _exit(127);
}

std::vector<std::string> currentEnvironment() {
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) result.emplace_back(*entry);
    return result;
}

std::vector<std::string> withVariables(std::vector<std::string> env,
                                       const std::vector<std::pair<std::string, std::string>>& variables) {
    for (const auto& [name, value] : variables) {
        const std::string prefix = name + "=";
        std::erase_if(env, [&](const std::string& entry) { return entry.starts_with(prefix); });
        env.push_back(prefix + value);
    }
    return env;
}

bool writeFile(const fs::path& path, const std::string& contents) {
    std::ofstream out(path, std::ios::binary);
    out << contents;
    return static_cast<bool>(out);
}

std::string randomBytes(std::size_t count) {
    std::random_device device;
    std::string bytes(count, '\0');
    for (auto& byte : bytes) byte = static_cast<char>(device() & 0xff);
    return bytes;
}

// A TCP port that was free a moment ago; the server start is retried if another process takes it first.
int freeLocalPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    int port = -1;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    close(fd);
    return port;
}

std::string nullSinkArguments(const std::string& name) {
    return "sink_name=" + name + " rate=48000 format=float32le channels=2 channel_map=front-left,front-right";
}

}  // namespace

PulseServer::PulseServer(Access access) : access_(access) {
    std::string pattern = (fs::temp_directory_path() / "lorvane-pulse-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        failure_ = std::string("cannot make a temporary directory: ") + std::strerror(errno);
        return;
    }
    directory_ = pattern;
    const fs::path dir(directory_);
    for (const char* sub : {"home", "runtime", "state", "client"}) fs::create_directories(dir / sub);
    fs::permissions(dir / "runtime", fs::perms::owner_all, fs::perm_options::replace);

    controlAddress_ = "unix:" + (dir / "native").string();
    std::string script = "load-module module-null-sink " + nullSinkArguments(defaultSink) + "\n" +
                         "load-module module-native-protocol-unix auth-anonymous=1 socket=" +
                         (dir / "native").string() + "\n";
    if (access_ == Access::refused) {
        // The server only knows its own cookie; the clients of this process are given another one.
        writeFile(dir / "server-cookie", randomBytes(256));
    }
    script += std::string("set-default-sink ") + defaultSink + "\n";
    writeFile(dir / "server.pa", script);

    // The clients of this process: never autospawn a server, and use a cookie of our own.
    writeFile(dir / "client" / "client.conf", "autospawn = no\nauto-connect-localhost = no\n");
    writeFile(dir / "client" / "cookie", randomBytes(256));

    bool started = false;
    for (int attempt = 0; attempt < 3 && !started; ++attempt) {
        if (access_ == Access::refused) {
            const int port = freeLocalPort();
            std::string tcpScript = script + "load-module module-native-protocol-tcp listen=127.0.0.1 port=" +
                                    std::to_string(port) + " auth-anonymous=0 auth-cookie-enabled=1 auth-cookie=" +
                                    (dir / "server-cookie").string() + "\n";
            writeFile(dir / "server.pa", tcpScript);
            clientAddress_ = "tcp:127.0.0.1:" + std::to_string(port);
        } else {
            clientAddress_ = controlAddress_;
        }
        started = launch();
    }
    if (!started) return;

    setEnvironment("PULSE_SERVER", clientAddress_);
    setEnvironment("PULSE_COOKIE", (dir / "client" / "cookie").string());
    setEnvironment("PULSE_CLIENTCONFIG", (dir / "client" / "client.conf").string());
}

PulseServer::~PulseServer() {
    stop();
    for (auto it = savedEnvironment_.rbegin(); it != savedEnvironment_.rend(); ++it) {
        if (it->second) {
            setenv(it->first.c_str(), it->second->c_str(), 1);
        } else {
            unsetenv(it->first.c_str());
        }
    }
    if (!directory_.empty()) {
        std::error_code ignored;
        fs::remove_all(directory_, ignored);
    }
}

std::string PulseServer::why() const {
    std::string text = failure_;
    std::ifstream log(fs::path(directory_) / "server.log");
    if (log) {
        text += "\nserver log:\n";
        text.append(std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>());
    }
    return text;
}

void PulseServer::setEnvironment(const char* name, const std::string& value) {
    const char* previous = getenv(name);
    savedEnvironment_.emplace_back(name, previous ? std::optional<std::string>(previous) : std::nullopt);
    setenv(name, value.c_str(), 1);
}

bool PulseServer::launch() {
    const fs::path dir(directory_);
    std::error_code ignored;
    fs::remove(dir / "native", ignored);
    const int log = open((dir / "server.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::vector<std::string> argv = {"pulseaudio",
                                     "-n",
                                     "--daemonize=no",
                                     "--system=no",
                                     "--exit-idle-time=-1",
                                     "--use-pid-file=no",
                                     "--realtime=no",
                                     "--high-priority=no",
                                     "--no-cpu-limit=yes",
                                     "--log-target=stderr",
                                     "--log-level=warn",
                                     "-F",
                                     (dir / "server.pa").string()};
    auto env = withVariables(currentEnvironment(), {{"HOME", (dir / "home").string()},
                                                    {"XDG_RUNTIME_DIR", (dir / "runtime").string()},
                                                    {"PULSE_RUNTIME_PATH", (dir / "runtime").string()},
                                                    {"PULSE_STATE_PATH", (dir / "state").string()},
                                                    {"XDG_CONFIG_HOME", (dir / "home" / ".config").string()}});
    std::erase_if(env, [](const std::string& entry) {
        return entry.starts_with("PULSE_SERVER=") || entry.starts_with("PULSE_COOKIE=") ||
               entry.starts_with("DISPLAY=") || entry.starts_with("DBUS_SESSION_BUS_ADDRESS=");
    });
    pid_ = spawn(std::move(argv), std::move(env), log);
    if (log >= 0) close(log);
    if (pid_ < 0) {
        failure_ = std::string("cannot start pulseaudio: ") + std::strerror(errno);
        return false;
    }
    if (!waitUntilAnswering(std::chrono::seconds(15))) {
        failure_ = "pulseaudio did not answer";
        reap(std::chrono::seconds(2));
        return false;
    }
    failure_.clear();
    return true;
}

bool PulseServer::waitUntilAnswering(std::chrono::milliseconds bound) {
    const auto deadline = Clock::now() + bound;
    while (Clock::now() < deadline) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        if (fs::exists(fs::path(directory_) / "native") && pactl({"info"}, std::chrono::seconds(5)).ok()) {
            if (access_ == Access::open) return true;
            // The TCP module is loaded after the Unix socket: wait for it as well.
            const auto modules = pactl({"list", "short", "modules"}).output;
            if (modules.find("module-native-protocol-tcp") != std::string::npos) return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void PulseServer::reap(std::chrono::milliseconds bound) {
    if (pid_ <= 0) return;
    const auto deadline = Clock::now() + bound;
    while (Clock::now() < deadline) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void PulseServer::kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
    paused_ = false;
}

void PulseServer::stop() {
    if (pid_ <= 0) return;
    if (paused_) resume();
    ::kill(pid_, SIGTERM);
    reap(std::chrono::seconds(5));
}

bool PulseServer::restart() {
    if (pid_ > 0 || directory_.empty()) return running();
    return launch();
}

void PulseServer::pause() {
    if (pid_ <= 0 || paused_) return;
    ::kill(pid_, SIGSTOP);
    paused_ = true;
}

void PulseServer::resume() {
    if (pid_ <= 0 || !paused_) return;
    ::kill(pid_, SIGCONT);
    paused_ = false;
}

PulseServer::CommandResult PulseServer::pactl(const std::vector<std::string>& arguments,
                                              std::chrono::milliseconds bound) const {
    CommandResult result;
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return result;
    std::vector<std::string> argv = {"pactl", "--server=" + controlAddress_};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    const fs::path dir(directory_);
    auto env = withVariables(currentEnvironment(), {{"PULSE_COOKIE", (dir / "client" / "cookie").string()},
                                                    {"PULSE_CLIENTCONFIG", (dir / "client" / "client.conf").string()},
                                                    {"LC_ALL", "C"}});
    const pid_t child = spawn(std::move(argv), std::move(env), pipeFds[1]);
    close(pipeFds[1]);
    if (child < 0) {
        close(pipeFds[0]);
        return result;
    }
    const auto deadline = Clock::now() + bound;
    bool timedOut = false;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        pollfd descriptor{pipeFds[0], POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(left)) <= 0) continue;
        char buffer[4096];
        const ssize_t count = read(pipeFds[0], buffer, sizeof buffer);
        if (count <= 0) break;
        result.output.append(buffer, static_cast<std::size_t>(count));
    }
    close(pipeFds[0]);
    if (timedOut) ::kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    if (!timedOut && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

bool PulseServer::addNullSink(const std::string& name) {
    auto arguments = std::vector<std::string>{"load-module", "module-null-sink"};
    std::istringstream words(nullSinkArguments(name));
    for (std::string word; words >> word;) arguments.push_back(word);
    return pactl(arguments).ok();
}

bool PulseServer::removeNullSink(const std::string& name) {
    // Short listing: index, module name, arguments.
    const auto modules = pactl({"list", "short", "modules"});
    std::istringstream lines(modules.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("module-null-sink") == std::string::npos) continue;
        if (line.find("sink_name=" + name + " ") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string index;
        fields >> index;
        return pactl({"unload-module", index}).ok();
    }
    return false;
}

bool PulseServer::setDefaultSink(const std::string& name) { return pactl({"set-default-sink", name}).ok(); }

bool PulseServer::setSinkVolume(const std::string& sink, const std::string& volume) {
    return pactl({"set-sink-volume", sink, volume}).ok();
}

int PulseServer::recordStreamCount() const {
    const auto result = pactl({"list", "short", "source-outputs"});
    if (!result.ok()) return -1;
    int count = 0;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) ++count;
    }
    return count;
}

int PulseServer::clientCount(pid_t pid, const std::string& applicationId) const {
    const auto result = pactl({"list", "clients"});
    if (!result.ok()) return -1;
    const std::string process = "application.process.id = \"" + std::to_string(pid) + "\"";
    const std::string application = "application.id = \"" + applicationId + "\"";
    int count = 0;
    bool ofProcess = false;
    bool ofApplication = false;
    auto endClient = [&] {
        if (ofProcess && (applicationId.empty() || ofApplication)) ++count;
        ofProcess = ofApplication = false;
    };
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("Client #", 0) == 0) endClient();
        if (line.find(process) != std::string::npos) ofProcess = true;
        if (line.find(application) != std::string::npos) ofApplication = true;
    }
    endClient();
    return count;
}

std::vector<std::string> PulseServer::recordStreamSources() const {
    // Short listing: index, source index, client, driver, sample spec. Map source indexes to names.
    std::vector<std::string> names;
    const auto outputs = pactl({"list", "short", "source-outputs"});
    const auto sources = pactl({"list", "short", "sources"});
    if (!outputs.ok() || !sources.ok()) return names;
    std::vector<std::pair<std::string, std::string>> sourceNames;
    std::istringstream sourceLines(sources.output);
    for (std::string line; std::getline(sourceLines, line);) {
        std::istringstream fields(line);
        std::string index, name;
        if (fields >> index >> name) sourceNames.emplace_back(index, name);
    }
    std::istringstream outputLines(outputs.output);
    for (std::string line; std::getline(outputLines, line);) {
        std::istringstream fields(line);
        std::string index, source;
        if (!(fields >> index >> source)) continue;
        std::string name = "?";
        for (const auto& [sourceIndex, sourceName] : sourceNames) {
            if (sourceIndex == source) name = sourceName;
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace lorvane::test
