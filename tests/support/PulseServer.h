#pragma once
// A private PulseAudio server for tests, so that nothing ever touches the user's own sound server.
//
//   lorvane::test::PulseServer server;        // starts it; check server.running()
//   ... PulseAudio clients of this process (and the pactl it runs) now talk to it ...
//                                             // destroying it stops the server and removes its files
//
// The server lives in a fresh temporary directory (its HOME, runtime and state directories, socket,
// cookie and log), has one null sink "lorvane_null" (48000 Hz, float32, stereo) as its default sink and
// no sound card. While the object lives, PULSE_SERVER, PULSE_COOKIE and PULSE_CLIENTCONFIG of this
// process point at it (autospawn off); the destructor puts the previous values back. The server is
// started with PR_SET_PDEATHSIG, so it also dies when the test program crashes.
//
// Running as root: pulseaudio only warns ("not intended to be run as root") when it is given a HOME and
// XDG_RUNTIME_DIR of its own, so the same command works for root and for ordinary users.
//
// Access::refused makes a server that rejects this process's clients with PA_ERR_ACCESS: clients are
// pointed at a TCP socket on 127.0.0.1 that requires a cookie they do not have (a Unix socket cannot
// refuse a client of the same user: the server accepts matching credentials without a cookie). The
// harness itself keeps using an open Unix socket for its own pactl commands.
//
// Only one PulseServer per process at a time (it owns the process's PulseAudio environment). Separate
// test processes may run side by side: each server has its own directory and socket.

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace lorvane::test {

class PulseServer {
public:
    enum class Access { open, refused };

    explicit PulseServer(Access access = Access::open);
    ~PulseServer();
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;

    // True once the server answers; when false, why() says what went wrong (including its log).
    bool running() const { return pid_ > 0; }
    std::string why() const;

    static constexpr const char* defaultSink = "lorvane_null";

    // Where clients of this process connect ("unix:..." or, for a refusing server, "tcp:...").
    const std::string& clientAddress() const { return clientAddress_; }
    const std::string& directory() const { return directory_; }
    pid_t pid() const { return pid_; }

    struct CommandResult {
        int status = -1;  // exit status; -1 when it could not run or timed out
        std::string output;
        bool ok() const { return status == 0; }
    };
    // Runs pactl against this server (over its open Unix socket), waiting at most `bound`.
    CommandResult pactl(const std::vector<std::string>& arguments,
                        std::chrono::milliseconds bound = std::chrono::seconds(10)) const;

    // Adds another null sink (48000 Hz, float32, stereo); true on success.
    bool addNullSink(const std::string& name);
    // Removes a sink made by addNullSink(), as if the device were unplugged.
    bool removeNullSink(const std::string& name);
    bool setDefaultSink(const std::string& name);
    // Sets a sink's volume like a user would, e.g. "50%".
    bool setSinkVolume(const std::string& sink, const std::string& volume);
    // The record streams the server holds (pactl list short source-outputs), or -1 when it cannot tell.
    int recordStreamCount() const;
    // The name of the source each record stream reads from, in the server's order.
    std::vector<std::string> recordStreamSources() const;
    // The clients of process `pid` (with this application id, when one is given), or -1 when the server
    // cannot tell.
    int clientCount(pid_t pid, const std::string& applicationId = {}) const;

    // Ends the server abruptly (SIGKILL), as a crashing sound server would.
    void kill();
    // Ends the server politely (SIGTERM, SIGKILL after a bound) and waits for it.
    void stop();
    // Starts it again, on the same socket and directory, after kill() or stop().
    bool restart();
    // Freezes and thaws the server (SIGSTOP / SIGCONT): it then answers no one.
    void pause();
    void resume();

private:
    bool launch();
    bool waitUntilAnswering(std::chrono::milliseconds bound);
    void reap(std::chrono::milliseconds bound);
    void setEnvironment(const char* name, const std::string& value);

    Access access_;
    std::string directory_;
    std::string controlAddress_;
    std::string clientAddress_;
    std::string failure_;
    pid_t pid_ = -1;
    bool paused_ = false;
    std::vector<std::pair<std::string, std::optional<std::string>>> savedEnvironment_;
};

}  // namespace lorvane::test
