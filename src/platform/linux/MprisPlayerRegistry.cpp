#include "platform/linux/MprisPlayerRegistry.h"

#include <QDBusArgument>
#include <QStringList>
#include <QVariantMap>

#include "platform/linux/MprisBus.h"

namespace lorvane {

namespace {

const QString playing = QStringLiteral("Playing");
const QString paused = QStringLiteral("Paused");

// playerctld mirrors whichever player was active last; following it would hide the real one.
bool isProxy(const QString& busName) { return busName == mpris::busNamePrefix + QStringLiteral("playerctld"); }

}  // namespace

std::shared_ptr<MprisPlayerRegistry> MprisPlayerRegistry::make(const QDBusConnection& bus) {
    if (!bus.isConnected()) return nullptr;
    std::shared_ptr<MprisPlayerRegistry> registry(new MprisPlayerRegistry(bus));
    registry->listExistingPlayers();
    return registry;
}

MprisPlayerRegistry::MprisPlayerRegistry(const QDBusConnection& bus) : bus_(bus) {
    bus_.connect(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(handleNameOwnerChanged(QString, QString, QString)));
    bus_.connect(QString(), mpris::objectPath, mpris::propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                 SLOT(handlePropertiesChanged(QDBusMessage)));
}

MprisPlayerRegistry::~MprisPlayerRegistry() {
    bus_.disconnect(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("NameOwnerChanged"), this,
                    SLOT(handleNameOwnerChanged(QString, QString, QString)));
    bus_.disconnect(QString(), mpris::objectPath, mpris::propertiesInterface, QStringLiteral("PropertiesChanged"),
                    this, SLOT(handlePropertiesChanged(QDBusMessage)));
}

void MprisPlayerRegistry::listExistingPlayers() {
    const auto message =
        QDBusMessage::createMethodCall(mpris::busService, mpris::busPath, mpris::busInterface, QStringLiteral("ListNames"));
    mpris::callAsync(bus_, message, detailsTimeLimitMilliseconds, this, [this](const QDBusMessage& reply) {
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
    const bool removed = players_.erase(name) > 0;
    if (!newOwner.isEmpty()) {
        add(name, newOwner);
    } else if (removed) {
        changed();
    }
}

void MprisPlayerRegistry::add(const QString& busName, const QString& owner) {
    if (isProxy(busName)) return;
    Player player;
    player.busName = busName;
    player.owner = owner;
    player.serial = ++nextSerial_;
    const Player& stored = players_.insert_or_assign(busName, player).first->second;
    fetchDetails(stored);
    changed();
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
        mpris::callAsync(bus_, message, detailsTimeLimitMilliseconds, this, [=, this](const QDBusMessage& reply) {
            Player* known = current(busName, serial);
            if (!known) return;
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
                // Listed but gone before we asked.
                players_.erase(busName);
                changed();
                return;
            }
            known->owner = reply.arguments().constFirst().toString();
        });
    }

    auto pidMessage = QDBusMessage::createMethodCall(mpris::busService, mpris::busPath, mpris::busInterface,
                                                     QStringLiteral("GetConnectionUnixProcessID"));
    pidMessage << busName;
    mpris::callAsync(bus_, pidMessage, detailsTimeLimitMilliseconds, this, [=, this](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return;
        noteProcessIdentifier(busName, serial, static_cast<std::int32_t>(reply.arguments().constFirst().toUInt()));
    });

    mpris::callAsync(bus_, mpris::propertyGetAll(busName, mpris::rootInterface), detailsTimeLimitMilliseconds, this,
                     [=, this](const QDBusMessage& reply) {
                         Player* known = current(busName, serial);
                         const auto properties = mpris::propertyMap(reply);
                         if (!known || !properties) return;
                         applyRootProperties(*known, *properties);
                         changed();
                     });

    mpris::callAsync(bus_, mpris::propertyGet(busName, mpris::playerInterface, QStringLiteral("PlaybackStatus")),
                     detailsTimeLimitMilliseconds, this, [=, this](const QDBusMessage& reply) {
                         const auto value = mpris::propertyValue(reply);
                         if (value && value->metaType() == QMetaType::fromType<QString>()) {
                             noteStatus(busName, serial, value->toString());
                         }
                     });
}

void MprisPlayerRegistry::applyRootProperties(Player& player, const QVariantMap& properties) {
    if (const auto identity = mpris::stringProperty(properties, QStringLiteral("Identity"))) player.identity = identity;
    if (const auto entry = mpris::stringProperty(properties, QStringLiteral("DesktopEntry"))) player.desktopEntry = entry;
}

void MprisPlayerRegistry::handlePropertiesChanged(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2) return;
    const QString interface = arguments.at(0).toString();
    QVariantMap changedProperties;
    if (arguments.at(1).metaType() == QMetaType::fromType<QDBusArgument>()) {
        const auto argument = arguments.at(1).value<QDBusArgument>();
        if (argument.currentSignature() != QLatin1String("a{sv}")) return;
        argument >> changedProperties;
    } else {
        changedProperties = arguments.at(1).toMap();
    }

    bool any = false;
    for (auto& [busName, player] : players_) {
        if (player.owner.isEmpty() || player.owner != message.service()) continue;
        if (interface == mpris::playerInterface) {
            if (const auto status = mpris::stringProperty(changedProperties, QStringLiteral("PlaybackStatus"))) {
                setStatus(player, *status);
                any = true;
            }
        } else if (interface == mpris::rootInterface) {
            applyRootProperties(player, changedProperties);
            any = true;
        }
    }
    if (any) changed();
}

void MprisPlayerRegistry::setStatus(Player& player, const QString& status) {
    if (status == player.playbackStatus) return;
    ++order_;
    if (status == playing) player.startedPlaying = order_;
    player.lastActive = order_;
    player.playbackStatus = status;
}

void MprisPlayerRegistry::noteStatus(const QString& busName, std::uint64_t serial, const QString& status) {
    Player* player = current(busName, serial);
    if (!player || player->playbackStatus == status) return;
    setStatus(*player, status);
    changed();
}

void MprisPlayerRegistry::noteProcessIdentifier(const QString& busName, std::uint64_t serial,
                                                std::int32_t processIdentifier) {
    Player* player = current(busName, serial);
    if (!player || processIdentifier <= 0) return;
    player->processIdentifier = processIdentifier;
    changed();
}

const MprisPlayerRegistry::Player* MprisPlayerRegistry::nowPlaying() const {
    const Player* best = nullptr;
    for (const auto& [busName, player] : players_) {
        if (player.playbackStatus == playing && (!best || player.startedPlaying > best->startedPlaying)) best = &player;
    }
    if (best) return best;
    for (const auto& [busName, player] : players_) {
        if (player.playbackStatus == paused && (!best || player.lastActive > best->lastActive)) best = &player;
    }
    return best;
}

const MprisPlayerRegistry::Player* MprisPlayerRegistry::find(const QString& busName) const {
    const auto found = players_.find(busName);
    return found == players_.end() ? nullptr : &found->second;
}

std::vector<const MprisPlayerRegistry::Player*> MprisPlayerRegistry::players() const {
    std::vector<const Player*> result;
    result.reserve(players_.size());
    for (const auto& [busName, player] : players_) result.push_back(&player);
    return result;
}

void MprisPlayerRegistry::changed() {
    if (didChange) didChange();
}

}  // namespace lorvane
