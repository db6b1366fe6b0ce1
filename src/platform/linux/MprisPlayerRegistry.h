#pragma once
// Keeps a typed reading of every MPRIS media player on the session bus: who it is (from its Identity
// and DesktopEntry), its playback state, its volume and when its state last changed. Learns
// everything from the bus's own signals (NameOwnerChanged, PropertiesChanged) and one round of
// asynchronous calls per new player; nothing is polled and no call waits. Text from players is cut to
// a bounded length where it arrives, and values of the wrong D-Bus type read as absent. Property
// changes are decoded on a thread of their own (MprisSignalRelay), so a huge one never holds up this
// thread.

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

#include "core/Clock.h"
#include "core/playback/PlaybackChoice.h"
#include "platform/linux/DesktopEntryLookup.h"
#include "platform/linux/MprisSignalRelay.h"

namespace lorvane {

class MprisPlayerRegistry final : public QObject {
    Q_OBJECT

public:
    struct Player {
        QString busName;  // org.mpris.MediaPlayer2.<name>
        QString owner;    // the owner's unique connection name; empty until known
        std::optional<QString> identity;
        std::optional<QString> desktopEntry;
        bool identified = false;  // its own names have answered (or never will)
        PlayerReading reading;
        std::uint64_t serial = 0;  // tells successive owners of one name apart
    };

    // A player that has not answered by then is taken as it is.
    static constexpr int callTimeLimitMilliseconds = 2000;
    // More players than this on one bus is abuse; the rest are ignored until some leave.
    static constexpr std::size_t maxPlayers = 256;

    // Main thread. No registry without a connected bus. `clock` gives the steady time of changes.
    static std::unique_ptr<MprisPlayerRegistry> make(const QDBusConnection& bus, const Clock& clock);
    ~MprisPlayerRegistry() override;

    // The readings of the players that have said who they are.
    std::vector<PlayerReading> readings() const;
    const Player* find(const QString& busName) const;
    std::size_t playerCount() const { return players_.size(); }
    std::size_t pendingCallCount() const;
    // The most CPU time one PropertiesChanged signal took on this thread.
    double longestSignalSeconds() const { return longestSignalSeconds_; }

    // Called after a reading changed.
    std::function<void()> didChange;
    // Called when a player has said who it is (again, when it renames itself).
    std::function<void(const PlaybackPlayer&)> playerIdentified;

private slots:
    void handleNameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    MprisPlayerRegistry(const QDBusConnection& bus, const Clock& clock);
    void listExistingPlayers();
    void add(const QString& busName, const QString& owner);
    void fetchDetails(const Player& player);
    Player* current(const QString& busName, std::uint64_t serial);
    bool applyRootProperties(Player& player, const QVariantMap& properties);
    bool applyPlayerProperties(Player& player, const QVariantMap& properties);
    void identify(Player& player);
    void changed();
    void applyChange(const QString& sender, const QString& interface, const QVariantMap& properties);

    QDBusConnection bus_;
    const Clock& clock_;
    std::map<QString, Player> players_;
    std::uint64_t nextSerial_ = 0;
    DesktopEntryLookup desktopEntries_;
    double longestSignalSeconds_ = 0;
    // Last, so it stops before anything it delivers to goes.
    std::unique_ptr<MprisSignalRelay> relay_;
};

}  // namespace lorvane
