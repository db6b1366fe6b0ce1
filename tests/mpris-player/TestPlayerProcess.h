#pragma once
// Starts lorvane-test-mpris-player on a given bus for a test and commands it through its standard
// input (the commands are listed at the top of main.cpp). The player is killed when this object
// goes, and by the kernel if the test process dies first.
//
//   SessionBus bus;
//   TestPlayerProcess spotify(bus.address(), {"--name", "spotify", "--identity", "Spotify",
//                                             "--status", "Playing", "--volume", "0.65"});
//   ASSERT_TRUE(spotify.isReady()) << spotify.error();
//   spotify.command("pause");

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace lorvane::test {

class TestPlayerProcess {
public:
    static constexpr auto readyBound = std::chrono::seconds(15);
    static constexpr auto commandBound = std::chrono::seconds(10);

    // Starts the player and waits (bounded) until it owns its bus name.
    TestPlayerProcess(const std::string& busAddress, const std::vector<std::string>& arguments);
    ~TestPlayerProcess();
    TestPlayerProcess(const TestPlayerProcess&) = delete;
    TestPlayerProcess& operator=(const TestPlayerProcess&) = delete;

    bool isReady() const { return ready_; }
    const std::string& error() const { return error_; }
    // "org.mpris.MediaPlayer2.<name>"
    const std::string& busName() const { return busName_; }
    pid_t processIdentifier() const { return process_; }

    // Sends one command line and waits (bounded) for its "ok".
    bool command(const std::string& line);
    // Ends the player at once (SIGKILL) and reaps it.
    void kill();

private:
    bool readLine(std::string& line, std::chrono::milliseconds bound);

    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string buffered_;
    std::string busName_;
    std::string error_;
    bool ready_ = false;
};

}  // namespace lorvane::test
