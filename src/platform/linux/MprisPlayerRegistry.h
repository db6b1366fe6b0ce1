#pragma once
// Keeps track of the MPRIS media players on the session bus: who owns each player name, the
// owner's process, what the player calls itself, its playback status, and the order in which
// players started playing or last changed. Learns everything from the bus's own signals
// (NameOwnerChanged, PropertiesChanged) and one round of asynchronous calls per new player, so
// nothing is polled.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace lorvane {

class MprisPlayerRegistry final : public QObject {
    Q_OBJECT

public:
    struct Player {
        QString busName;  // org.mpris.MediaPlayer2.<name>
        QString owner;    // the owner's unique connection name; empty until known
        std::optional<std::int32_t> processIdentifier;
        std::optional<QString> identity;
        std::optional<QString> desktopEntry;
        QString playbackStatus;            // "Playing", "Paused", "Stopped"; empty while unknown
        std::uint64_t startedPlaying = 0;  // order of its last change to "Playing"
        std::uint64_t lastActive = 0;      // order of its last status change
        std::uint64_t serial = 0;          // tells successive owners of one name apart
    };

    static constexpr int detailsTimeLimitMilliseconds = 2000;

    // Main thread. No registry without a connected bus.
    static std::shared_ptr<MprisPlayerRegistry> make(const QDBusConnection& bus);
    ~MprisPlayerRegistry() override;

    const QDBusConnection& bus() const { return bus_; }

    // The player that plays and most recently started playing; if none plays, the paused player
    // that changed most recently; if none is paused either, none.
    const Player* nowPlaying() const;
    const Player* find(const QString& busName) const;
    // Every known player, by bus name. The pointers last until the next event is handled.
    std::vector<const Player*> players() const;

    // What a caller read itself; ignored when the name has changed hands since `serial`.
    void noteStatus(const QString& busName, std::uint64_t serial, const QString& status);
    void noteProcessIdentifier(const QString& busName, std::uint64_t serial, std::int32_t processIdentifier);

    // Called after anything changed (for waiting in tests and tools).
    std::function<void()> didChange;

private slots:
    void handleNameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);
    void handlePropertiesChanged(const QDBusMessage& message);

private:
    explicit MprisPlayerRegistry(const QDBusConnection& bus);
    void listExistingPlayers();
    void add(const QString& busName, const QString& owner);
    void fetchDetails(const Player& player);
    Player* current(const QString& busName, std::uint64_t serial);
    void setStatus(Player& player, const QString& status);
    void applyRootProperties(Player& player, const QVariantMap& properties);
    void changed();

    QDBusConnection bus_;
    std::map<QString, Player> players_;
    std::uint64_t order_ = 0;
    std::uint64_t nextSerial_ = 0;
};

}  // namespace lorvane
