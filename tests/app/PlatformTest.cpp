// The Linux stand-ins of the login item and of the sound settings, on real files and processes.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include "app/QtTestEnvironment.h"
#include "platform/linux/SoundSettingsLauncher.h"
#include "platform/linux/XdgAutostartLoginItem.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

[[maybe_unused]] auto* const environment = ::testing::AddGlobalTestEnvironment(new QtTestEnvironment);

QString readAll(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll());
}

void writeFile(const QString& path, const QString& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text.toUtf8());
}

// A stand-in for the installed program: an entry counts only while the program it starts exists.
void writeProgram(const QString& path) {
    writeFile(path, "#!/bin/sh\nexit 0\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

class AutostartTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(root.isValid());
        writeProgram(program());
    }
    QString user() const { return root.filePath("config/autostart"); }
    QString system() const { return root.filePath("xdg/autostart"); }
    QString program() const { return root.filePath("bin/lorvane"); }
    QString entry(const QString& extra = {}) const {
        return "[Desktop Entry]\nType=Application\nName=Lorvane\nExec=" + program() + "\n" + extra;
    }
    XdgAutostartLoginItem item(const QString& executable = {}) const {
        return XdgAutostartLoginItem(executable.isEmpty() ? program() : executable, user(), {system()}, root.path());
    }
    QTemporaryDir root;
};

}  // namespace

// MARK: Launch at login

TEST_F(AutostartTest, OffWithoutAnEntry) { EXPECT_FALSE(item().isEnabled()); }

TEST_F(AutostartTest, RegisteringWritesADesktopEntryThatStartsTheProgram) {
    auto login = item();
    EXPECT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
    const QString text = readAll(login.userEntryPath());
    EXPECT_TRUE(text.startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(text.contains("\nType=Application\n"));
    EXPECT_TRUE(text.contains("\nName=Lorvane\n"));
    EXPECT_TRUE(text.contains("\nExec=" + program() + " --background\n"));
    // Tray programs start after the panel.
    EXPECT_TRUE(text.contains("\nX-GNOME-Autostart-Phase=Applications\n"));
    EXPECT_TRUE(text.contains("\nX-KDE-autostart-after=panel\n"));
    EXPECT_TRUE(text.contains("\nX-GNOME-Autostart-Delay="));
    EXPECT_FALSE(text.contains("Hidden=true"));
    EXPECT_EQ(QFileInfo(login.userEntryPath()).fileName(), "com.tarnhollow.Lorvane.desktop");
    // Written atomically: nothing but the entry is left in the folder.
    EXPECT_EQ(QDir(user()).entryList(QDir::Files | QDir::Hidden), QStringList{"com.tarnhollow.Lorvane.desktop"});
}

TEST_F(AutostartTest, UnregisteringRemovesTheEntry) {
    auto login = item();
    ASSERT_EQ(login.registerItem(), std::nullopt);
    EXPECT_EQ(login.unregisterItem(), std::nullopt);
    EXPECT_FALSE(login.isEnabled());
    EXPECT_FALSE(QFileInfo::exists(login.userEntryPath()));
    // Unregistering twice is harmless.
    EXPECT_EQ(login.unregisterItem(), std::nullopt);
}

TEST_F(AutostartTest, AHiddenEntryCountsAsOff) {
    auto login = item();
    writeFile(login.userEntryPath(), entry("Hidden=true\n"));
    EXPECT_FALSE(login.isEnabled());
    writeFile(login.userEntryPath(), entry("X-GNOME-Autostart-enabled=false\n"));
    EXPECT_FALSE(login.isEnabled());
    writeFile(login.userEntryPath(), entry("Hidden=false\n"));
    EXPECT_TRUE(login.isEnabled());
}

TEST_F(AutostartTest, AFileThatIsNoDesktopEntryCountsAsOff) {
    auto login = item();
    writeFile(login.userEntryPath(), "garbage\n\x01\x02 Hidden=false\n");
    EXPECT_FALSE(login.isEnabled());
    // Registering replaces it with a proper entry.
    EXPECT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
}

TEST_F(AutostartTest, ChangesMadeBehindTheProgramsBackAreSeen) {
    auto login = item();
    EXPECT_FALSE(login.isEnabled());
    writeFile(login.userEntryPath(), entry());
    EXPECT_TRUE(login.isEnabled());
    ASSERT_TRUE(QFile::remove(login.userEntryPath()));
    EXPECT_FALSE(login.isEnabled());
}

TEST_F(AutostartTest, ASystemEntryIsHiddenForThisUserWhenUnregistering) {
    auto login = item();
    writeFile(system() + "/com.tarnhollow.Lorvane.desktop", entry());
    EXPECT_TRUE(login.isEnabled());
    EXPECT_EQ(login.unregisterItem(), std::nullopt);
    EXPECT_FALSE(login.isEnabled());
    EXPECT_TRUE(readAll(login.userEntryPath()).contains("\nHidden=true\n"));
    EXPECT_TRUE(QFileInfo::exists(system() + "/com.tarnhollow.Lorvane.desktop"));
    EXPECT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
}

TEST_F(AutostartTest, AnUnwritableFolderGivesAnErrorTextAndNoChange) {
    if (::geteuid() == 0) {
        // Root writes through permissions; a file in the folder's place blocks it for everyone.
        writeFile(root.filePath("config/autostart"), "not a folder");
    } else {
        ASSERT_TRUE(QDir().mkpath(user()));
        ASSERT_EQ(::chmod(QFile::encodeName(user()).constData(), 0500), 0);
    }
    auto login = item();
    const auto error = login.registerItem();
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->empty());
    EXPECT_FALSE(login.isEnabled());
    if (::geteuid() != 0) ::chmod(QFile::encodeName(user()).constData(), 0700);
}

TEST(AutostartExec, ProgramPathsAreQuotedAsDesktopEntriesRequire) {
    EXPECT_EQ(XdgAutostartLoginItem::execValue("/usr/bin/lorvane"), "/usr/bin/lorvane");
    EXPECT_EQ(XdgAutostartLoginItem::execValue("/home/a b/lorvane"), "\"/home/a b/lorvane\"");
    EXPECT_EQ(XdgAutostartLoginItem::execValue("/opt/$x/lorvane"), "\"/opt/\\\\$x/lorvane\"");
    EXPECT_EQ(XdgAutostartLoginItem::execValue("/opt/100%/lorvane"), "\"/opt/100%%/lorvane\"");
}

// MARK: Sound settings

namespace {

// A folder of stand-in programs that note their arguments in a file when run.
class FakePrograms {
public:
    FakePrograms() { EXPECT_TRUE(dir.isValid()); }
    void add(const QString& name) {
        const QString path = dir.filePath(name);
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        QTextStream(&file) << "#!/bin/sh\necho \"" << name << " $*\" > \"" << marker() << ".tmp\" && mv \""
                           << marker() << ".tmp\" \"" << marker() << "\"\n";
        file.close();
        ASSERT_TRUE(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    QString marker() const { return dir.filePath("ran.txt"); }
    QStringList paths() const { return {dir.path()}; }
    QTemporaryDir dir;
};

}  // namespace

TEST(SoundSettings, TheDesktopsOwnPageComesFirst) {
    const auto first = [](const QString& desktop) {
        return SoundSettingsLauncher(desktop, {"/nonexistent"}).candidates().front().program;
    };
    EXPECT_EQ(first("GNOME"), "gnome-control-center");
    EXPECT_EQ(first("ubuntu:GNOME"), "gnome-control-center");
    EXPECT_EQ(first("KDE"), "systemsettings");
    EXPECT_EQ(first("X-Cinnamon"), "cinnamon-settings");
    EXPECT_EQ(first("MATE"), "mate-volume-control");
    EXPECT_EQ(first("LXQt"), "pavucontrol-qt");
    // Elsewhere a plain mixer comes first.
    EXPECT_EQ(first("XFCE"), "pavucontrol");
    EXPECT_EQ(first(""), "pavucontrol");
    const auto kde = SoundSettingsLauncher("KDE", {"/nonexistent"}).candidates();
    EXPECT_EQ(kde.front().arguments, QStringList{"kcm_pulseaudio"});
    // No program is listed twice.
    const auto lxqt = SoundSettingsLauncher("LXQt", {"/nonexistent"}).candidates();
    EXPECT_EQ(std::count_if(lxqt.begin(), lxqt.end(), [](const auto& p) { return p.program == "pavucontrol-qt"; }), 1);
}

TEST(SoundSettings, OpensTheFirstInstalledProgram) {
    FakePrograms programs;
    programs.add("mate-volume-control");
    programs.add("pavucontrol");
    SoundSettingsLauncher launcher("XFCE", programs.paths());
    const auto chosen = launcher.firstAvailable();
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->program, programs.dir.filePath("pavucontrol"));
    launcher.openAudioCaptureSettings();
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(programs.marker()); }));
    EXPECT_EQ(readAll(programs.marker()).trimmed(), "pavucontrol");
}

TEST(SoundSettings, PassesThePageToTheDesktopsSettings) {
    FakePrograms programs;
    programs.add("gnome-control-center");
    programs.add("pavucontrol");
    SoundSettingsLauncher("GNOME", programs.paths()).openAudioCaptureSettings();
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(programs.marker()); }));
    EXPECT_EQ(readAll(programs.marker()).trimmed(), "gnome-control-center sound");
}

TEST(SoundSettings, NothingHappensWhenNoneIsInstalled) {
    FakePrograms programs;
    SoundSettingsLauncher launcher("GNOME", programs.paths());
    EXPECT_FALSE(launcher.firstAvailable());
    launcher.openAudioCaptureSettings();
    drainEvents();
    EXPECT_FALSE(QFileInfo::exists(programs.marker()));
}

namespace {

class RecordingAlerts final : public AlertPresenting {
public:
    void showWarning(const std::string& message, const std::string& informativeText) override {
        shown.emplace_back(message, informativeText);
    }
    std::vector<std::pair<std::string, std::string>> shown;
};

}  // namespace

TEST(SoundSettings, WithNoneInstalledTheUserIsToldWhatToInstall) {
    FakePrograms programs;
    RecordingAlerts alerts;
    SoundSettingsLauncher gnome("GNOME", programs.paths(), &alerts);
    gnome.openAudioCaptureSettings();
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].first, SoundSettingsLauncher::missingMessage);
    EXPECT_NE(alerts.shown[0].second.find("gnome-control-center"), std::string::npos) << alerts.shown[0].second;
    EXPECT_NE(alerts.shown[0].second.find("pavucontrol"), std::string::npos) << alerts.shown[0].second;
    SoundSettingsLauncher plain("", programs.paths(), &alerts);
    plain.openAudioCaptureSettings();
    ASSERT_EQ(alerts.shown.size(), 2u);
    EXPECT_NE(alerts.shown[1].second.find("pavucontrol"), std::string::npos);
    // With a program installed nothing is shown.
    programs.add("pavucontrol");
    plain.openAudioCaptureSettings();
    EXPECT_EQ(alerts.shown.size(), 2u);
    EXPECT_TRUE(waitUntil([&] { return QFileInfo::exists(programs.marker()); }));
}
