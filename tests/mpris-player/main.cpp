// lorvane-test-mpris-player: a small MPRIS media player for tests. It plays nothing; it owns
// org.mpris.MediaPlayer2.<name> on the session bus (DBUS_SESSION_BUS_ADDRESS) and behaves like a
// real player towards MPRIS clients (playerctl included), and it can be told to misbehave.
//
// Command line:
//   lorvane-test-mpris-player --name NAME [--identity TEXT] [--desktop-entry TEXT]
//                             [--status Playing|Paused|Stopped] [--volume 0..1] [--no-volume]
//                             [--deny] [--hang] [--wrong-types]
//   --name           bus name suffix: owns org.mpris.MediaPlayer2.NAME (required)
//   --identity       the Identity property (default "Test Player")
//   --desktop-entry  the DesktopEntry property (absent unless given)
//   --status         initial PlaybackStatus (default Stopped)
//   --volume         initial Volume (default 1.0); --no-volume leaves the property out
//   --deny, --hang   start refusing or ignoring calls, as the commands below
//
// Once the name is owned it prints "ready org.mpris.MediaPlayer2.NAME" on standard output.
//
// Commands, one per line on standard input (each answered by "ok" or "error: ..." on standard
// output), or as the string argument of the D-Bus method org.lorvane.TestPlayer.Command(s) -> s
// at /org/lorvane/TestPlayer on the same bus name (that interface always answers):
//   play | pause | stop | play-pause   change PlaybackStatus and emit PropertiesChanged
//   volume V                            set Volume (0..1) and emit PropertiesChanged
//   identity TEXT | desktop-entry TEXT  change the player's names and emit PropertiesChanged
//   signals on|off                      whether changes emit PropertiesChanged (default on)
//   deny | allow                        answer every call on org.mpris.MediaPlayer2.Player, and
//                                       every property read or write of it, with
//                                       org.freedesktop.DBus.Error.AccessDenied (the root
//                                       interface, Identity and DesktopEntry still answer)
//   hang | respond                      stop / resume answering MPRIS calls at all (calls that
//                                       arrive while hanging are never answered)
//   wrong-types on|off                  answer and announce every property with a wrong D-Bus type
//                                       (status and desktop entry as numbers, volume as text,
//                                       identity as a list)
//   identity-size N                     set Identity to a new text of N characters and announce it
//   identity-churn N RATE | off         do identity-size N RATE times a second until told off
//   names add N | names remove          own N more names NAME.extraK (answering like this player),
//                                       or give them all up again
//   release                             give up the bus name but keep running
//   quit                                exit
// End of standard input is not a command: the player keeps running until told or killed.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <cstdio>
#include <utility>
#include <optional>
#include <unistd.h>

namespace {

const QString mprisPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString introspectableInterface = QStringLiteral("org.freedesktop.DBus.Introspectable");
const QString controlPath = QStringLiteral("/org/lorvane/TestPlayer");
const QString controlInterface = QStringLiteral("org.lorvane.TestPlayer");

const char* const mprisIntrospection = R"(  <interface name="org.mpris.MediaPlayer2">
    <method name="Raise"/>
    <method name="Quit"/>
    <property name="CanQuit" type="b" access="read"/>
    <property name="CanRaise" type="b" access="read"/>
    <property name="HasTrackList" type="b" access="read"/>
    <property name="Identity" type="s" access="read"/>
    <property name="DesktopEntry" type="s" access="read"/>
    <property name="SupportedUriSchemes" type="as" access="read"/>
    <property name="SupportedMimeTypes" type="as" access="read"/>
  </interface>
  <interface name="org.mpris.MediaPlayer2.Player">
    <method name="Next"/>
    <method name="Previous"/>
    <method name="Pause"/>
    <method name="PlayPause"/>
    <method name="Stop"/>
    <method name="Play"/>
    <method name="Seek"><arg direction="in" name="Offset" type="x"/></method>
    <method name="SetPosition"><arg direction="in" name="TrackId" type="o"/><arg direction="in" name="Position" type="x"/></method>
    <method name="OpenUri"><arg direction="in" name="Uri" type="s"/></method>
    <signal name="Seeked"><arg name="Position" type="x"/></signal>
    <property name="PlaybackStatus" type="s" access="read"/>
    <property name="Rate" type="d" access="readwrite"/>
    <property name="Metadata" type="a{sv}" access="read"/>
    <property name="Volume" type="d" access="readwrite"/>
    <property name="Position" type="x" access="read"/>
    <property name="MinimumRate" type="d" access="read"/>
    <property name="MaximumRate" type="d" access="read"/>
    <property name="CanGoNext" type="b" access="read"/>
    <property name="CanGoPrevious" type="b" access="read"/>
    <property name="CanPlay" type="b" access="read"/>
    <property name="CanPause" type="b" access="read"/>
    <property name="CanSeek" type="b" access="read"/>
    <property name="CanControl" type="b" access="read"/>
  </interface>
  <interface name="org.freedesktop.DBus.Properties">
    <method name="Get"><arg direction="in" name="interface_name" type="s"/><arg direction="in" name="property_name" type="s"/><arg direction="out" name="value" type="v"/></method>
    <method name="GetAll"><arg direction="in" name="interface_name" type="s"/><arg direction="out" name="properties" type="a{sv}"/></method>
    <method name="Set"><arg direction="in" name="interface_name" type="s"/><arg direction="in" name="property_name" type="s"/><arg direction="in" name="value" type="v"/></method>
    <signal name="PropertiesChanged"><arg name="interface_name" type="s"/><arg name="changed_properties" type="a{sv}"/><arg name="invalidated_properties" type="as"/></signal>
  </interface>
)";

const char* const controlIntrospection = R"(  <interface name="org.lorvane.TestPlayer">
    <method name="Command"><arg direction="in" name="line" type="s"/><arg direction="out" name="result" type="s"/></method>
  </interface>
)";

class TestPlayer {
public:
    QString busName;
    QString identity = QStringLiteral("Test Player");
    std::optional<QString> desktopEntry;
    QString status = QStringLiteral("Stopped");
    std::optional<double> volume = 1.0;
    bool emitsSignals = true;
    bool denies = false;
    bool hangs = false;
    bool wrongTypes = false;
    QStringList extraNames;

    explicit TestPlayer(QDBusConnection bus) : bus_(std::move(bus)) {
        QObject::connect(&churn_, &QTimer::timeout, [this] { setIdentitySize(churnSize_); });
    }

    void setIdentitySize(qsizetype size) {
        // A new text each time, so nothing on the other side can share it with the last one.
        const QString tag = QString::number(++identitySerial_);
        identity = tag + QString(qMax<qsizetype>(0, size - tag.size()), QLatin1Char('I'));
        announce(rootInterface, {{QStringLiteral("Identity"), identity}});
    }

    QVariantMap rootProperties() const {
        QVariantMap map{{QStringLiteral("CanQuit"), true},
                        {QStringLiteral("CanRaise"), false},
                        {QStringLiteral("HasTrackList"), false},
                        {QStringLiteral("Identity"), identity},
                        {QStringLiteral("SupportedUriSchemes"), QStringList()},
                        {QStringLiteral("SupportedMimeTypes"), QStringList()}};
        if (desktopEntry) map.insert(QStringLiteral("DesktopEntry"), *desktopEntry);
        if (wrongTypes) {
            map.insert(QStringLiteral("Identity"), QStringList{identity, identity});
            map.insert(QStringLiteral("DesktopEntry"), 7);
        }
        return map;
    }

    QVariantMap playerProperties() const {
        const QVariantMap metadata{
            {QStringLiteral("mpris:trackid"), QVariant::fromValue(QDBusObjectPath("/org/lorvane/TestPlayer/track/1"))},
            {QStringLiteral("mpris:length"), QVariant::fromValue(qlonglong(180000000))},
            {QStringLiteral("xesam:title"), QStringLiteral("Test Tone")},
            {QStringLiteral("xesam:artist"), QStringList{QStringLiteral("Lorvane")}}};
        QVariantMap map{{QStringLiteral("PlaybackStatus"), status},
                        {QStringLiteral("Rate"), 1.0},
                        {QStringLiteral("Metadata"), metadata},
                        {QStringLiteral("Position"), QVariant::fromValue(qlonglong(0))},
                        {QStringLiteral("MinimumRate"), 1.0},
                        {QStringLiteral("MaximumRate"), 1.0},
                        {QStringLiteral("CanGoNext"), false},
                        {QStringLiteral("CanGoPrevious"), false},
                        {QStringLiteral("CanPlay"), true},
                        {QStringLiteral("CanPause"), true},
                        {QStringLiteral("CanSeek"), false},
                        {QStringLiteral("CanControl"), true}};
        if (volume) map.insert(QStringLiteral("Volume"), *volume);
        if (wrongTypes) {
            map.insert(QStringLiteral("PlaybackStatus"), 42);
            map.insert(QStringLiteral("Volume"), QStringLiteral("loud"));
        }
        return map;
    }

    void setStatus(const QString& value) {
        if (status == value) return;
        status = value;
        announce(playerInterface, {{QStringLiteral("PlaybackStatus"), status}});
    }

    void setVolume(double value) {
        volume = value;
        announce(playerInterface, {{QStringLiteral("Volume"), value}});
    }

    void announce(const QString& interface, const QVariantMap& changed) {
        if (!emitsSignals) return;
        QDBusMessage signal = QDBusMessage::createSignal(mprisPath, propertiesInterface, QStringLiteral("PropertiesChanged"));
        signal << interface << changed << QStringList();
        bus_.send(signal);
    }

    // Runs one command; the result is "ok" or "error: ...".
    QString command(const QString& line) {
        const QString trimmed = line.trimmed();
        const QString word = trimmed.section(QLatin1Char(' '), 0, 0);
        const QString rest = trimmed.section(QLatin1Char(' '), 1).trimmed();
        if (word == QLatin1String("play")) {
            setStatus(QStringLiteral("Playing"));
        } else if (word == QLatin1String("pause")) {
            setStatus(QStringLiteral("Paused"));
        } else if (word == QLatin1String("stop")) {
            setStatus(QStringLiteral("Stopped"));
        } else if (word == QLatin1String("play-pause")) {
            setStatus(status == QLatin1String("Playing") ? QStringLiteral("Paused") : QStringLiteral("Playing"));
        } else if (word == QLatin1String("volume")) {
            bool ok = false;
            const double value = rest.toDouble(&ok);
            if (!ok) return QStringLiteral("error: volume needs a number");
            setVolume(value);
        } else if (word == QLatin1String("identity")) {
            identity = rest;
            announce(rootInterface, {{QStringLiteral("Identity"), identity}});
        } else if (word == QLatin1String("desktop-entry")) {
            desktopEntry = rest;
            announce(rootInterface, {{QStringLiteral("DesktopEntry"), rest}});
        } else if (word == QLatin1String("signals")) {
            if (rest != QLatin1String("on") && rest != QLatin1String("off")) return QStringLiteral("error: signals on|off");
            emitsSignals = rest == QLatin1String("on");
        } else if (word == QLatin1String("deny")) {
            denies = true;
        } else if (word == QLatin1String("allow")) {
            denies = false;
        } else if (word == QLatin1String("hang")) {
            hangs = true;
        } else if (word == QLatin1String("respond")) {
            hangs = false;
        } else if (word == QLatin1String("wrong-types")) {
            if (rest != QLatin1String("on") && rest != QLatin1String("off")) return QStringLiteral("error: wrong-types on|off");
            wrongTypes = rest == QLatin1String("on");
            if (wrongTypes) {
                announce(playerInterface, {{QStringLiteral("PlaybackStatus"), 42},
                                           {QStringLiteral("Volume"), QStringLiteral("loud")}});
                announce(rootInterface, {{QStringLiteral("Identity"), QStringList{identity}},
                                         {QStringLiteral("DesktopEntry"), 7}});
            }
        } else if (word == QLatin1String("identity-size")) {
            bool ok = false;
            const qsizetype size = rest.toLongLong(&ok);
            if (!ok || size < 0) return QStringLiteral("error: identity-size needs a size");
            setIdentitySize(size);
        } else if (word == QLatin1String("identity-churn")) {
            if (rest == QLatin1String("off")) {
                churn_.stop();
                return QStringLiteral("ok");
            }
            bool sizeOk = false;
            bool rateOk = false;
            churnSize_ = rest.section(QLatin1Char(' '), 0, 0).toLongLong(&sizeOk);
            const double rate = rest.section(QLatin1Char(' '), 1, 1).toDouble(&rateOk);
            if (!sizeOk || !rateOk || rate <= 0) return QStringLiteral("error: identity-churn SIZE RATE | off");
            churn_.start(static_cast<int>(1000.0 / rate));
        } else if (word == QLatin1String("names")) {
            if (rest == QLatin1String("remove")) {
                for (const QString& extra : std::as_const(extraNames)) bus_.unregisterService(extra);
                extraNames.clear();
            } else if (rest.startsWith(QLatin1String("add "))) {
                bool ok = false;
                const int count = rest.mid(4).toInt(&ok);
                if (!ok || count < 0) return QStringLiteral("error: names add N");
                for (int k = 0; k < count; ++k) {
                    const QString extra = busName + QStringLiteral(".extra") + QString::number(extraNames.size());
                    if (!bus_.registerService(extra)) return QStringLiteral("error: cannot own ") + extra;
                    extraNames.push_back(extra);
                }
            } else {
                return QStringLiteral("error: names add N | names remove");
            }
        } else if (word == QLatin1String("release")) {
            bus_.unregisterService(busName);
        } else if (word == QLatin1String("quit")) {
            QCoreApplication::exit(0);
        } else {
            return QStringLiteral("error: unknown command: ") + trimmed;
        }
        return QStringLiteral("ok");
    }

private:
    QDBusConnection bus_;
    QTimer churn_;
    qsizetype churnSize_ = 0;
    quint64 identitySerial_ = 0;
};

class MprisObject final : public QDBusVirtualObject {
public:
    explicit MprisObject(TestPlayer& player) : player_(player) {}

    QString introspect(const QString&) const override { return QString::fromUtf8(mprisIntrospection); }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() == introspectableInterface) {
            connection.send(message.createReply(QStringLiteral("<node>\n") + QString::fromUtf8(mprisIntrospection) +
                                                QStringLiteral("</node>\n")));
            return true;
        }
        if (player_.hangs) return true;  // never answered
        const QList<QVariant> arguments = message.arguments();
        if (message.interface() == propertiesInterface) {
            const QString interface = arguments.value(0).toString();
            if (interface == playerInterface && player_.denies) return deny(message, connection);
            QVariantMap properties;
            if (interface == rootInterface) {
                properties = player_.rootProperties();
            } else if (interface == playerInterface) {
                properties = player_.playerProperties();
            } else if (!interface.isEmpty()) {
                return fail(message, connection, QStringLiteral("org.freedesktop.DBus.Error.UnknownInterface"),
                            QStringLiteral("No such interface"));
            }
            if (message.member() == QLatin1String("GetAll")) {
                connection.send(message.createReply(QVariant::fromValue(properties)));
                return true;
            }
            const QString name = arguments.value(1).toString();
            if (message.member() == QLatin1String("Get")) {
                if (!properties.contains(name)) {
                    return fail(message, connection, QStringLiteral("org.freedesktop.DBus.Error.UnknownProperty"),
                                QStringLiteral("No such property"));
                }
                connection.send(message.createReply(QVariant::fromValue(QDBusVariant(properties.value(name)))));
                return true;
            }
            if (message.member() == QLatin1String("Set")) {
                const QVariant value = qvariant_cast<QDBusVariant>(arguments.value(2)).variant();
                if (interface == playerInterface && name == QLatin1String("Volume") && player_.volume) {
                    player_.setVolume(qBound(0.0, value.toDouble(), 1.0));
                    connection.send(message.createReply());
                    return true;
                }
                return fail(message, connection, QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly"),
                            QStringLiteral("Property is read-only"));
            }
        } else if (message.interface() == playerInterface || message.interface().isEmpty()) {
            if (player_.denies) return deny(message, connection);
            const QString member = message.member();
            if (member == QLatin1String("Play")) {
                player_.setStatus(QStringLiteral("Playing"));
            } else if (member == QLatin1String("Pause")) {
                player_.setStatus(QStringLiteral("Paused"));
            } else if (member == QLatin1String("Stop")) {
                player_.setStatus(QStringLiteral("Stopped"));
            } else if (member == QLatin1String("PlayPause")) {
                player_.setStatus(player_.status == QLatin1String("Playing") ? QStringLiteral("Paused")
                                                                             : QStringLiteral("Playing"));
            } else if (member != QLatin1String("Next") && member != QLatin1String("Previous") &&
                       member != QLatin1String("Seek") && member != QLatin1String("SetPosition") &&
                       member != QLatin1String("OpenUri")) {
                return false;
            }
            connection.send(message.createReply());
            return true;
        } else if (message.interface() == rootInterface) {
            if (message.member() == QLatin1String("Quit")) {
                connection.send(message.createReply());
                QCoreApplication::exit(0);
                return true;
            }
            if (message.member() == QLatin1String("Raise")) {
                connection.send(message.createReply());
                return true;
            }
        }
        return false;
    }

private:
    static bool fail(const QDBusMessage& message, const QDBusConnection& connection, const QString& name,
                     const QString& text) {
        connection.send(message.createErrorReply(name, text));
        return true;
    }
    static bool deny(const QDBusMessage& message, const QDBusConnection& connection) {
        return fail(message, connection, QStringLiteral("org.freedesktop.DBus.Error.AccessDenied"),
                    QStringLiteral("The player refuses to be asked"));
    }

    TestPlayer& player_;
};

class ControlObject final : public QDBusVirtualObject {
public:
    explicit ControlObject(TestPlayer& player) : player_(player) {}
    QString introspect(const QString&) const override { return QString::fromUtf8(controlIntrospection); }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() != QLatin1String("Command") || message.arguments().size() != 1) return false;
        connection.send(message.createReply(player_.command(message.arguments().constFirst().toString())));
        return true;
    }

private:
    TestPlayer& player_;
};

void say(const QString& text) {
    std::fputs((text + QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
}

int usage(const char* problem) {
    std::fprintf(stderr, "lorvane-test-mpris-player: %s\n", problem);
    return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return usage("no session bus");

    TestPlayer player(bus);
    QString name;
    const QStringList arguments = QCoreApplication::arguments();
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& option = arguments.at(i);
        auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= arguments.size()) return std::nullopt;
            return arguments.at(++i);
        };
        if (option == QLatin1String("--no-volume")) {
            player.volume.reset();
        } else if (option == QLatin1String("--deny")) {
            player.denies = true;
        } else if (option == QLatin1String("--hang")) {
            player.hangs = true;
        } else if (option == QLatin1String("--wrong-types")) {
            player.wrongTypes = true;
        } else {
            const auto given = value();
            if (!given) return usage("an option is missing its value");
            if (option == QLatin1String("--name")) {
                name = *given;
            } else if (option == QLatin1String("--identity")) {
                player.identity = *given;
            } else if (option == QLatin1String("--desktop-entry")) {
                player.desktopEntry = *given;
            } else if (option == QLatin1String("--status")) {
                player.status = *given;
            } else if (option == QLatin1String("--volume")) {
                bool ok = false;
                player.volume = given->toDouble(&ok);
                if (!ok) return usage("--volume needs a number");
            } else {
                return usage("unknown option");
            }
        }
    }
    if (name.isEmpty()) return usage("--name is required");
    player.busName = QStringLiteral("org.mpris.MediaPlayer2.") + name;

    MprisObject mpris(player);
    ControlObject control(player);
    if (!bus.registerVirtualObject(mprisPath, &mpris) || !bus.registerVirtualObject(controlPath, &control)) {
        return usage("cannot register the player objects");
    }
    if (!bus.registerService(player.busName)) return usage("cannot own the bus name");

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[4096];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            input.setEnabled(false);  // end of input: keep playing
            return;
        }
        pending.append(buffer, static_cast<qsizetype>(got));
        for (qsizetype end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
            const QString line = QString::fromUtf8(pending.left(end));
            pending.remove(0, end + 1);
            if (!line.trimmed().isEmpty()) say(player.command(line));
        }
    });

    say(QStringLiteral("ready ") + player.busName);
    return application.exec();
}
