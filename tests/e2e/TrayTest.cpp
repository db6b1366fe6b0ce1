// The tray as a desktop's tray host sees it: over D-Bus (StatusNotifierItem and dbusmenu), on a private
// desktop with the real program, a test StatusNotifier watcher and, where music plays, a private
// sound server and the test MPRIS player.

#include <gtest/gtest.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QElapsedTimer>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "AppDesktop.h"
#include "TestPlayerProcess.h"
#include "support/PulsePlayer.h"

using namespace lorvane::test;
using namespace std::chrono_literals;

namespace {

const QString settingsTitle = QStringLiteral("Lorvane Settings");
const QString dash = QString::fromUtf8("\u2014");

// Every signal one connection sends on the bus, as dbus-monitor sees it.
class SignalMonitor {
public:
    SignalMonitor(AppDesktop& desktop, const QString& sender) : sender_(sender) {
        process_.setProgram(QStringLiteral("dbus-monitor"));
        process_.setArguments({QStringLiteral("--address"), QString::fromStdString(desktop.bus().address()),
                               QStringLiteral("type='signal',sender='%1'").arg(sender)});
        process_.start();
    }
    ~SignalMonitor() {
        process_.kill();
        process_.waitForFinished(5000);
    }
    // The monitor announces itself by losing its own name once it watches.
    bool waitUntilWatching() {
        return waitFor([&] {
            read();
            return output_.contains(QStringLiteral("member=NameLost"));
        }, 10s);
    }
    // Signals from the watched connection so far.
    int count() {
        read();
        return static_cast<int>(output_.count(QStringLiteral("sender=") + sender_ + QLatin1Char(' ')));
    }
    QString output() {
        read();
        return output_;
    }

private:
    // No event loop runs here: let the process read what its pipe holds.
    void read() {
        process_.waitForReadyRead(10);
        output_ += QString::fromUtf8(process_.readAllStandardOutput());
    }
    QString sender_;
    QProcess process_;
    QString output_;
};

class TrayTest : public ::testing::Test {
protected:
    explicit TrayTest(AppDesktop::Options options = {}) : desktop(options) {}

    void SetUp() override { ASSERT_TRUE(desktop.ready()) << desktop.error(); }

    void launch() { ASSERT_TRUE(desktop.launchAndWaitForTray(lorvane)) << lorvane.output().toStdString(); }

    QString menuLabel(const QString& prefix) {
        const auto menu = desktop.tray().layout();
        const MenuNode* node = menu ? menu->findPrefix(prefix) : nullptr;
        return node ? node->label() : QString();
    }
    std::optional<MenuNode> node(const QString& label) {
        const auto menu = desktop.tray().layout();
        const MenuNode* found = menu ? menu->find(label) : nullptr;
        if (!found) return std::nullopt;
        return *found;
    }
    bool clickMenu(const QString& label) {
        const auto found = node(label);
        return found && desktop.tray().click(found->id);
    }
    // The labels of the checked items of a submenu.
    QStringList checkedIn(const QString& submenu) {
        QStringList checked;
        if (const auto parent = node(submenu)) {
            for (const MenuNode& child : parent->children) {
                if (!child.isSeparator() && child.checked()) checked << child.label();
            }
        }
        return checked;
    }

    void closeSettingsWindow() {
        ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle.toStdString(), true).size() == 1; }));
        const unsigned long window = desktop.windowsNamed(settingsTitle.toStdString(), true).front();
        desktop.x().run({"xdotool", "windowactivate", "--sync", std::to_string(window)});
        desktop.x().run({"xdotool", "key", "ctrl+w"});
        ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle.toStdString(), true).empty(); }));
    }

    void startMusic() {
        ASSERT_TRUE(desktop.pulse());
        sound = std::make_unique<PulsePlayer>(PulsePlayer::musicLike());
        ASSERT_TRUE(sound->waitUntilPlaying(10s)) << sound->why();
        spotify = std::make_unique<TestPlayerProcess>(
            desktop.bus().address(),
            std::vector<std::string>{"--name", "spotify", "--identity", "Spotify", "--desktop-entry", "spotify",
                                     "--status", "Playing", "--volume", "0.8"});
        ASSERT_TRUE(spotify->isReady()) << spotify->error();
        ASSERT_TRUE(waitFor([&] { return menuLabel("Audio Analysis: Live ").endsWith(QLatin1Char('%')); }))
            << menuLabel("Audio Analysis").toStdString();
    }

    AppDesktop desktop;
    ChildProcess lorvane;
    std::unique_ptr<PulsePlayer> sound;
    std::unique_ptr<TestPlayerProcess> spotify;
};

class LateTrayTest : public TrayTest {
protected:
    LateTrayTest() : TrayTest(withoutWatcher()) {}
    static AppDesktop::Options withoutWatcher() {
        AppDesktop::Options options;
        options.sound = false;
        options.trayWatcher = false;
        return options;
    }
};

}  // namespace

// MARK: No traffic with the menu closed

TEST_F(TrayTest, WithTheMenuClosedALiveWaveSendsNothingOverTheBus) {
    launch();
    startMusic();
    closeSettingsWindow();
    const auto app = desktop.uniqueNameOf(lorvane.pid());
    ASSERT_TRUE(app);

    SignalMonitor monitor(desktop, *app);
    ASSERT_TRUE(monitor.waitUntilWatching()) << monitor.output().toStdString();
    // Five seconds of live wave (about 150 frames), watched as they happen.
    QElapsedTimer watched;
    watched.start();
    waitFor([&] { return monitor.count() > 0; }, 5s);
    EXPECT_GE(watched.elapsed(), 5000 - 50) << "a signal ended the watch early";
    EXPECT_EQ(monitor.count(), 0) << monitor.output().toStdString();
    // Still live all along, and the watch does see what the program sends.
    EXPECT_TRUE(menuLabel("Audio Analysis: Live ").endsWith(QLatin1Char('%')));
    ASSERT_TRUE(clickMenu("Top of Screen"));
    EXPECT_TRUE(waitFor([&] { return monitor.count() > 0; }, 10s));
}

// The same five seconds seen from the kernel: no thread of the program opens, stats or renames a file
// (strace follows every thread). A change of setting does, which shows the watch sees them.
TEST_F(TrayTest, WithTheMenuClosedALiveWaveTouchesNoFiles) {
    launch();
    startMusic();
    closeSettingsWindow();
    const auto watchFiles = [&](std::chrono::milliseconds span, const std::function<void()>& during) {
        QProcess strace;
        strace.setProcessChannelMode(QProcess::MergedChannels);
        strace.start(QStringLiteral("strace"), {"-f", "-qq", "-e", "trace=%file", "-p", QString::number(lorvane.pid())});
        if (!strace.waitForStarted(10000)) return QStringList{"strace did not start"};
        // Watching once every thread has strace as its tracer.
        const auto allTraced = [&] {
            const QDir tasks(QStringLiteral("/proc/%1/task").arg(lorvane.pid()));
            const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            if (threads.isEmpty()) return false;
            for (const QString& thread : threads) {
                QFile status(tasks.filePath(thread + QStringLiteral("/status")));
                if (!status.open(QIODevice::ReadOnly)) return false;
                const QByteArray text = status.readAll();
                const int at = text.indexOf("TracerPid:");
                if (at < 0 || text.mid(at + 10, text.indexOf('\n', at) - at - 10).trimmed() == "0") return false;
            }
            return true;
        };
        if (!waitFor(allTraced, 10s)) return QStringList{"strace did not attach to every thread"};
        if (during) during();
        waitFor([&] { return strace.state() != QProcess::Running; }, span);
        strace.terminate();  // SIGTERM: strace detaches and ends
        strace.waitForFinished(10000);
        QStringList calls;
        for (const QByteArray& line : strace.readAll().split('\n')) {
            if (!line.trimmed().isEmpty()) calls << QString::fromUtf8(line);
        }
        return calls;
    };
    const QStringList quiet = watchFiles(5s, {});
    EXPECT_TRUE(quiet.isEmpty()) << quiet.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(menuLabel("Audio Analysis: Live ").endsWith(QLatin1Char('%')));
    const QStringList saving = watchFiles(3s, [&] {
        ASSERT_TRUE(clickMenu("Top of Screen"));
    });
    EXPECT_FALSE(saving.isEmpty()) << "saving the settings touched no file as strace saw it";
}

TEST_F(TrayTest, OpeningTheMenuShowsTheCurrentLevelAndClosingStopsFollowingIt) {
    launch();
    startMusic();
    closeSettingsWindow();
    const auto app = desktop.uniqueNameOf(lorvane.pid());
    ASSERT_TRUE(app);
    const QRegularExpression live(QStringLiteral("^Audio Analysis: Live ([0-9]+)%$"));
    const QString before = menuLabel("Audio Analysis: Live ");
    ASSERT_TRUE(live.match(before).hasMatch()) << before.toStdString();

    // Closed: the line keeps what it showed, however the music moves.
    SignalMonitor closedMonitor(desktop, *app);
    ASSERT_TRUE(closedMonitor.waitUntilWatching());
    waitFor([&] { return menuLabel("Audio Analysis: Live ") != before; }, 2s);
    EXPECT_EQ(menuLabel("Audio Analysis: Live "), before);

    // Open: the host's AboutToShow brings the level up to date, and it follows the music.
    desktop.tray().aboutToShow(0);
    QStringList seen;
    EXPECT_TRUE(waitFor([&] {
        const QString label = menuLabel("Audio Analysis: Live ");
        if (!seen.contains(label)) seen << label;
        return seen.size() >= 3;
    }, 20s)) << seen.join(QLatin1Char(',')).toStdString();
    for (const QString& label : seen) EXPECT_TRUE(live.match(label).hasMatch()) << label.toStdString();
    EXPECT_GT(closedMonitor.count(), 0);

    // Closed again: quiet again. Whatever the program sent before it took the event arrived before
    // the answer to it, so a monitor started now sees only what comes after.
    ASSERT_TRUE(desktop.tray().closed(0));
    SignalMonitor reclosed(desktop, *app);
    ASSERT_TRUE(reclosed.waitUntilWatching());
    waitFor([&] { return reclosed.count() > 0; }, 3s);
    EXPECT_EQ(reclosed.count(), 0) << reclosed.output().toStdString();
}

// MARK: The menu as a Linux tray menu

TEST_F(TrayTest, ExclusiveChoicesAreRadioItemsWithExactlyOneChecked) {
    launch();
    const auto menu = desktop.tray().layout();
    ASSERT_TRUE(menu);
    for (const QString& submenu : {QStringLiteral("Display Mode"), QStringLiteral("Position"), QStringLiteral("Color")}) {
        const MenuNode* parent = menu->find(submenu);
        ASSERT_TRUE(parent) << submenu.toStdString();
        for (const MenuNode& child : parent->children) {
            if (child.isSeparator()) continue;
            EXPECT_EQ(child.properties.value(QStringLiteral("toggle-type")).toString(), "radio")
                << child.label().toStdString();
        }
    }
    EXPECT_EQ(menu->find("Show Waveform")->properties.value(QStringLiteral("toggle-type")).toString(), "checkmark");
    EXPECT_EQ(checkedIn("Display Mode"), QStringList{"Standard Waveform"});
    EXPECT_EQ(checkedIn("Position"), QStringList{"Center of Screen"});
    EXPECT_EQ(checkedIn("Color"), QStringList{"Cyan"});

    for (const QString& choice : {QStringLiteral("Top of Screen"), QStringLiteral("Bottom of Screen"),
                                  QStringLiteral("Center of Screen")}) {
        ASSERT_TRUE(clickMenu(choice));
        EXPECT_TRUE(waitFor([&] { return checkedIn("Position") == QStringList{choice}; }))
            << checkedIn("Position").join(QLatin1Char(',')).toStdString();
    }
    ASSERT_TRUE(clickMenu("Fullscreen Fog"));
    EXPECT_TRUE(waitFor([&] { return checkedIn("Display Mode") == QStringList{"Fullscreen Fog"}; }));
    // Choosing the chosen one again keeps it the one.
    ASSERT_TRUE(clickMenu("Fullscreen Fog"));
    EXPECT_TRUE(waitFor([&] { return checkedIn("Display Mode") == QStringList{"Fullscreen Fog"}; }));
    ASSERT_TRUE(clickMenu("Standard Waveform"));
    EXPECT_TRUE(waitFor([&] { return checkedIn("Display Mode") == QStringList{"Standard Waveform"}; }));

    const MenuNode* colours = menu->find("Color");
    for (const MenuNode& colour : colours->children) {
        if (colour.isSeparator()) continue;
        ASSERT_TRUE(desktop.tray().click(colour.id));
        EXPECT_TRUE(waitFor([&] { return checkedIn("Color") == QStringList{colour.label()}; }))
            << colour.label().toStdString() << ": " << checkedIn("Color").join(QLatin1Char(',')).toStdString();
    }
}

TEST_F(TrayTest, ColourItemsCarryTheirSwatchAndNoItemAdvertisesAShortcut) {
    launch();
    const auto menu = desktop.tray().layout();
    ASSERT_TRUE(menu);
    const MenuNode* colours = menu->find("Color");
    ASSERT_TRUE(colours);
    int swatches = 0;
    std::map<QString, QColor> shown;
    for (const MenuNode& colour : colours->children) {
        if (colour.isSeparator()) continue;
        const QByteArray png = colour.properties.value(QStringLiteral("icon-data")).toByteArray();
        const QImage image = QImage::fromData(png);
        ASSERT_FALSE(image.isNull()) << colour.label().toStdString();
        ++swatches;
        shown[colour.label()] = image.pixelColor(image.width() / 4, image.height() / 2);
    }
    EXPECT_EQ(swatches, 17);
    // Each swatch shows its own colour.
    EXPECT_TRUE(shown["Cyan"].blue() > 150 && shown["Cyan"].red() < 100) << shown["Cyan"].name().toStdString();
    EXPECT_TRUE(shown["Pink"].red() > 150 && shown["Pink"].green() < 150) << shown["Pink"].name().toStdString();
    EXPECT_LT(shown["Black"].lightness(), 60);
    EXPECT_GT(shown["White"].lightness(), 200);

    std::function<void(const MenuNode&)> noShortcut = [&](const MenuNode& item) {
        EXPECT_FALSE(item.properties.contains(QStringLiteral("shortcut"))) << item.label().toStdString();
        for (const MenuNode& child : item.children) noShortcut(child);
    };
    noShortcut(*menu);
    // Only colours have icons.
    EXPECT_FALSE(menu->find("Show Waveform")->properties.contains(QStringLiteral("icon-data")));
}

TEST_F(TrayTest, TheToolTipSaysWhatIsHappeningAndTheItemHasATitle) {
    launch();
    EXPECT_EQ(desktop.tray().itemProperty(QStringLiteral("Title")).toString(), "Lorvane");
    EXPECT_TRUE(waitFor([&] {
        return desktop.tray().toolTipTitle() ==
               QStringLiteral("Music Player: Not Running %1 Audio Analysis: Waiting for Playback").arg(dash);
    })) << desktop.tray().toolTipTitle().toStdString();

    startMusic();
    EXPECT_TRUE(waitFor([&] {
        return desktop.tray().toolTipTitle() == QStringLiteral("Spotify: Playing %1 Audio Analysis: Live").arg(dash);
    })) << desktop.tray().toolTipTitle().toStdString();

    ASSERT_TRUE(spotify->command("pause"));
    EXPECT_TRUE(waitFor([&] {
        return desktop.tray().toolTipTitle() ==
               QStringLiteral("Spotify: Paused %1 Audio Analysis: Waiting for Playback").arg(dash);
    })) << desktop.tray().toolTipTitle().toStdString();
}

// MARK: A tray host that comes late or restarts

TEST_F(LateTrayTest, ATrayWatcherStartedAfterTheProgramGetsTheIcon) {
    ASSERT_TRUE(desktop.launch(lorvane));
    // The program is up (its settings window shows) while no panel runs yet.
    ASSERT_TRUE(waitFor([&] { return desktop.windowsNamed(settingsTitle.toStdString(), true).size() == 1; }))
        << lorvane.output().toStdString();
    ASSERT_TRUE(desktop.uniqueNameOf(lorvane.pid()));
    EXPECT_TRUE(desktop.tray().registeredItems().isEmpty());

    ASSERT_TRUE(desktop.startTrayWatcher());
    ASSERT_TRUE(waitFor([&] { return !desktop.tray().registeredItems().isEmpty(); }, 20s))
        << lorvane.output().toStdString();
    EXPECT_EQ(desktop.tray().itemService(), desktop.uniqueNameOf(lorvane.pid()));
    ASSERT_TRUE(waitFor([&] { return desktop.tray().layout().has_value(); }));
    EXPECT_TRUE(desktop.tray().layout()->find("Quit Lorvane"));
    EXPECT_TRUE(lorvane.running());
}

TEST_F(TrayTest, AWatcherThatRestartsGetsTheIconAgain) {
    launch();
    ASSERT_EQ(desktop.tray().registeredItems().size(), 1);
    desktop.stopTrayWatcher();
    ASSERT_FALSE(desktop.trayWatcherRunning());

    ASSERT_TRUE(desktop.startTrayWatcher());
    ASSERT_TRUE(waitFor([&] { return desktop.tray().registeredItems().size() == 1; }, 20s))
        << lorvane.output().toStdString();
    EXPECT_EQ(desktop.tray().itemService(), desktop.uniqueNameOf(lorvane.pid()));
    ASSERT_TRUE(waitFor([&] { return desktop.tray().layout().has_value(); }));
    // And it still works: a click reaches the program.
    ASSERT_TRUE(clickMenu("Top of Screen"));
    EXPECT_TRUE(waitFor([&] { return checkedIn("Position") == QStringList{"Top of Screen"}; }));
}
