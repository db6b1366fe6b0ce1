// The settings window as a desktop user and a screen-reader user meet it: native controls, their
// accessible names and states, keyboard-only use, light and dark palettes, the live preview, and the
// window's manners.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAccessible>
#include <QAccessibleInterface>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QGroupBox>
#include <QImage>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <memory>

#include "app/QtTestEnvironment.h"
#include "core/Clock.h"
#include "ui/OverlayWindow.h"
#include "ui/shell/ChoiceGroup.h"
#include "ui/shell/SettingsView.h"
#include "ui/shell/SettingsWindow.h"
#include "ui/shell/SwatchButton.h"
#include "ui/shell/WavePreview.h"

using namespace lorvane;
using namespace lorvane::test;

namespace {

[[maybe_unused]] auto* const environment = ::testing::AddGlobalTestEnvironment(new QtTestEnvironment);

QString qText(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// The window over real preferences and model; the actions write the preferences as the controller's
// setters do.
struct Settings {
    explicit Settings(std::shared_ptr<MemoryKeyValueStore> store = std::make_shared<MemoryKeyValueStore>())
        : store(std::move(store)), preferences(this->store) {
        SettingsActions actions;
        actions.setOverlayEnabled = [this](bool on) { preferences.setOverlayEnabled(on); };
        actions.setAutoShow = [this](bool on) { preferences.setAutoShow(on); };
        actions.setAvoidsCoveringWindows = [this](bool on) { preferences.setAvoidsCoveringWindows(on); };
        actions.setAudioResponsive = [this](bool on) { preferences.setAudioResponsive(on); };
        actions.setDisplayMode = [this](OverlayDisplayMode mode) { preferences.setDisplayMode(mode); };
        actions.setPosition = [this](OverlayPosition position) { preferences.setPosition(position); };
        actions.setColor = [this](WaveColor color) { preferences.setColor(color); };
        actions.setPlayerEnabled = [this](MusicPlayer player, bool on) { preferences.setPlayer(player, on); };
        actions.retryAudioCapture = [this] { ++retries; };
        actions.openAudioCaptureSettings = [this] { ++permissionsOpened; };
        actions.setLaunchAtLogin = [](bool on) { return on; };
        window = std::make_unique<SettingsWindow>(preferences, model, playback, std::move(actions), false,
                                                  QStringLiteral("Version 1.0 (Build 5)"));
        view()->preview()->setClock(clock);
        view()->preview()->setOpenGlAllowed(false);
    }
    ~Settings() {
        window.reset();
        drainEvents();
    }

    SettingsView* view() const { return window->view(); }
    void show() {
        window->present();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        drainEvents();
    }
    bool activate() {
        window->activateWindow();
        QApplication::setActiveWindow(window.get());
        return QTest::qWaitForWindowActive(window.get());
    }
    SwatchButton* swatch(WaveColor color) const {
        for (SwatchButton* button : window->findChildren<SwatchButton*>()) {
            if (button->color() == color) return button;
        }
        return nullptr;
    }
    ChoiceGroup* choice(const QString& title) const {
        for (ChoiceGroup* group : window->findChildren<ChoiceGroup*>()) {
            if (group->title() == title) return group;
        }
        return nullptr;
    }

    std::shared_ptr<MemoryKeyValueStore> store;
    OverlayPreferences preferences;
    VisualizerModel model;
    PlaybackStatus playback;
    ManualClock clock{8.0e8};
    int retries = 0;
    int permissionsOpened = 0;
    std::unique_ptr<SettingsWindow> window;
};

// The widgets of a page that take keyboard focus, in reading order: top to bottom, then left to right.
// `tabStops` keeps only those Tab stops at (one per radio group: its checked button).
std::vector<QWidget*> focusableInVisualOrder(QWidget* page, bool tabStops = true) {
    std::vector<QWidget*> widgets;
    for (QWidget* widget : page->findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(page->window()) || !widget->isEnabled()) continue;
        if (widget->focusPolicy() == Qt::NoFocus) continue;
        const bool stop = widget->focusPolicy() & Qt::TabFocus;
        // Otherwise every control: Tab stops and the other buttons of their groups.
        if (tabStops ? !stop : !(stop || qobject_cast<QAbstractButton*>(widget))) continue;
        if (qobject_cast<QScrollBar*>(widget) || qobject_cast<QScrollArea*>(widget)) continue;
        widgets.push_back(widget);
    }
    std::stable_sort(widgets.begin(), widgets.end(), [page](QWidget* a, QWidget* b) {
        const QPoint pa = a->mapTo(page, QPoint()), pb = b->mapTo(page, QPoint());
        // Widgets whose rows overlap are on the same line.
        const bool sameLine = pa.y() < pb.y() + b->height() && pb.y() < pa.y() + a->height();
        return sameLine ? pa.x() < pb.x() : pa.y() < pb.y();
    });
    return widgets;
}

QPalette darkPalette() {
    QPalette p;
    p.setColor(QPalette::Window, QColor(53, 53, 53));
    p.setColor(QPalette::WindowText, QColor(230, 230, 230));
    p.setColor(QPalette::Base, QColor(35, 35, 35));
    p.setColor(QPalette::AlternateBase, QColor(53, 53, 53));
    p.setColor(QPalette::Text, QColor(230, 230, 230));
    p.setColor(QPalette::Button, QColor(64, 64, 64));
    p.setColor(QPalette::ButtonText, QColor(230, 230, 230));
    p.setColor(QPalette::Highlight, QColor(42, 130, 218));
    p.setColor(QPalette::HighlightedText, QColor(255, 255, 255));
    p.setColor(QPalette::Link, QColor(90, 160, 240));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(127, 127, 127));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(127, 127, 127));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(127, 127, 127));
    return p;
}

// Breeze's light colours: a pale accent that fails 3:1 on the window, which the ring must work around.
QPalette breezeLikePalette() {
    QPalette p;
    p.setColor(QPalette::Window, QColor(239, 240, 241));
    p.setColor(QPalette::WindowText, QColor(35, 38, 41));
    p.setColor(QPalette::Base, QColor(252, 252, 252));
    p.setColor(QPalette::Text, QColor(35, 38, 41));
    p.setColor(QPalette::Button, QColor(239, 240, 241));
    p.setColor(QPalette::ButtonText, QColor(35, 38, 41));
    p.setColor(QPalette::Highlight, QColor(61, 174, 233));
    p.setColor(QPalette::HighlightedText, QColor(252, 252, 252));
    p.setColor(QPalette::Link, QColor(41, 128, 185));
    return p;
}

QPalette fusionLightPalette() { return QStyleFactory::create(QStringLiteral("Fusion"))->standardPalette(); }

// Puts the application in the Fusion style with a palette for the length of a test.
struct ThemeScope {
    explicit ThemeScope(const QPalette& palette) : oldStyle(QApplication::style()->name()), oldPalette(QApplication::palette()) {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QApplication::setPalette(palette);
    }
    ~ThemeScope() {
        QApplication::setStyle(oldStyle);
        QApplication::setPalette(oldPalette);
    }
    QString oldStyle;
    QPalette oldPalette;
};

// Compares with the stored picture, or stores it when LORVANE_UPDATE_REFERENCE_IMAGES is set.
void compareWithReference(const QImage& actual, const QString& name) {
    const QString path = QStringLiteral(LORVANE_SETTINGS_REFERENCE_IMAGES) + "/" + name + ".png";
    if (qEnvironmentVariableIntValue("LORVANE_UPDATE_REFERENCE_IMAGES") == 1) {
        QDir().mkpath(QStringLiteral(LORVANE_SETTINGS_REFERENCE_IMAGES));
        ASSERT_TRUE(actual.convertToFormat(QImage::Format_ARGB32).save(path)) << path.toStdString();
        return;
    }
    QImage expected(path);
    ASSERT_FALSE(expected.isNull()) << "missing reference " << path.toStdString()
                                    << " (run with LORVANE_UPDATE_REFERENCE_IMAGES=1 to create it)";
    expected = expected.convertToFormat(QImage::Format_ARGB32);
    const QImage got = actual.convertToFormat(QImage::Format_ARGB32);
    ASSERT_EQ(expected.size(), got.size()) << name.toStdString();
    // Font hinting may move an edge by a shade; the layout and colours must not change.
    int differing = 0;
    double total = 0;
    for (int y = 0; y < got.height(); ++y) {
        for (int x = 0; x < got.width(); ++x) {
            const QRgb a = got.pixel(x, y), b = expected.pixel(x, y);
            const int difference = std::max({std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                             std::abs(qBlue(a) - qBlue(b))});
            total += difference;
            if (difference > 24) ++differing;
        }
    }
    const double pixels = got.width() * got.height();
    EXPECT_LT(total / pixels, 1.5) << name.toStdString();
    EXPECT_LT(differing / pixels, 0.01) << name.toStdString() << ": " << differing << " pixels differ";
}

// The ring's contrast against the window, read from the picture: the darkest-against-lightest ratio
// of ring pixels (on the ring's centre line, just above the swatch) against the window colour around.
double ringContrastFromPixels(const QImage& image, const QWidget* window, const SwatchButton* swatch) {
    const double ratio = image.devicePixelRatio();
    const QRectF inner = swatch->swatchRect();
    const QPoint origin = swatch->mapTo(window, QPoint());
    // Straight part of the top edge: 3 points above the gradient, in the middle of the swatch.
    const int y = static_cast<int>((origin.y() + inner.top() - 3) * ratio);
    const int xMid = static_cast<int>((origin.x() + inner.center().x()) * ratio);
    const QColor background = image.pixelColor(static_cast<int>((origin.x() + 0.5) * ratio), static_cast<int>((origin.y() + swatch->height() - 1) * ratio));
    double best = 1;
    for (int dy = -1; dy <= 1; ++dy) {
        const QColor ring = image.pixelColor(xMid, y + dy);
        best = std::max(best, contrastRatio(ring, background));
    }
    return best;
}

// The contrast between a radio indicator's centre (the dot when checked) and its fill just inside the rim.
double radioDotContrast(const QImage& image, const QWidget* window, QAbstractButton* radio) {
    QStyleOptionButton option;
    option.initFrom(radio);
    const QRect indicator = radio->style()->subElementRect(QStyle::SE_RadioButtonIndicator, &option, radio);
    const double ratio = image.devicePixelRatio();
    const QPointF centre = QPointF(radio->mapTo(window, indicator.center())) + QPointF(0.5, 0.5);
    const QColor dot = image.pixelColor((centre * ratio).toPoint());
    // A quarter of the way in from the left edge: inside the rim, outside the dot.
    const QPointF fillAt(radio->mapTo(window, QPoint(indicator.left(), 0)).x() + indicator.width() * 0.22, centre.y());
    const QColor fill = image.pixelColor((fillAt * ratio).toPoint());
    return contrastRatio(dot, fill);
}

}  // namespace

// MARK: Accessibility

TEST(SettingsAccessibility, PickersAreNamedGroupsOfRadioButtonsWithTheCurrentChecked) {
    Settings s;
    s.show();
    ChoiceGroup* mode = s.choice("Display Mode");
    ChoiceGroup* position = s.choice("Position");
    ASSERT_TRUE(mode && position);
    QAccessibleInterface* group = QAccessible::queryAccessibleInterface(mode);
    ASSERT_TRUE(group);
    EXPECT_EQ(group->role(), QAccessible::Grouping);
    EXPECT_EQ(group->text(QAccessible::Name), "Display Mode");
    QStringList names;
    for (int i = 0; i < group->childCount(); ++i) {
        QAccessibleInterface* child = group->child(i);
        if (child->role() != QAccessible::RadioButton) continue;
        names << child->text(QAccessible::Name);
        EXPECT_EQ(child->state().checked, i == 0) << child->text(QAccessible::Name).toStdString();
        EXPECT_FALSE(child->text(QAccessible::Description).isEmpty());
    }
    EXPECT_EQ(names, (QStringList{"Standard Waveform", "Fullscreen Fog"}));

    QAccessibleInterface* positions = QAccessible::queryAccessibleInterface(position);
    EXPECT_EQ(positions->role(), QAccessible::Grouping);
    EXPECT_EQ(positions->text(QAccessible::Name), "Position");
    s.preferences.setPosition(OverlayPosition::bottom);
    drainEvents();
    QAccessibleInterface* bottom = QAccessible::queryAccessibleInterface(position->button(2));
    EXPECT_EQ(bottom->role(), QAccessible::RadioButton);
    EXPECT_EQ(bottom->text(QAccessible::Name), "Bottom");
    EXPECT_TRUE(bottom->state().checked);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(position->button(1))->state().checked);
    // Fog disables the position choice, and assistive technology hears it.
    s.preferences.setDisplayMode(OverlayDisplayMode::fullscreenFog);
    drainEvents();
    EXPECT_TRUE(bottom->state().disabled);
    EXPECT_TRUE(bottom->state().checked);
}

TEST(SettingsAccessibility, SwatchesAreRadioButtonsNamedByTheirColourWithTheCurrentChecked) {
    Settings s;
    s.show();
    const auto all = allCases<WaveColor>();
    ASSERT_EQ(s.window->findChildren<SwatchButton*>().size(), static_cast<qsizetype>(all.size()));
    for (WaveColor color : all) {
        QAccessibleInterface* swatch = QAccessible::queryAccessibleInterface(s.swatch(color));
        ASSERT_TRUE(swatch);
        EXPECT_EQ(swatch->role(), QAccessible::RadioButton);
        EXPECT_EQ(swatch->text(QAccessible::Name), qText(displayName(color)));
        EXPECT_FALSE(swatch->text(QAccessible::Description).isEmpty());
        EXPECT_TRUE(swatch->state().checkable);
        EXPECT_EQ(swatch->state().checked, color == WaveColor::cyan) << rawValue(color);
    }
    // Choosing through the accessibility action, as a screen reader does.
    QAccessibleInterface* aurora = QAccessible::queryAccessibleInterface(s.swatch(WaveColor::aurora));
    ASSERT_TRUE(aurora->actionInterface());
    aurora->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    drainEvents();
    EXPECT_EQ(s.preferences.color(), WaveColor::aurora);
    EXPECT_TRUE(aurora->state().checked);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(s.swatch(WaveColor::cyan))->state().checked);
    // A change made elsewhere (the tray) moves the check too.
    s.preferences.setColor(WaveColor::neon);
    drainEvents();
    EXPECT_TRUE(QAccessible::queryAccessibleInterface(s.swatch(WaveColor::neon))->state().checked);
    EXPECT_FALSE(aurora->state().checked);
}

TEST(SettingsAccessibility, EveryControlHasANameAndADescription) {
    Settings s;
    s.view()->setTrayHostPresent(false);  // the Quit button too
    s.show();
    for (SettingsTab tab : allCases<SettingsTab>()) {
        s.view()->setSelectedTab(tab);
        drainEvents();
        for (QWidget* widget : focusableInVisualOrder(s.view()->page(tab), false)) {
            QAccessibleInterface* control = QAccessible::queryAccessibleInterface(widget);
            ASSERT_TRUE(control);
            const std::string what = std::string(rawValue(tab)) + ": " + widget->metaObject()->className() + " " +
                                     control->text(QAccessible::Name).toStdString();
            EXPECT_FALSE(control->text(QAccessible::Name).isEmpty()) << what;
            EXPECT_FALSE(control->text(QAccessible::Description).isEmpty()) << what;
        }
    }
    QAccessibleInterface* tabs = QAccessible::queryAccessibleInterface(s.view()->tabs()->tabBar());
    ASSERT_TRUE(tabs);
    QStringList tabNames;
    for (int i = 0; i < tabs->childCount(); ++i) tabNames << tabs->child(i)->text(QAccessible::Name);
    EXPECT_TRUE(tabNames.contains("Waveform") && tabNames.contains("General")) << tabNames.join(',').toStdString();
}

TEST(SettingsKeyboard, TabReachesEveryControlOfEachTabInVisualOrder) {
    Settings s;
    s.view()->setTrayHostPresent(false);
    s.show();
    ASSERT_TRUE(s.activate());
    for (SettingsTab tab : allCases<SettingsTab>()) {
        s.view()->setSelectedTab(tab);
        drainEvents();
        QWidget* page = s.view()->page(tab);
        const std::vector<QWidget*> expected = focusableInVisualOrder(page);
        ASSERT_FALSE(expected.empty()) << rawValue(tab);
        s.view()->tabs()->tabBar()->setFocus(Qt::TabFocusReason);
        drainEvents();
        ASSERT_EQ(QApplication::focusWidget(), s.view()->tabs()->tabBar());
        std::vector<QWidget*> reached;
        for (std::size_t step = 0; step < expected.size() + 4; ++step) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QWidget* now = QApplication::focusWidget();
            if (!now || !page->isAncestorOf(now)) break;
            // A label with links is one stop that Tab walks link by link.
            if (reached.empty() || reached.back() != now) reached.push_back(now);
        }
        auto names = [](const std::vector<QWidget*>& widgets) {
            QStringList list;
            for (QWidget* w : widgets) {
                list << (w->accessibleName().isEmpty() ? QString::fromLatin1(w->metaObject()->className())
                                                       : w->accessibleName());
            }
            return list.join(" | ").toStdString();
        };
        EXPECT_EQ(names(reached), names(expected)) << rawValue(tab);
    }
    // Within a group the arrow keys reach every choice (and, the group being exclusive, choose it).
    s.view()->setSelectedTab(SettingsTab::display);
    drainEvents();
    std::vector<WaveColor> visited{WaveColor::cyan};
    s.swatch(WaveColor::cyan)->setFocus(Qt::TabFocusReason);
    // Along the first row both ways, down, and along the second row both ways.
    std::vector<Qt::Key> keys(3, Qt::Key_Left);
    keys.insert(keys.end(), 9, Qt::Key_Right);
    keys.push_back(Qt::Key_Down);
    keys.insert(keys.end(), 9, Qt::Key_Left);
    keys.insert(keys.end(), 9, Qt::Key_Right);
    for (Qt::Key key : keys) {
        QTest::keyClick(QApplication::focusWidget(), key);
        drainEvents();
        visited.push_back(s.preferences.color());
    }
    for (WaveColor color : allCases<WaveColor>()) {
        EXPECT_NE(std::find(visited.begin(), visited.end(), color), visited.end()) << rawValue(color);
    }
    // The Tab stop follows the choice.
    EXPECT_TRUE(s.swatch(s.preferences.color())->focusPolicy() & Qt::TabFocus);
    EXPECT_FALSE(s.swatch(WaveColor::cyan)->focusPolicy() & Qt::TabFocus);
    EXPECT_EQ(QApplication::focusWidget(), s.swatch(s.preferences.color()));
}

TEST(SettingsKeyboard, ChoicesAreMadeWithTheKeyboardAlone) {
    Settings s;
    s.show();
    ASSERT_TRUE(s.activate());
    // A swatch takes focus and Space picks it.
    SwatchButton* ocean = s.swatch(WaveColor::ocean);
    ocean->setFocus(Qt::TabFocusReason);
    QTest::keyClick(ocean, Qt::Key_Space);
    drainEvents();
    EXPECT_EQ(s.preferences.color(), WaveColor::ocean);
    // Arrow keys move the position choice like any radio group.
    ChoiceGroup* position = s.choice("Position");
    position->button(1)->setFocus(Qt::TabFocusReason);
    QTest::keyClick(position->button(1), Qt::Key_Right);
    drainEvents();
    EXPECT_EQ(s.preferences.position(), OverlayPosition::bottom);
    // A toggle with Space.
    QCheckBox* react = nullptr;
    for (QCheckBox* box : s.window->findChildren<QCheckBox*>()) {
        if (box->text() == "React to Volume and Rhythm") react = box;
    }
    ASSERT_TRUE(react);
    s.view()->setSelectedTab(SettingsTab::audio);
    drainEvents();
    react->setFocus(Qt::TabFocusReason);
    QTest::keyClick(react, Qt::Key_Space);
    drainEvents();
    EXPECT_FALSE(s.preferences.audioResponsive());
}

// MARK: Window manners

TEST(SettingsWindowManners, EscapeAndCtrlWCloseTheWindow) {
    Settings s;
    for (const QKeySequence& key : {QKeySequence(Qt::Key_Escape), QKeySequence(QStringLiteral("Ctrl+W"))}) {
        s.show();
        ASSERT_TRUE(s.activate());
        ASSERT_TRUE(s.window->isVisible());
        QTest::keySequence(QApplication::focusWidget() ? QApplication::focusWidget() : s.window.get(), key);
        EXPECT_TRUE(waitUntil([&] { return !s.window->isVisible(); }, 5000)) << key.toString().toStdString();
    }
}

TEST(SettingsWindowManners, TheSizeIsRememberedInTheSettingsStore) {
    auto store = std::make_shared<MemoryKeyValueStore>();
    {
        Settings s(store);
        EXPECT_EQ(s.window->size(), QSize(620, 470));
        s.show();
        s.window->resize(700, 530);
        drainEvents();
        s.window->close();
        EXPECT_EQ(store->string(OverlayPreferences::settingsWindowSizeKey), "700x530");
    }
    {
        Settings s(store);
        EXPECT_EQ(s.window->size(), QSize(700, 530));
    }
    // Nonsense in the store gives the first-run size, never a broken window.
    for (const char* bad : {"", "x", "700", "-5x400", "700x", "99999x99999", "1e3x400", "700x530x2"}) {
        store->setString(OverlayPreferences::settingsWindowSizeKey, bad);
        Settings s(store);
        EXPECT_EQ(s.window->size(), QSize(620, 470)) << bad;
    }
    // A remembered size below the minimum grows to it.
    store->setString(OverlayPreferences::settingsWindowSizeKey, "100x100");
    Settings small(store);
    EXPECT_EQ(small.window->size(), QSize(560, 430));
}

TEST(SettingsWindowManners, AboutShowsTheLicenseHomePageAndBugTracker) {
    Settings s;
    s.show();
    s.view()->setSelectedTab(SettingsTab::general);
    drainEvents();
    QWidget* page = s.view()->page(SettingsTab::general);
    QStringList texts;
    for (QLabel* label : page->findChildren<QLabel*>()) texts << label->text();
    const QString all = texts.join('\n');
    EXPECT_TRUE(all.contains("GPL-3.0-or-later"));
    EXPECT_TRUE(all.contains("https://github.com/tarnhollow/lorvane\""));
    EXPECT_TRUE(all.contains("https://github.com/tarnhollow/lorvane/issues"));
    EXPECT_TRUE(SettingsView::licenseText().contains("GNU GENERAL PUBLIC LICENSE"));
    EXPECT_TRUE(SettingsView::licenseText().contains("Version 3, 29 June 2007"));

    QPushButton* show = nullptr;
    for (QPushButton* button : page->findChildren<QPushButton*>()) {
        if (button->text() == "Show License") show = button;
    }
    ASSERT_TRUE(show);
    show->click();
    QDialog* dialog = nullptr;
    ASSERT_TRUE(waitUntil([&] {
        dialog = s.window->findChild<QDialog*>(QStringLiteral("LorvaneLicense"));
        return dialog && dialog->isVisible();
    }));
    auto* text = dialog->findChild<QPlainTextEdit*>();
    ASSERT_TRUE(text);
    EXPECT_EQ(text->toPlainText(), SettingsView::licenseText());
    dialog->reject();
}

TEST(SettingsWindowManners, TheFirstTabFitsWithoutScrolling) {
    // Run once at 100 % and once under QT_SCALE_FACTOR=2 (a separate CTest entry).
    Settings s;
    s.show();
    if (const double scale = qEnvironmentVariable("QT_SCALE_FACTOR").toDouble(); scale > 0) {
        EXPECT_EQ(s.window->devicePixelRatioF(), scale);
        EXPECT_EQ(s.window->size(), QSize(620, 470));
    }
    auto* scroll = qobject_cast<QScrollArea*>(s.view()->page(SettingsTab::display));
    ASSERT_TRUE(scroll);
    drainEvents();
    const int needed = scroll->widget()->sizeHint().height();
    EXPECT_LE(needed, scroll->viewport()->height())
        << "scale " << s.window->devicePixelRatioF() << ": needs " << needed << ", has " << scroll->viewport()->height();
    EXPECT_FALSE(scroll->verticalScrollBar()->isVisible());
    // Nothing is cut off at the side either, even at the smallest size.
    EXPECT_LE(scroll->widget()->minimumSizeHint().width(), scroll->viewport()->width());
    s.window->resize(s.window->minimumSize());
    drainEvents();
    EXPECT_LE(scroll->widget()->minimumSizeHint().width(), scroll->viewport()->width());
}

// MARK: Notices from other parts of the program

TEST(SettingsNotices, NoTrayHostOffersQuitAndTheOtherNoticesShowOnlyWithText) {
    Settings s;
    int quits = 0;
    s.view()->setQuitHandler([&] { ++quits; });
    s.show();
    QWidget* general = s.view()->page(SettingsTab::general);
    s.view()->setSelectedTab(SettingsTab::general);
    drainEvents();
    auto quitButton = [&]() -> QPushButton* {
        for (QPushButton* button : general->findChildren<QPushButton*>()) {
            if (button->text() == "Quit Lorvane") return button;
        }
        return nullptr;
    };
    ASSERT_TRUE(quitButton());
    EXPECT_FALSE(quitButton()->isVisibleTo(s.window.get()));
    s.view()->setTrayHostPresent(false);
    EXPECT_TRUE(quitButton()->isVisibleTo(s.window.get()));
    quitButton()->click();
    EXPECT_EQ(quits, 1);
    s.view()->setTrayHostPresent(true);
    EXPECT_FALSE(quitButton()->isVisibleTo(s.window.get()));

    auto visibleTexts = [&](QWidget* page) {
        QStringList texts;
        for (QLabel* label : page->findChildren<QLabel*>()) {
            if (label->isVisibleTo(page)) texts << label->text();
        }
        return texts;
    };
    s.view()->setAutostartWarning("This is a development build");
    s.view()->setSettingsNotSavedNotice("Settings cannot be saved");
    s.view()->setCaptureFailureReason("The sound server is not running");
    EXPECT_TRUE(visibleTexts(general).contains("This is a development build"));
    EXPECT_TRUE(visibleTexts(general).contains("Settings cannot be saved"));
    EXPECT_TRUE(visibleTexts(s.view()->page(SettingsTab::audio)).contains("The sound server is not running"));
    s.view()->setSettingsNotSavedNotice({});
    EXPECT_FALSE(visibleTexts(general).contains("Settings cannot be saved"));
    EXPECT_TRUE(s.view()->otherPlayersSlot());
}

TEST(SettingsNotices, TheAudioRowGivesTheModelsCaptureFailureReasonUntilCaptureIsLiveAgain) {
    Settings s;
    s.show();
    s.view()->setSelectedTab(SettingsTab::audio);
    QWidget* audio = s.view()->page(SettingsTab::audio);
    auto shows = [&](const QString& text) {
        for (QLabel* label : audio->findChildren<QLabel*>()) {
            if (label->isVisibleTo(audio) && label->text() == text) return true;
        }
        return false;
    };
    const QString reason = QStringLiteral("No sound server is running");
    EXPECT_FALSE(shows(reason));
    s.model.useFallbackAudio(AudioCaptureFailureReport(AudioCaptureFailure::unavailable, AudioCaptureReason::noSoundServer));
    EXPECT_TRUE(shows(reason));
    AudioVisualizationFrame frame;
    frame.level = 0.5;
    frame.spectrum.assign(96, 0.2);
    s.model.updateLiveFrame(frame);
    EXPECT_FALSE(shows(reason));
}

// MARK: Updates

TEST(SettingsUpdates, TheAudioRowIsRefreshedOnlyWhileTheWindowIsVisible) {
    Settings s;
    s.show();
    s.model.updateLiveFrame({0.25, 1.0, 0.0, std::vector<double>(96, 0.2)});
    drainEvents();
    QLabel* status = nullptr;
    for (QLabel* label : s.view()->page(SettingsTab::audio)->findChildren<QLabel*>()) {
        if (label->accessibleName() == "Audio Detection Status") status = label;
    }
    ASSERT_TRUE(status);
    EXPECT_EQ(status->text(), QString::fromUtf8("Live Audio and Rhythm \u00B7 25%"));
    s.window->close();
    drainEvents();
    const long long before = s.view()->audioRowRefreshes();
    for (int i = 0; i < 30; ++i) {
        s.model.updateLiveFrame({0.30 + i * 0.01, 1.0, 0.0, std::vector<double>(96, 0.2)});
        drainEvents();
    }
    EXPECT_EQ(s.view()->audioRowRefreshes(), before);
    EXPECT_EQ(status->text(), QString::fromUtf8("Live Audio and Rhythm \u00B7 25%"));
    s.show();
    EXPECT_EQ(status->text(), QString::fromUtf8("Live Audio and Rhythm \u00B7 59%"));
}

TEST(SettingsUpdates, AChangeTouchesOnlyTheWidgetsShowingIt) {
    Settings s;
    s.show();
    auto counts = [&] {
        std::vector<long long> all;
        for (PreferenceKey key : allCases<PreferenceKey>()) all.push_back(s.view()->preferenceUpdates(key));
        return all;
    };
    const std::vector<long long> before = counts();
    s.preferences.setColor(WaveColor::mintGrape);
    s.preferences.setColor(WaveColor::mintGrape);  // the same value again: nothing to show
    std::vector<long long> after = counts();
    for (PreferenceKey key : allCases<PreferenceKey>()) {
        const long long expected = before[caseIndex(key)] + (key == PreferenceKey::color ? 1 : 0);
        EXPECT_EQ(after[caseIndex(key)], expected) << rawValue(key);
    }
    EXPECT_TRUE(s.swatch(WaveColor::mintGrape)->isChecked());
    // Live audio frames touch the audio row and no preference widget.
    const long long rows = s.view()->audioRowRefreshes();
    for (int i = 0; i < 5; ++i) s.model.updateLiveFrame({0.2 + i * 0.05, 1.0, 0.0, std::vector<double>(96, 0.2)});
    EXPECT_EQ(counts(), after);
    EXPECT_GE(s.view()->audioRowRefreshes(), rows + 5);
    EXPECT_LE(s.view()->audioRowRefreshes(), rows + 10);
}

// MARK: Themes

TEST(SettingsTheme, TheRingKeepsThreeToOneInEveryPaletteAndFollowsAPaletteChange) {
    for (const QPalette& palette : {fusionLightPalette(), darkPalette(), breezeLikePalette()}) {
        const QColor ring = SwatchButton::ringColor(palette);
        EXPECT_GE(contrastRatio(ring, palette.color(QPalette::Window)), 3.0) << ring.name().toStdString();
    }
    // Breeze's own accent is too pale on its window, so the ring falls back to the text colour.
    EXPECT_LT(contrastRatio(breezeLikePalette().color(QPalette::Highlight), breezeLikePalette().color(QPalette::Window)), 3.0);

    ThemeScope light(fusionLightPalette());
    Settings s;
    s.show();
    const QImage tabIconBefore = s.view()->tabs()->tabIcon(0).pixmap(16, 16).toImage();
    QApplication::setPalette(darkPalette());
    drainEvents();
    EXPECT_EQ(s.swatch(WaveColor::cyan)->palette().color(QPalette::Window), QColor(53, 53, 53));
    const QImage tabIconAfter = s.view()->tabs()->tabIcon(0).pixmap(16, 16).toImage();
    EXPECT_NE(tabIconBefore, tabIconAfter);
}

TEST(SettingsTheme, PicturesInLightDarkAndBreezeLikePalettesWithAVisibleSelection) {
    struct Case {
        const char* name;
        QPalette palette;
    };
    const Case cases[] = {{"settings-fusion-light", fusionLightPalette()},
                          {"settings-fusion-dark", darkPalette()},
                          {"settings-breeze-like", breezeLikePalette()}};
    for (const Case& c : cases) {
        ThemeScope theme(c.palette);
        Settings s;
        s.preferences.setColor(WaveColor::sunset);
        s.show();
        s.window->setFocus();
        drainEvents();
        // The preview is drawn at a fixed time, so the whole picture repeats.
        const QImage image = s.window->grab().toImage();
        ASSERT_FALSE(image.isNull());
        const double ring = ringContrastFromPixels(image, s.window.get(), s.swatch(WaveColor::sunset));
        EXPECT_GE(ring, 3.0) << c.name;
        // An unselected swatch has no ring there.
        const double plain = ringContrastFromPixels(image, s.window.get(), s.swatch(WaveColor::ocean));
        EXPECT_LT(plain, 1.5) << c.name;
        // The checked radio button's dot stands out from the indicator it sits in.
        ChoiceGroup* mode = s.choice("Display Mode");
        EXPECT_GE(radioDotContrast(image, s.window.get(), mode->button(0)), 3.0) << c.name;
        EXPECT_LT(radioDotContrast(image, s.window.get(), mode->button(1)), 1.5) << c.name;
        compareWithReference(image, c.name);
    }
}

// MARK: Preview

TEST(SettingsPreview, DrawsWhileTheDisplayTabShowsAndStopsWhenHidden) {
    Settings s;
    WavePreview* preview = s.view()->preview();
    EXPECT_FALSE(preview->isAnimating());
    EXPECT_EQ(preview->framesDrawn(), 0);
    s.show();
    ASSERT_TRUE(waitUntil([&] { return preview->framesDrawn() >= 3; }));
    EXPECT_TRUE(preview->isAnimating());

    // Another tab: the ticker stops and no frame is drawn while 10 ticks of a 30 Hz timer pass.
    s.view()->setSelectedTab(SettingsTab::players);
    drainEvents();
    EXPECT_FALSE(preview->isAnimating());
    const long long hidden = preview->framesDrawn();
    int ticks = 0;
    QTimer probe;
    QObject::connect(&probe, &QTimer::timeout, [&] { ++ticks; });
    probe.start(33);
    ASSERT_TRUE(waitUntil([&] { return ticks >= 10; }));
    EXPECT_EQ(preview->framesDrawn(), hidden);

    // Back on the tab it draws again; a closed window draws nothing.
    s.view()->setSelectedTab(SettingsTab::display);
    ASSERT_TRUE(waitUntil([&] { return preview->framesDrawn() >= hidden + 2; }));
    s.window->close();
    drainEvents();
    EXPECT_FALSE(preview->isAnimating());
    const long long closed = preview->framesDrawn();
    ticks = 0;
    ASSERT_TRUE(waitUntil([&] { return ticks >= 10; }));
    EXPECT_EQ(preview->framesDrawn(), closed);
}

TEST(SettingsPreview, ANewlyChosenColourShowsInTheNextFrame) {
    Settings s;
    s.show();
    WavePreview* preview = s.view()->preview();
    ASSERT_TRUE(waitUntil([&] { return preview->framesDrawn() >= 1; }));
    EXPECT_EQ(preview->lastDrawnColor(), WaveColor::cyan);
    // Orange against cyan: the picture's reddest bar pixel tells them apart.
    auto reddest = [&] {
        const QImage image = preview->grab().toImage();
        int best = -255;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                best = std::max(best, c.red() - c.blue());
            }
        }
        return best;
    };
    EXPECT_LT(reddest(), 60);
    const long long before = preview->framesDrawn();
    s.swatch(WaveColor::orange)->click();
    ASSERT_TRUE(waitUntil([&] { return preview->framesDrawn() > before; }));
    EXPECT_EQ(preview->lastDrawnColor(), WaveColor::orange);
    EXPECT_GT(reddest(), 120);
}

// The CPU path redraws one picture frame after frame: it still moves with time and the analysis.
TEST(SettingsPreview, OnTheCpuPathMovesWithTheLiveAnalysisAndWithTheIdleWave) {
    if (!qEnvironmentVariableIsEmpty("LORVANE_RENDERER")) GTEST_SKIP() << "LORVANE_RENDERER chooses the path";
    Settings s;
    WavePreview* preview = s.view()->preview();
    preview->setOpenGlAllowed(true);
    s.preferences.setRenderer(RendererChoice::cpu);
    s.show();
    auto picture = [&] { return preview->grab().toImage(); };
    const QImage idle = picture();
    EXPECT_EQ(preview->lastDrawingPath(), DrawingPath::cpu);
    s.clock.advance(0.5);
    const QImage idleLater = picture();
    EXPECT_NE(idle, idleLater);
    s.model.updateLiveFrame({0.95, 1.6, 1.0, std::vector<double>(96, 0.9)});
    const QImage loud = picture();
    EXPECT_NE(loud, idleLater);
    EXPECT_EQ(preview->lastDrawingPath(), DrawingPath::cpu);
}

TEST(SettingsPreview, MovesWithTheLiveAnalysisAndWithTheIdleWave) {
    Settings s;
    s.show();
    WavePreview* preview = s.view()->preview();
    auto picture = [&] { return preview->grab().toImage(); };
    const QImage idle = picture();
    s.clock.advance(0.5);
    const QImage idleLater = picture();
    EXPECT_NE(idle, idleLater);  // the idle wave moves with time
    s.model.updateLiveFrame({0.95, 1.6, 1.0, std::vector<double>(96, 0.9)});
    const QImage loud = picture();
    EXPECT_NE(loud, idleLater);  // and follows the analysis at the same time
}

// The preview draws the way the overlay does: the drawing setting switches it, and where OpenGL
// cannot draw it stays on the CPU path.
TEST(SettingsPreview, FollowsTheDrawingSetting) {
    if (!qEnvironmentVariableIsEmpty("LORVANE_RENDERER")) GTEST_SKIP() << "LORVANE_RENDERER chooses the path";
    Settings s;
    WavePreview* preview = s.view()->preview();
    preview->setOpenGlAllowed(true);
    s.show();
    const auto drawnWith = [&](DrawingPath path) {
        const long long before = preview->framesDrawn();
        return waitUntil([&] { return preview->framesDrawn() > before + 1 && preview->lastDrawingPath() == path; });
    };
    const bool glDraws = openGlRendererName().has_value();
    EXPECT_TRUE(drawnWith(chooseDrawingPath("", RendererChoice::automatic, openGlRendererName())));
    s.preferences.setRenderer(RendererChoice::cpu);
    EXPECT_TRUE(drawnWith(DrawingPath::cpu));
    s.preferences.setRenderer(RendererChoice::gl);
    EXPECT_TRUE(drawnWith(glDraws ? DrawingPath::gl : DrawingPath::cpu));
    // Both paths draw the chosen colour's bars.
    s.preferences.setColor(WaveColor::orange);
    const long long before = preview->framesDrawn();
    ASSERT_TRUE(waitUntil([&] { return preview->framesDrawn() > before + 1; }));
    const QImage image = preview->grab().toImage();
    int reddest = -255;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) reddest = std::max(reddest, image.pixelColor(x, y).red() - image.pixelColor(x, y).blue());
    }
    EXPECT_GT(reddest, 120);
}
