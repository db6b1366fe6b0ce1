// The program's own files on hostile file systems: links out of the home, to devices, dangling;
// lock files in the way; a FIFO where the settings file should be; paths no entry can carry.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QSysInfo>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

// The Qt application comes from PlatformTest.cpp's test environment (one per test program).
#include "app/QtTestEnvironment.h"
#include "core/DesktopEntry.h"
#include "core/OverlayPreferences.h"
#include "platform/linux/QSettingsStore.h"
#include "platform/linux/UserFiles.h"
#include "platform/linux/XdgAutostartLoginItem.h"

using namespace lorvane;
using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {


QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

void writeProgram(const QString& path, const QString& marker) {
    writeFile(path, QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" > '%1.tmp' && mv '%1.tmp' '%1'\n")
                        .arg(marker)
                        .toUtf8());
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// A home folder and, next to it, a place outside it.
class HostileFiles : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(root.isValid());
        ASSERT_TRUE(QDir().mkpath(home()));
        ASSERT_TRUE(QDir().mkpath(outside()));
    }
    QString home() const { return root.filePath("home"); }
    QString outside() const { return root.filePath("elsewhere"); }
    // A character device node outside the home (a copy of /dev/null); empty when it cannot be made.
    QString deviceNode() const {
        const QString path = root.filePath("elsewhere/null");
        if (::mknod(QFile::encodeName(path).constData(), S_IFCHR | 0666, makedev(1, 3)) != 0) return {};
        return path;
    }
    static void link(const QString& target, const QString& at) {
        QDir().mkpath(QFileInfo(at).absolutePath());
        ASSERT_EQ(::symlink(QFile::encodeName(target).constData(), QFile::encodeName(at).constData()), 0);
    }
    QTemporaryDir root;
};

}  // namespace

// MARK: The file writer

TEST_F(HostileFiles, WritesReplaceAtomicallyAndKeepTheFileMode) {
    const QString path = home() + "/a.conf";
    writeFile(path, "old");
    ASSERT_TRUE(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    EXPECT_EQ(userfiles::writeAtomically(path, "new", home()), std::nullopt);
    EXPECT_EQ(readAll(path), "new");
    EXPECT_EQ(QFile::permissions(path), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadUser |
                                            QFile::WriteUser);
    EXPECT_EQ(QDir(home()).entryList(QDir::Files | QDir::Hidden), QStringList{"a.conf"});
}

TEST_F(HostileFiles, ALinkToARegularFileInsideTheHomeIsWrittenThrough) {
    const QString target = home() + "/real/a.conf";
    writeFile(target, "old");
    link(target, home() + "/a.conf");
    EXPECT_EQ(userfiles::writeAtomically(home() + "/a.conf", "new", home()), std::nullopt);
    EXPECT_EQ(readAll(target), "new");
    EXPECT_TRUE(QFileInfo(home() + "/a.conf").isSymLink());
}

TEST_F(HostileFiles, LinksOutOfTheHomeToDevicesOrNowhereAreRefused) {
    const QString outsideFile = outside() + "/b.conf";
    writeFile(outsideFile, "untouched");
    link(outsideFile, home() + "/out.conf");
    link(outside() + "/missing.conf", home() + "/dangling.conf");
    const auto out = userfiles::writeAtomically(home() + "/out.conf", "new", home());
    ASSERT_TRUE(out);
    EXPECT_TRUE(out->contains("outside your home")) << out->toStdString();
    EXPECT_EQ(readAll(outsideFile), "untouched");
    const auto dangling = userfiles::writeAtomically(home() + "/dangling.conf", "new", home());
    ASSERT_TRUE(dangling);
    EXPECT_TRUE(dangling->contains("does not exist")) << dangling->toStdString();
    EXPECT_FALSE(QFileInfo::exists(outside() + "/missing.conf"));
    const QString device = deviceNode();
    if (!device.isEmpty()) {
        link(device, home() + "/device.conf");
        const auto refused = userfiles::writeAtomically(home() + "/device.conf", "new", home());
        ASSERT_TRUE(refused);
        EXPECT_TRUE(refused->contains("not a regular file")) << refused->toStdString();
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(device).constData(), &info), 0);
        EXPECT_TRUE(S_ISCHR(info.st_mode));
    }
    // A special file at the path itself is never replaced.
    ASSERT_EQ(::mkfifo(QFile::encodeName(home() + "/fifo.conf").constData(), 0600), 0);
    EXPECT_TRUE(userfiles::writeAtomically(home() + "/fifo.conf", "new", home()));
    EXPECT_EQ(userfiles::kindAt(home() + "/fifo.conf"), userfiles::Kind::notRegular);
}

// MARK: The settings file

TEST_F(HostileFiles, SettingsThroughLinksOutOfTheHomeStayInMemoryWithAReason) {
    const QString outsideFile = outside() + "/Lorvane.conf";
    writeFile(outsideFile, "[General]\nwaveColor=ocean\n");
    const QString device = deviceNode();
    struct Case {
        QString target;
        QString reason;
    };
    std::vector<Case> cases{{outsideFile, "outside your home"}, {outside() + "/none.conf", "does not exist"}};
    if (!device.isEmpty()) cases.push_back({device, "not a regular file"});
    for (const Case& c : cases) {
        const QString path = home() + "/settings-" + QFileInfo(c.target).fileName();
        link(c.target, path);
        const auto store = std::make_shared<QSettingsStore>(path, home());
        OverlayPreferences preferences(store);
        preferences.setColor(WaveColor::neon);
        EXPECT_FALSE(store->lastWriteSucceeded());
        ASSERT_TRUE(store->saveProblem()) << c.target.toStdString();
        EXPECT_NE(store->saveProblem()->find(c.reason.toStdString()), std::string::npos) << *store->saveProblem();
        EXPECT_EQ(preferences.color(), WaveColor::neon);
        EXPECT_TRUE(store->hasUnsavedChanges());
    }
    EXPECT_EQ(readAll(outsideFile), "[General]\nwaveColor=ocean\n");
    EXPECT_FALSE(QFileInfo::exists(outside() + "/none.conf"));
}

TEST_F(HostileFiles, SettingsThroughALinkInsideTheHomeAreWrittenThrough) {
    const QString target = home() + "/dotfiles/Lorvane.conf";
    writeFile(target, "[General]\nautoShow=false\n");
    link(target, home() + "/Lorvane.conf");
    const auto store = std::make_shared<QSettingsStore>(home() + "/Lorvane.conf", home());
    OverlayPreferences preferences(store);
    EXPECT_FALSE(preferences.autoShow());
    preferences.setColor(WaveColor::neon);
    EXPECT_TRUE(store->lastWriteSucceeded());
    EXPECT_EQ(store->saveProblem(), std::nullopt);
    EXPECT_TRUE(readAll(target).contains("waveColor=neon"));
    EXPECT_TRUE(QFileInfo(home() + "/Lorvane.conf").isSymLink());
}

TEST_F(HostileFiles, AFifoAtTheSettingsPathReadsAsDefaultsWithoutBlocking) {
    const QString path = home() + "/Lorvane.conf";
    ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    // Opening the FIFO for reading would block until a writer came: the constructor must return.
    const auto store = std::make_shared<QSettingsStore>(path, home());
    OverlayPreferences preferences(store);
    EXPECT_EQ(preferences.color(), WaveColor::cyan);
    ASSERT_TRUE(store->saveProblem());
    preferences.setAutoShow(false);
    EXPECT_FALSE(preferences.autoShow());
    EXPECT_FALSE(store->lastWriteSucceeded());
    EXPECT_EQ(userfiles::kindAt(path), userfiles::Kind::notRegular);
}

TEST_F(HostileFiles, ALockFolderOrAForeignLockCostsABoundedWaitAndIsReported) {
    const QString path = home() + "/Lorvane.conf";
    for (const bool folder : {true, false}) {
        const QString lock = path + ".lock";
        QFile::remove(lock);
        QDir(lock).removeRecursively();
        if (folder) {
            ASSERT_TRUE(QDir().mkpath(lock));
        } else {
            // A lock held by a live process (this one), freshly written: not stale for QLockFile.
            writeFile(lock, QByteArray::number(static_cast<qint64>(::getpid())) + "\n" +
                                QFileInfo(QCoreApplication::applicationFilePath()).fileName().toUtf8() + "\n" +
                                QSysInfo::machineHostName().toUtf8() + "\n");
        }
        const auto store = std::make_shared<QSettingsStore>(path, home());
        store->setLockBound(50ms);
        OverlayPreferences preferences(store);
        QElapsedTimer clock;
        clock.start();
        preferences.setPosition(OverlayPosition::top);
        // The bound is the lock's try time; the check only proves the wait is not unbounded.
        EXPECT_LT(clock.elapsed(), 5000);
        EXPECT_FALSE(store->lastWriteSucceeded());
        ASSERT_TRUE(store->saveProblem());
        EXPECT_NE(store->saveProblem()->find("lock"), std::string::npos) << *store->saveProblem();
        EXPECT_EQ(preferences.position(), OverlayPosition::top);
        int told = 0;
        store->saveProblemDidChange = [&] { ++told; };
        // Once the lock is gone, the retry saves what was kept in memory and the problem clears.
        QFile::remove(lock);
        QDir(lock).removeRecursively();
        store->setRetryInterval(10ms);
        ASSERT_TRUE(waitUntil([&] { return !store->hasUnsavedChanges(); }, 5s));
        EXPECT_EQ(store->saveProblem(), std::nullopt);
        EXPECT_EQ(told, 1);
        EXPECT_TRUE(readAll(path).contains("overlayPosition=top"));
        QFile::remove(path);
    }
}

// MARK: The autostart entry

namespace {

class HostileAutostart : public HostileFiles {
protected:
    QString user() const { return home() + "/.config/autostart"; }
    QString entryPath() const { return user() + "/com.tarnhollow.Lorvane.desktop"; }
    XdgAutostartLoginItem item(const QString& program) const {
        return XdgAutostartLoginItem(program, user(), {root.filePath("xdg/autostart")}, home());
    }
};

}  // namespace

TEST_F(HostileAutostart, EntriesLinkedOutOfTheHomeToDevicesOrNowhereAreLeftAlone) {
    const QString program = home() + "/bin/lorvane";
    writeProgram(program, root.filePath("ran"));
    const QString outsideFile = outside() + "/entry.desktop";
    writeFile(outsideFile, "untouched");
    std::vector<QString> targets{outsideFile, outside() + "/none.desktop"};
    const QString device = deviceNode();
    if (!device.isEmpty()) targets.push_back(device);
    for (const QString& target : targets) {
        QFile::remove(entryPath());
        link(target, entryPath());
        auto login = item(program);
        const auto error = login.registerItem();
        ASSERT_TRUE(error) << target.toStdString();
        EXPECT_FALSE(error->empty());
        EXPECT_FALSE(login.isEnabled());
        EXPECT_TRUE(QFileInfo(entryPath()).isSymLink());
    }
    EXPECT_EQ(readAll(outsideFile), "untouched");
    EXPECT_FALSE(QFileInfo::exists(outside() + "/none.desktop"));

    // A link to a regular file inside the home is written through.
    const QString inside = home() + "/dotfiles/lorvane-autostart.desktop";
    writeFile(inside, "");
    QFile::remove(entryPath());
    link(inside, entryPath());
    auto login = item(program);
    EXPECT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
    EXPECT_TRUE(readAll(inside).contains("--background"));
}

TEST_F(HostileAutostart, AHostilePathGivesOneExecKeyThatALauncherReadsBack) {
    // (A percent sign is left out: GLib looks the program up before it reads %% as %.)
    const QString folder = home() + "/it's a \"quoted\" $dir `x` \\ ~;&|";
    const QString program = folder + "/lorvane";
    const QString marker = root.filePath("ran");
    writeProgram(program, marker);
    auto login = item(program);
    ASSERT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
    const QByteArray text = readAll(entryPath());
    EXPECT_EQ(text.count("\nExec="), 1);
    EXPECT_EQ(text.count("\n["), 0);
    const auto parsed = desktopentry::parse(text.toStdString());
    EXPECT_EQ(parsed.duplicateKeys, 0);
    EXPECT_EQ(parsed.groups.size(), 1u);

    const QString validator = QStandardPaths::findExecutable("desktop-file-validate");
    if (validator.isEmpty()) {
        GTEST_SKIP() << "desktop-file-validate is missing (Debian package desktop-file-utils)";
    }
    QProcess validate;
    validate.start(validator, {entryPath()});
    ASSERT_TRUE(validate.waitForFinished(30000));
    EXPECT_EQ(validate.exitCode(), 0) << validate.readAllStandardOutput().toStdString();
    EXPECT_EQ(validate.readAllStandardOutput().trimmed(), QByteArray());

    // GLib's own Desktop Entry reader launches it: the program gets its path and --background.
    const QString gio = QStandardPaths::findExecutable("gio");
    if (gio.isEmpty()) GTEST_SKIP() << "gio is missing (Debian package libglib2.0-bin)";
    QProcess launch;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("DBUS_SESSION_BUS_ADDRESS");
    launch.setProcessEnvironment(environment);
    launch.start(gio, {"launch", entryPath()});
    ASSERT_TRUE(launch.waitForFinished(30000));
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(marker); }, 20s)) << launch.readAllStandardError().toStdString();
    EXPECT_EQ(QString::fromUtf8(readAll(marker)), program + "\n--background\n");
}

TEST_F(HostileAutostart, APathWithANewlineIsRefusedAndWritesNothing) {
    const QString program = home() + "/a\"b\nExec=touch pwned\n[x]/lorvane";
    writeProgram(program, root.filePath("ran"));
    auto login = item(program);
    const auto error = login.registerItem();
    ASSERT_TRUE(error);
    EXPECT_NE(error->find("cannot carry"), std::string::npos) << *error;
    EXPECT_FALSE(QFileInfo::exists(entryPath()));
    EXPECT_FALSE(login.isEnabled());
}

TEST_F(HostileAutostart, TheTickFollowsTheEntryAndTheProgramItStarts) {
    const QString program = home() + "/bin/lorvane";
    writeProgram(program, root.filePath("ran"));
    auto login = item(program);
    ASSERT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.isEnabled());
    ASSERT_TRUE(QFile::remove(program));
    EXPECT_FALSE(login.isEnabled()) << "an entry whose program is gone starts nothing";
    writeProgram(program, root.filePath("ran"));
    EXPECT_TRUE(login.isEnabled());
    ASSERT_TRUE(QFile::remove(entryPath()));
    EXPECT_FALSE(login.isEnabled());
}

TEST_F(HostileAutostart, AnEntryUnderTheOldNameIsReplacedByOneUnderTheNewName) {
    const QString program = home() + "/bin/lorvane";
    writeProgram(program, root.filePath("ran"));
    const QString legacy = user() + "/lorvane.desktop";
    writeFile(legacy, "[Desktop Entry]\nType=Application\nName=Lorvane\nExec=/old/build/lorvane\n"
                      "X-GNOME-Autostart-enabled=true\n");
    auto login = item(program);
    EXPECT_TRUE(login.migrateLegacyEntry());
    EXPECT_FALSE(QFileInfo::exists(legacy));
    EXPECT_TRUE(readAll(entryPath()).contains("Exec=" + program.toUtf8() + " --background\n"));
    EXPECT_TRUE(login.isEnabled());
    // Another program's entry under that name is not ours to replace.
    const QByteArray foreign = "[Desktop Entry]\nType=Application\nName=Something Else\nExec=/bin/true\n";
    writeFile(legacy, foreign);
    ASSERT_TRUE(QFile::remove(entryPath()));
    EXPECT_FALSE(login.migrateLegacyEntry());
    EXPECT_EQ(readAll(legacy), foreign);
    EXPECT_FALSE(login.isEnabled());
}

TEST_F(HostileAutostart, ADevelopmentBuildSaysSoWhileTheEntryStartsIt) {
    const QString program = home() + "/build/src/app/lorvane";
    writeProgram(program, root.filePath("ran"));
    auto login = item(program);
    login.setDevelopmentBuild(true);
    EXPECT_TRUE(login.developmentBuildWarning().isEmpty());
    ASSERT_EQ(login.registerItem(), std::nullopt);
    EXPECT_TRUE(login.developmentBuildWarning().contains(program));
    ASSERT_EQ(login.unregisterItem(), std::nullopt);
    EXPECT_TRUE(login.developmentBuildWarning().isEmpty());
}
