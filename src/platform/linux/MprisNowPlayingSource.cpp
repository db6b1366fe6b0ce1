#include "platform/linux/MprisNowPlayingSource.h"

#include <utility>

#include "platform/linux/MprisBus.h"

namespace lorvane {

std::shared_ptr<MprisNowPlayingSource> MprisNowPlayingSource::make(std::shared_ptr<MprisPlayerRegistry> registry,
                                                                   MainQueue& mainQueue) {
    if (!registry) return nullptr;
    return std::shared_ptr<MprisNowPlayingSource>(new MprisNowPlayingSource(std::move(registry), mainQueue));
}

MprisNowPlayingSource::MprisNowPlayingSource(std::shared_ptr<MprisPlayerRegistry> registry, MainQueue& mainQueue)
    : registry_(std::move(registry)), mainQueue_(mainQueue), pendingCalls_(std::make_unique<QObject>()) {}

void MprisNowPlayingSource::getApplicationProcessIdentifier(std::function<void(std::int32_t)> callback) {
    const auto* player = registry_->nowPlaying();
    if (!player) {
        mainQueue_.post([callback = std::move(callback)] { callback(0); });
        return;
    }
    if (player->processIdentifier) {
        mainQueue_.post([callback = std::move(callback), pid = *player->processIdentifier] { callback(pid); });
        return;
    }
    auto message = QDBusMessage::createMethodCall(mpris::busService, mpris::busPath, mpris::busInterface,
                                                  QStringLiteral("GetConnectionUnixProcessID"));
    message << player->busName;
    mpris::callAsync(registry_->bus(), message, answerTimeLimitMilliseconds, pendingCalls_.get(),
                     [registry = registry_, busName = player->busName, serial = player->serial,
                      callback = std::move(callback)](const QDBusMessage& reply) {
                         if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return;
                         const auto pid = static_cast<std::int32_t>(reply.arguments().constFirst().toUInt());
                         registry->noteProcessIdentifier(busName, serial, pid);
                         callback(pid);
                     });
}

void MprisNowPlayingSource::getApplicationIsPlaying(std::function<void(bool)> callback) {
    const auto* player = registry_->nowPlaying();
    if (!player) {
        mainQueue_.post([callback = std::move(callback)] { callback(false); });
        return;
    }
    mpris::callAsync(registry_->bus(),
                     mpris::propertyGet(player->busName, mpris::playerInterface, QStringLiteral("PlaybackStatus")),
                     answerTimeLimitMilliseconds, pendingCalls_.get(),
                     [registry = registry_, busName = player->busName, serial = player->serial,
                      callback = std::move(callback)](const QDBusMessage& reply) {
                         // An error, a refusal or no answer in time: stay silent.
                         const auto value = mpris::propertyValue(reply);
                         if (!value || value->metaType() != QMetaType::fromType<QString>()) return;
                         const QString status = value->toString();
                         registry->noteStatus(busName, serial, status);
                         callback(status == QStringLiteral("Playing"));
                     });
}

}  // namespace lorvane
