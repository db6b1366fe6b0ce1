// The user's processes from /proc: a real process named "spotify", and sandboxed applications
// in a directory shaped like /proc.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "TemporaryDirectory.h"
#include "core/MusicPlayer.h"
#include "platform/linux/LinuxRunningApplications.h"
#include "platform/linux/ProcessTable.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

// A real process whose name is that of its program file: a copy of sleep(1) named as asked.
class NamedProcess {
public:
    NamedProcess(const TemporaryDirectory& directory, const std::string& name, std::optional<uid_t> runAs = {}) {
        const std::string program = directory.path() + "/" + name;
        if (!std::filesystem::exists(program)) std::filesystem::copy_file("/bin/sleep", program);
        ::chmod(program.c_str(), 0755);
        ::chmod(directory.path().c_str(), 0755);
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent) ::_exit(127);
            if (runAs && (::setgid(*runAs) != 0 || ::setuid(*runAs) != 0)) ::_exit(126);
            ::execl(program.c_str(), name.c_str(), "60", static_cast<char*>(nullptr));
            ::_exit(127);
        }
    }
    ~NamedProcess() { end(); }
    void end() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

std::optional<ProcessInfo> findIn(const std::vector<ProcessInfo>& processes, pid_t pid) {
    const auto found = std::find_if(processes.begin(), processes.end(),
                                    [&](const ProcessInfo& process) { return process.processIdentifier == pid; });
    if (found == processes.end()) return std::nullopt;
    return *found;
}

// Waits (bounded) until the child has executed its program and so carries its name.
bool waitForName(ProcessTable& table, pid_t pid, const std::string& name) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto process = table.process(pid);
        if (process && process->name == name) return true;
        std::this_thread::sleep_for(2ms);
    }
    return false;
}

}  // namespace

TEST(ProcessTable, RealProcessNamedSpotifyIsRecognised) {
    TemporaryDirectory directory;
    NamedProcess spotify(directory, "spotify");
    ASSERT_GT(spotify.pid(), 0);
    auto table = std::make_shared<ProcessTable>();
    ASSERT_TRUE(waitForName(*table, spotify.pid(), "spotify"));

    const auto listed = findIn(table->processes(), spotify.pid());
    ASSERT_TRUE(listed);
    EXPECT_EQ(listed->name, "spotify");
    EXPECT_FALSE(listed->applicationIdentifier);  // an ordinary process: no sandbox
    EXPECT_TRUE(findIn(table->processes(), ::getpid()));

    LinuxRunningApplications applications(nullptr, table);
    const auto application = applications.runningApplication(spotify.pid());
    ASSERT_TRUE(application);
    EXPECT_EQ(resolveMusicPlayer(application->bundleIdentifier, application->localizedName), MusicPlayer::spotify);
    const auto all = applications.runningApplications();
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const RunningApplication& app) {
        return app.processIdentifier == spotify.pid() &&
               resolveMusicPlayer(app.bundleIdentifier, app.localizedName) == MusicPlayer::spotify;
    }));

    spotify.end();
    EXPECT_FALSE(table->process(listed->processIdentifier));
    EXPECT_FALSE(findIn(table->processes(), listed->processIdentifier));
}

TEST(ProcessTable, OnlyTheOwnersProcessesCount) {
    TemporaryDirectory directory;
    NamedProcess mine(directory, "spotify");
    ProcessTable table;
    ASSERT_TRUE(waitForName(table, mine.pid(), "spotify"));

    const uid_t someoneElse = ::getuid() == 65534 ? 65533 : 65534;
    ProcessTable othersTable("/proc", someoneElse);
    EXPECT_FALSE(othersTable.process(mine.pid()));
    EXPECT_FALSE(findIn(othersTable.processes(), mine.pid()));

    if (::getuid() != 0) GTEST_SKIP() << "starting a process of another user needs root";
    NamedProcess theirs(directory, "spotify", someoneElse);
    ASSERT_TRUE(waitForName(othersTable, theirs.pid(), "spotify"));
    EXPECT_FALSE(findIn(table.processes(), theirs.pid()));
    EXPECT_FALSE(table.process(theirs.pid()));
    EXPECT_TRUE(findIn(othersTable.processes(), theirs.pid()));
}

namespace {

// A directory shaped like /proc with our own mount namespace under self/.
struct ProcFixture : ::testing::Test {
    TemporaryDirectory proc;
    void SetUp() override {
        proc.symlink("self/ns/mnt", "mnt:[4026531840]");
        // A Flatpak application: its own mount namespace, the sandbox's .flatpak-info in its root.
        proc.write("4242/comm", "Main\n");
        proc.symlink("4242/ns/mnt", "mnt:[4026532555]");
        proc.write("4242/root/.flatpak-info",
                   "[Application]\nname=com.spotify.Client\nruntime=runtime/org.freedesktop.Platform/x86_64/23.08\n\n"
                   "[Instance]\ninstance-id=123\n");
        // A snap: its own mount namespace, a snap scope among its cgroups.
        proc.write("4243/comm", "spotify-launche\n");
        proc.symlink("4243/ns/mnt", "mnt:[4026532600]");
        proc.write("4243/cgroup",
                   "0::/user.slice/user-1000.slice/user@1000.service/app.slice/snap.spotify.spotify-4f1e.scope\n");
        // An ordinary process in our namespace: its root is ours, so a .flatpak-info there means nothing.
        proc.write("4244/comm", "bash\n");
        proc.symlink("4244/ns/mnt", "mnt:[4026531840]");
        proc.write("4244/root/.flatpak-info", "[Application]\nname=org.example.NotThis\n");
        // Not processes.
        proc.write("sys/comm", "x\n");
        proc.write("12", "a file\n");
        proc.write("0042/comm", "leading zero\n");
    }
};

}  // namespace

TEST_F(ProcFixture, FlatpakAndSnapApplicationsAreNamedByTheirIdentifiers) {
    auto table = std::make_shared<ProcessTable>(proc.path(), ::getuid());
    auto processes = table->processes();
    std::sort(processes.begin(), processes.end(),
              [](const ProcessInfo& a, const ProcessInfo& b) { return a.processIdentifier < b.processIdentifier; });
    ASSERT_EQ(processes.size(), 3u);
    EXPECT_EQ(processes[0], (ProcessInfo{4242, "Main", std::string("com.spotify.Client")}));
    EXPECT_EQ(processes[1], (ProcessInfo{4243, "spotify-launche", std::string("spotify")}));
    EXPECT_EQ(processes[2], (ProcessInfo{4244, "bash", std::nullopt}));

    LinuxRunningApplications applications(nullptr, table);
    const auto flatpak = applications.runningApplication(4242);
    ASSERT_TRUE(flatpak);
    EXPECT_EQ(flatpak->bundleIdentifier, "com.spotify.Client");
    EXPECT_EQ(flatpak->localizedName, "Main");
    EXPECT_EQ(resolveMusicPlayer(flatpak->bundleIdentifier, flatpak->localizedName), MusicPlayer::spotify);
    EXPECT_FALSE(applications.runningApplication(4244).has_value() &&
                 resolveMusicPlayer(applications.runningApplication(4244)->bundleIdentifier,
                                    applications.runningApplication(4244)->localizedName));
    EXPECT_FALSE(applications.runningApplication(9999));
    EXPECT_EQ(applications.runningApplications().size(), 3u);
}

TEST_F(ProcFixture, SandboxDetailsAreReadOncePerProcessAndAgainWhenItsNameChanges) {
    ProcessTable table(proc.path(), ::getuid());
    ASSERT_EQ(table.process(4242)->applicationIdentifier, "com.spotify.Client");

    proc.write("4242/root/.flatpak-info", "[Application]\nname=org.example.Changed\n");
    EXPECT_EQ(table.process(4242)->applicationIdentifier, "com.spotify.Client");  // not read again
    EXPECT_EQ(findIn(table.processes(), 4242)->applicationIdentifier, "com.spotify.Client");

    // Exec'd anew (or a new process with the same number): a scan notices within its refresh period.
    proc.write("4242/comm", "Other\n");
    std::uint64_t scans = 0;
    std::optional<ProcessInfo> seen;
    while (scans < ProcessTable::nameRefreshScans) {
        ++scans;
        seen = findIn(table.processes(), 4242);
        if (seen && seen->name == "Other") break;
    }
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->name, "Other");
    EXPECT_EQ(seen->applicationIdentifier, "org.example.Changed");

    // A single lookup always reads the process afresh.
    proc.write("4242/comm", "Again\n");
    proc.write("4242/root/.flatpak-info", "[Application]\nname=org.example.Again\n");
    EXPECT_EQ(table.process(4242)->applicationIdentifier, "org.example.Again");
    EXPECT_EQ(findIn(table.processes(), 4242)->name, "Again");

    // A process that ended and a new one with the same number and name is read afresh too.
    std::filesystem::rename(std::filesystem::path(proc.path()) / "4242", std::filesystem::path(proc.path()) / "gone");
    EXPECT_FALSE(findIn(table.processes(), 4242));
    std::filesystem::rename(std::filesystem::path(proc.path()) / "gone", std::filesystem::path(proc.path()) / "4242");
    proc.write("4242/root/.flatpak-info", "[Application]\nname=org.example.Third\n");
    EXPECT_EQ(findIn(table.processes(), 4242)->applicationIdentifier, "org.example.Third");
}

TEST_F(ProcFixture, ProcessesOfOtherOwnersAreLeftOut) {
    ProcessTable table(proc.path(), ::getuid() + 1);
    EXPECT_TRUE(table.processes().empty());
    EXPECT_FALSE(table.process(4242));
}

TEST_F(ProcFixture, WithoutOurOwnNamespaceEveryProcessIsACandidate) {
    std::filesystem::remove(std::filesystem::path(proc.path()) / "self/ns/mnt");
    ProcessTable table(proc.path(), ::getuid());
    EXPECT_EQ(table.process(4242)->applicationIdentifier, "com.spotify.Client");
    EXPECT_EQ(table.process(4244)->applicationIdentifier, "org.example.NotThis");
}

TEST_F(ProcFixture, OddSandboxFilesGiveNoIdentifier) {
    proc.write("4242/root/.flatpak-info", "[Runtime]\nname=org.freedesktop.Platform\n");
    proc.write("4243/cgroup", "0::/user.slice/snap.\n");
    proc.write("4245/comm", "");
    proc.symlink("4245/ns/mnt", "mnt:[1]");
    proc.write("4245/root/.flatpak-info", std::string(100000, '['));
    ProcessTable table(proc.path(), ::getuid());
    EXPECT_FALSE(table.process(4242)->applicationIdentifier);
    EXPECT_FALSE(table.process(4243)->applicationIdentifier);
    const auto odd = table.process(4245);
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->name, "");
    EXPECT_FALSE(odd->applicationIdentifier);
    ProcessTable missingRoot(proc.path() + "/nowhere", ::getuid());
    EXPECT_TRUE(missingRoot.processes().empty());
    EXPECT_FALSE(missingRoot.process(4242));
}
