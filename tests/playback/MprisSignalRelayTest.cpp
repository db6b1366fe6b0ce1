// What the decoding thread hands on: only the properties read, texts cut, wrong types left out.

#include <gtest/gtest.h>

#include <QDBusVariant>
#include <QStringList>

#include "core/MusicPlayer.h"
#include "platform/linux/MprisBus.h"
#include "platform/linux/MprisSignalRelay.h"

using namespace lorvane;

TEST(MprisSignalReceiver, KeepsOnlyThePropertiesReadWithTextsCutAndWrongTypesLeftOut) {
    const QString huge(200000, QLatin1Char('I'));
    const QVariantMap root{{QStringLiteral("Identity"), QVariant::fromValue(QDBusVariant(huge))},
                           {QStringLiteral("DesktopEntry"), 7},
                           {QStringLiteral("SupportedMimeTypes"), QStringList(1000, QStringLiteral("audio/x"))}};
    const QVariantMap keptRoot = MprisSignalReceiver::keptProperties(mpris::rootInterface, root);
    ASSERT_EQ(keptRoot.size(), 1) << "a desktop entry that is no text reads as absent";
    const QString identity = keptRoot.value(QStringLiteral("Identity")).toString();
    EXPECT_EQ(static_cast<std::size_t>(identity.toUtf8().size()), maxForeignTextBytes);
    EXPECT_TRUE(huge.startsWith(identity));

    const QVariantMap player{{QStringLiteral("PlaybackStatus"), QStringLiteral("Playing")},
                             {QStringLiteral("Volume"), 0.5},
                             {QStringLiteral("Metadata"), QVariantMap{{QStringLiteral("xesam:title"), huge}}},
                             {QStringLiteral("Identity"), QStringLiteral("not of this interface")}};
    const QVariantMap keptPlayer = MprisSignalReceiver::keptProperties(mpris::playerInterface, player);
    EXPECT_EQ(keptPlayer, (QVariantMap{{QStringLiteral("PlaybackStatus"), QStringLiteral("Playing")},
                                       {QStringLiteral("Volume"), 0.5}}));
    // A volume sent as text is no volume, a status sent as a number no status.
    EXPECT_TRUE(MprisSignalReceiver::keptProperties(
                    mpris::playerInterface,
                    {{QStringLiteral("Volume"), QStringLiteral("loud")}, {QStringLiteral("PlaybackStatus"), 42}})
                    .isEmpty());
}
