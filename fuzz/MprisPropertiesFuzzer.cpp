// Any bytes as what a player answers over D-Bus: the bytes are decoded into a property map of every
// shape a player might send (strings, numbers, lists, nested variants, wrong types) and read through
// the same helpers the playback code uses. Nothing may crash, and no text read from a player may
// exceed the bound on text from other processes, nor reach the main thread with a wrong type.

#include <QDBusMessage>
#include <QDBusVariant>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "core/MusicPlayer.h"
#include "platform/linux/MprisBus.h"
#include "platform/linux/MprisSignalRelay.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool bounded(const QString& text) {
    return static_cast<std::size_t>(text.toUtf8().size()) <= lorvane::maxForeignTextBytes;
}

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    std::uint8_t byte() { return empty() ? 0 : data_[at_++]; }
    // Up to 255 bytes, or (when the first length byte is 255) up to 65535, so the bound is reached.
    QString string() {
        std::size_t wanted = byte();
        if (wanted == 255) wanted = static_cast<std::size_t>(byte()) << 8 | byte();
        const std::size_t length = std::min<std::size_t>(wanted, size_ - std::min(at_, size_));
        const QString text =
            QString::fromUtf8(reinterpret_cast<const char*>(data_ + at_), static_cast<qsizetype>(length));
        at_ += length;
        return text;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

QVariant value(Bytes& bytes, int depth) {
    switch (bytes.byte() % 8) {
        case 0:
            return bytes.string();
        case 1:
            return static_cast<int>(bytes.byte()) - 128;
        case 2:
            return static_cast<double>(bytes.byte()) / 17.0 - 3.0;
        case 3:
            return (bytes.byte() & 1) != 0;
        case 4:
            return QStringList{bytes.string(), bytes.string()};
        case 5:
            if (depth > 3) return {};
            return QVariant::fromValue(QDBusVariant(value(bytes, depth + 1)));
        case 6: {
            if (depth > 3) return {};
            QVariantMap nested;
            nested.insert(bytes.string(), value(bytes, depth + 1));
            return nested;
        }
        default:
            return {};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace lorvane;
    Bytes bytes(data, size);
    static const QStringList names{"PlaybackStatus", "Identity", "DesktopEntry", "Volume", "Metadata", "CanPlay"};
    QVariantMap properties;
    for (int i = 0; i < 8 && !bytes.empty(); ++i) {
        const QString name = (bytes.byte() & 1) != 0 ? names[bytes.byte() % names.size()] : bytes.string();
        properties.insert(name, value(bytes, 0));
    }
    for (const QString& name : names) {
        if (const auto text = mpris::stringProperty(properties, name)) require(bounded(*text));
        (void)mpris::doubleProperty(properties, name);
        (void)mpris::unwrapped(properties.value(name));
    }
    // What the signal thread hands on: only read names, texts within the bound, the right types.
    for (const QString& interface : {mpris::rootInterface, mpris::playerInterface}) {
        const QVariantMap kept = MprisSignalReceiver::keptProperties(interface, properties);
        for (auto it = kept.constBegin(); it != kept.constEnd(); ++it) {
            require(names.contains(it.key()));
            if (it.key() == QLatin1String("Volume")) {
                require(it.value().metaType() == QMetaType::fromType<double>());
            } else {
                require(it.value().metaType() == QMetaType::fromType<QString>() && bounded(it.value().toString()));
            }
        }
    }
    // The whole input as text: cut to the bound, at a character boundary, keeping its start.
    const QString whole = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString cut = mpris::boundedText(whole);
    require(bounded(cut) && whole.startsWith(cut));
    require(cut.isEmpty() || !cut.back().isHighSurrogate());
    // The same map as the reply to GetAll and to Get, as the helpers receive it.
    QDBusMessage call = QDBusMessage::createMethodCall("org.mpris.MediaPlayer2.fuzz", mpris::objectPath,
                                                       mpris::propertiesInterface, "GetAll");
    QDBusMessage reply = call.createReply(QVariantList{QVariant(properties)});
    (void)mpris::propertyMap(reply);
    (void)mpris::propertyValue(call.createReply(QVariantList{value(bytes, 0)}));
    (void)mpris::propertyMap(call.createErrorReply("org.freedesktop.DBus.Error.Failed", bytes.string()));
    return 0;
}
