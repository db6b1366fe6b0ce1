// The application and tray icons: the installed theme's files win, and the copies built into the
// program draw the same SVG files when no theme has them.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <QSet>
#include <QTemporaryDir>
#include <cstdlib>

#include "app/QtTestEnvironment.h"
#include "ui/shell/WaveformIcon.h"

using namespace lorvane;
using lorvane::test::QtTestEnvironment;

namespace {

[[maybe_unused]] auto* const environment = ::testing::AddGlobalTestEnvironment(new QtTestEnvironment);

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The distinct colours of the pixels that are more than half covered.
QSet<QRgb> coloursOf(const QIcon& icon, int size) {
    const QImage image = icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qAlpha(pixel) > 128) colours.insert(pixel | 0xff000000u);
        }
    }
    return colours;
}

// A theme search path with nothing in it, so only the built-in icons are left.
class IconTest : public ::testing::Test {
protected:
    void SetUp() override {
        savedPaths_ = QIcon::themeSearchPaths();
        savedTheme_ = QIcon::themeName();
        ASSERT_TRUE(themes_.isValid());
        QIcon::setThemeSearchPaths({themes_.path()});
        QIcon::setThemeName(QStringLiteral("hicolor"));
    }
    void TearDown() override {
        QIcon::setThemeSearchPaths(savedPaths_);
        QIcon::setThemeName(savedTheme_);
    }
    QTemporaryDir themes_;

private:
    QStringList savedPaths_;
    QString savedTheme_;
};

}  // namespace

TEST_F(IconTest, TheBuiltInIconsAreTheInstalledFiles) {
    for (const QString& name : {QStringLiteral("com.tarnhollow.Lorvane"), QStringLiteral("com.tarnhollow.Lorvane-symbolic")}) {
        const QByteArray builtIn = readAll(QStringLiteral(":/icons/%1.svg").arg(name));
        EXPECT_FALSE(builtIn.isEmpty()) << name.toStdString();
        EXPECT_EQ(builtIn, readAll(QStringLiteral(LORVANE_ICON_SOURCE_DIR "/%1.svg").arg(name))) << name.toStdString();
    }
}

TEST_F(IconTest, WithoutAThemeTheBuiltInIconsDraw) {
    // The application icon: a coloured tile with white bars.
    const QSet<QRgb> application = coloursOf(applicationIcon(), 48);
    EXPECT_GT(application.size(), 20);
    // The tray icon is symbolic: one colour only (edges aside, which round a step apart), for the
    // theme to replace.
    const QSet<QRgb> tray = coloursOf(waveformTrayIcon(), 22);
    ASSERT_FALSE(tray.isEmpty());
    const QRgb first = *tray.begin();
    for (const QRgb colour : tray) {
        EXPECT_LE(std::abs(qRed(colour) - qRed(first)) + std::abs(qGreen(colour) - qGreen(first)) +
                      std::abs(qBlue(colour) - qBlue(first)),
                  6);
    }
    const QImage image = waveformTrayIcon().pixmap(22, 22).toImage().convertToFormat(QImage::Format_ARGB32);
    int covered = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) covered += qAlpha(image.pixel(x, y)) > 128 ? 1 : 0;
    }
    // Seven bars: a good part of the square, not all of it.
    EXPECT_GT(covered, 22 * 22 / 8);
    EXPECT_LT(covered, 22 * 22 / 2);
}

TEST_F(IconTest, AnInstalledThemeIconWins) {
    const QString root = themes_.path() + QStringLiteral("/hicolor");
    ASSERT_TRUE(write(root + "/index.theme",
                      "[Icon Theme]\nName=Hicolor\nDirectories=symbolic/apps,scalable/apps\n\n"
                      "[symbolic/apps]\nSize=16\nMinSize=8\nMaxSize=512\nType=Scalable\n\n"
                      "[scalable/apps]\nSize=128\nMinSize=8\nMaxSize=512\nType=Scalable\n"));
    // A plain red square, so it cannot be mistaken for the built-in drawing.
    const QByteArray square =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"16\" height=\"16\"><rect width=\"16\" height=\"16\" "
        "fill=\"#ff0000\"/></svg>\n";
    ASSERT_TRUE(write(root + "/symbolic/apps/com.tarnhollow.Lorvane-symbolic.svg", square));
    ASSERT_TRUE(write(root + "/scalable/apps/com.tarnhollow.Lorvane.svg", square));
    QIcon::setThemeSearchPaths({themes_.path()});  // forgets what was looked up before

    const QIcon tray = waveformTrayIcon();
    EXPECT_EQ(tray.name(), "com.tarnhollow.Lorvane-symbolic");
    EXPECT_EQ(coloursOf(tray, 22), QSet<QRgb>{qRgb(255, 0, 0)});
    const QIcon application = applicationIcon();
    EXPECT_EQ(application.name(), "com.tarnhollow.Lorvane");
    EXPECT_EQ(coloursOf(application, 48), QSet<QRgb>{qRgb(255, 0, 0)});
}
