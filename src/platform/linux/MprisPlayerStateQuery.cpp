#include "platform/linux/MprisPlayerStateQuery.h"

#include <QDBusError>
#include <array>
#include <charconv>
#include <utility>

#include "platform/linux/MprisBus.h"

namespace lorvane {

namespace {

std::optional<std::string> text(const std::optional<QString>& value) {
    if (!value) return std::nullopt;
    return value->toStdString();
}

bool isBetter(const MprisPlayerRegistry::Player& candidate, const MprisPlayerRegistry::Player* best) {
    if (!best) return true;
    const bool candidatePlays = candidate.playbackStatus == QStringLiteral("Playing");
    const bool bestPlays = best->playbackStatus == QStringLiteral("Playing");
    if (candidatePlays != bestPlays) return candidatePlays;
    return candidatePlays ? candidate.startedPlaying > best->startedPlaying : candidate.lastActive > best->lastActive;
}

int errorNumber(const QDBusMessage& reply) {
    const QString name = reply.errorName();
    if (name == QDBusError::errorString(QDBusError::AccessDenied)) return playerQueryNotPermittedError;
    if (name == QDBusError::errorString(QDBusError::NoReply) || name == QDBusError::errorString(QDBusError::Timeout) ||
        name == QStringLiteral("org.freedesktop.DBus.Error.TimedOut")) {
        return MprisPlayerStateQuery::timedOutError;
    }
    if (name == QDBusError::errorString(QDBusError::ServiceUnknown) ||
        name == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        return MprisPlayerStateQuery::playerNotFoundError;
    }
    return MprisPlayerStateQuery::failedError;
}

std::string shortestDecimal(double value) {
    std::array<char, 64> buffer{};
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    if (error != std::errc()) return {};
    return std::string(buffer.data(), end);
}

}  // namespace

MprisPlayerStateQuery::MprisPlayerStateQuery(std::shared_ptr<MprisPlayerRegistry> registry,
                                             std::shared_ptr<ProcessTable> processes)
    : registry_(std::move(registry)), processes_(std::move(processes)) {}

const MprisPlayerRegistry::Player* MprisPlayerStateQuery::playerFor(MusicPlayer wanted) {
    const MprisPlayerRegistry::Player* best = nullptr;
    for (const auto* player : registry_->players()) {
        auto resolved = resolveMusicPlayer(text(player->desktopEntry), text(player->identity));
        if (!resolved && player->processIdentifier && processes_) {
            // A player that names itself oddly may still be recognised by its process.
            if (const auto process = processes_->process(*player->processIdentifier)) {
                resolved = resolveMusicPlayer(process->applicationIdentifier, process->name);
            }
        }
        if (resolved == wanted && isBetter(*player, best)) best = player;
    }
    return best;
}

PlayerStateReply MprisPlayerStateQuery::queryState(MusicPlayer player) {
    if (!registry_) return PlayerStateError{playerNotFoundError};
    const auto* target = playerFor(player);
    if (!target) return PlayerStateError{playerNotFoundError};

    const QDBusMessage reply = registry_->bus().call(mpris::propertyGetAll(target->busName, mpris::playerInterface),
                                                     QDBus::Block, timeLimitMilliseconds);
    if (reply.type() == QDBusMessage::ErrorMessage) return PlayerStateError{errorNumber(reply)};
    const auto properties = mpris::propertyMap(reply);
    if (!properties) return PlayerStateAnswer{std::nullopt};

    std::string answer = mpris::stringProperty(*properties, QStringLiteral("PlaybackStatus"))
                             .value_or(QString())
                             .toLower()
                             .toStdString();
    const auto volume = properties->constFind(QStringLiteral("Volume"));
    if (volume != properties->constEnd()) {
        bool isNumber = false;
        const double level = mpris::unwrapped(volume.value()).toDouble(&isNumber);
        if (isNumber) answer += "|" + shortestDecimal(level * 100.0);
    }
    return PlayerStateAnswer{std::move(answer)};
}

}  // namespace lorvane
