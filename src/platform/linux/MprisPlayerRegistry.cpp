#include "platform/linux/MprisPlayerRegistry.h"

#include <QDBusArgument>
#include <QDBusPendingCallWatcher>
#include <QStringList>
#include <QVariantMap>
#include <algorithm>
#include <ctime>

#include "core/Logging.h"
#include "platform/linux/MprisBus.h"

namespace lorvane {

namespace {

// playerctld mirrors whichever player was active last; following it would count one player twice.
bool isProxy(const QString& busName) { return busName == mpris::busNamePrefix + QStringLiteral("playerctld"); }

double threadCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string utf8(const std::optional<QString>& text) { return text ? text->toStdString() : std::string(); }

}  // namespace

std::unique_ptr<MprisPlayerRegistry> MprisPlayerRegistry::make(const QDBusConnection& bus, const Clock& clock) {
    if (!bus.isConnected()) return nullptr;
    std::unique_ptr<MprisPlayerRegistry> registry(new MprisPlayerRegistry(bus, clock));
    registry->listExistingPlayers();
    return registry;
}

MprisPlayerRegistry::MprisPlayerRegistry(const QDBusConnection& bus, const Clock& clock) : bus_(bus), clock_(clock) {
    bus_.connect(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(handleNameOwnerChanged(QString, QString, QString)));
    relay_ = std::make_unique<MprisSignalRelay>(
        bus_, this, [this](const QString& sender, const QString& interface, const QVariantMap& properties) {
            applyChange(sender, interface, properties);
        });
}

MprisPlayerRegistry::~MprisPlayerRegistry() {
    bus_.disconnect(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("NameOwnerChanged"), this,
                    SLOT(handleNameOwnerChanged(QString, QString, QString)));
    relay_.reset();
}

void MprisPlayerRegistry::listExistingPlayers() {
    const auto message =
        QDBusMessage::createMethodCall(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("ListNames"));
    mpris::callAsync(bus_, message, callTimeLimitMilliseconds, this, [this](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return;
        const QStringList names = qdbus_cast<QStringList>(reply.arguments().constFirst());
        for (const QString& name : names) {
            if (name.startsWith(mpris::busNamePrefix) && !players_.contains(name)) add(name, QString());
        }
    });
}

void MprisPlayerRegistry::handleNameOwnerChanged(const QString& name, const QString& /*oldOwner*/,
                                                 const QString& newOwner) {
    if (!name.startsWith(mpris::busNamePrefix)) return;
    // A name that changes hands is a new player: what was learnt about the old owner no longer holds.
    const auto found = players_.find(name);
    const bool counted = found != players_.end() && found->second.identified;
    if (found != players_.end()) players_.erase(found);
    if (!newOwner.isEmpty()) {
        add(name, newOwner);
    } else if (counted) {
        changed();
    }
}

void MprisPlayerRegistry::add(const QString& busName, const QString& owner) {
    if (isProxy(busName) || busName.size() > 255) return;  // bus names are at most 255 bytes
    if (players_.size() >= maxPlayers) {
        qCWarning(lcPlayback) << "Too many MPRIS players on the bus; ignoring" << busName;
        return;
    }
    Player player;
    player.busName = busName;
    player.owner = owner;
    player.serial = ++nextSerial_;
    const Player& stored = players_.insert_or_assign(busName, std::move(player)).first->second;
    fetchDetails(stored);
}

MprisPlayerRegistry::Player* MprisPlayerRegistry::current(const QString& busName, std::uint64_t serial) {
    const auto found = players_.find(busName);
    if (found == players_.end() || found->second.serial != serial) return nullptr;
    return &found->second;
}

void MprisPlayerRegistry::fetchDetails(const Player& player) {
    const QString busName = player.busName;
    const std::uint64_t serial = player.serial;

    if (player.owner.isEmpty()) {
        auto message = QDBusMessage::createMethodCall(mpris::busService, mpris::busPath, mpris::busInterface,
                                                      QStringLiteral("GetNameOwner"));
        message << busName;
        mpris::callAsync(bus_, message, callTimeLimitMilliseconds, this, [=, this](const QDBusMessage& reply) {
            Player* known = current(busName, serial);
            if (!known) return;
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty() ||
                reply.arguments().constFirst().metaType() != QMetaType::fromType<QString>()) {
                // Listed but gone before we asked.
                const bool counted = known->identified;
                players_.erase(busName);
                if (counted) changed();
                return;
            }
            known->owner = reply.arguments().constFirst().toString();
        });
    }

    // The player's names first: it counts once it has said who it is, or failed to within the limit.
    mpris::callAsync(bus_, mpris::propertyGetAll(busName, mpris::rootInterface), callTimeLimitMilliseconds, this,
                     [=, this](const QDBusMessage& reply) {
                         Player* known = current(busName, serial);
                         if (!known) return;
                         if (const auto properties = mpris::propertyMap(reply)) {
                             applyRootProperties(*known, *properties);
                         }
                         identify(*known);
                         changed();
                     });

    mpris::callAsync(bus_, mpris::propertyGetAll(busName, mpris::playerInterface), callTimeLimitMilliseconds, this,
                     [=, this](const QDBusMessage& reply) {
                         Player* known = current(busName, serial);
                         const auto properties = mpris::propertyMap(reply);
                         if (!known || !properties) return;
                         if (applyPlayerProperties(*known, *properties) && known->identified) changed();
                     });
}

bool MprisPlayerRegistry::applyRootProperties(Player& player, const QVariantMap& properties) {
    bool any = false;
    if (const auto identity = mpris::stringProperty(properties, QStringLiteral("Identity"));
        identity && identity != player.identity) {
        player.identity = identity;
        any = true;
    }
    if (const auto entry = mpris::stringProperty(properties, QStringLiteral("DesktopEntry"));
        entry && entry != player.desktopEntry) {
        player.desktopEntry = entry;
        any = true;
    }
    return any;
}

bool MprisPlayerRegistry::applyPlayerProperties(Player& player, const QVariantMap& properties) {
    bool any = false;
    if (const auto status = mpris::stringProperty(properties, QStringLiteral("PlaybackStatus"))) {
        const MusicPlaybackState state = playbackStateFromStatus(status->toStdString());
        if (state != player.reading.state) {
            player.reading.state = state;
            player.reading.changedAt = clock_.now();
            any = true;
        }
    }
    if (const auto volume = mpris::doubleProperty(properties, QStringLiteral("Volume"));
        volume && volume != player.reading.volume) {
        player.reading.volume = volume;
        any = true;
    }
    return any;
}

void MprisPlayerRegistry::identify(Player& player) {
    const QString suffix = player.busName.mid(mpris::busNamePrefix.size());
    std::string entryName;
    if (!player.identity || player.identity->isEmpty()) {
        // MPRIS players must give an Identity; for one that does not, its desktop entry names it.
        if (const auto fields = desktopEntries_.fields(player.desktopEntry.value_or(QString()))) entryName = fields->name;
    }
    const PlaybackPlayer identified =
        identifyPlayer(utf8(player.desktopEntry), utf8(player.identity), entryName, suffix.toStdString());
    const bool renamed = !player.identified || !(identified == player.reading.player);
    player.identified = true;
    player.reading.player = identified;
    if (renamed && playerIdentified) playerIdentified(identified);
}

void MprisPlayerRegistry::applyChange(const QString& sender, const QString& interface,
                                      const QVariantMap& changedProperties) {
    // Thread CPU time: what handling costs this thread, apart from whatever else the machine runs.
    struct Timing {
        double& longest;
        double began = threadCpuSeconds();
        ~Timing() { longest = std::max(longest, threadCpuSeconds() - began); }
    } timing{longestSignalSeconds_};
    bool any = false;
    for (auto& [busName, player] : players_) {
        if (player.owner.isEmpty() || player.owner != sender) continue;
        if (interface == mpris::playerInterface) {
            if (applyPlayerProperties(player, changedProperties) && player.identified) any = true;
        } else if (applyRootProperties(player, changedProperties) && player.identified) {
            identify(player);
            any = true;
        }
    }
    if (any) changed();
}

std::vector<PlayerReading> MprisPlayerRegistry::readings() const {
    std::vector<PlayerReading> result;
    result.reserve(players_.size());
    for (const auto& [busName, player] : players_) {
        if (player.identified) result.push_back(player.reading);
    }
    return result;
}

const MprisPlayerRegistry::Player* MprisPlayerRegistry::find(const QString& busName) const {
    const auto found = players_.find(busName);
    return found == players_.end() ? nullptr : &found->second;
}

std::size_t MprisPlayerRegistry::pendingCallCount() const {
    return static_cast<std::size_t>(findChildren<QDBusPendingCallWatcher*>(Qt::FindDirectChildrenOnly).size());
}

void MprisPlayerRegistry::changed() {
    if (didChange) didChange();
}

}  // namespace lorvane
