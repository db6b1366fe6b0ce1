#include "ui/shell/SettingsView.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QEvent>
#include <QFile>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QStyle>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "core/app/SettingsTable.h"
#include "ui/shell/ChoiceGroup.h"
#include "ui/shell/OtherPlayersSection.h"
#include "ui/shell/SwatchButton.h"
#include "ui/shell/SymbolIcon.h"
#include "ui/shell/WavePreview.h"
#include "ui/shell/WaveformIcon.h"

namespace lorvane {

namespace {

QString qText(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// The window's title of a setting, as the settings table gives it.
QString settingTitle(SettingKey key) { return qText(setting(key).windowTitle); }

QStringList optionTitles(SettingKey key) {
    QStringList titles;
    for (const SettingOption& option : setting(key).options) titles << qText(option.windowTitle);
    return titles;
}

QFrame* divider(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

// A titled block: a bold header, then its content.
QWidget* section(const QString& title, QWidget* content) {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* header = new QLabel(title, box);
    QFont font = header->font();
    font.setBold(true);
    header->setFont(font);
    header->setAccessibleName(title);
    layout->addWidget(header);
    layout->addWidget(content);
    return box;
}

QVBoxLayout* column(QWidget* owner) {
    auto* layout = new QVBoxLayout(owner);
    layout->setContentsMargins(0, 0, 0, 0);
    return layout;
}

// A line of text that appears only when there is something to say.
QLabel* noticeLine(QWidget* parent, const QString& name) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setAccessibleName(name);
    label->hide();
    return label;
}

void setNotice(QLabel* label, const QString& text) {
    label->setText(text);
    label->setAccessibleDescription(text);
    label->setVisible(!text.isEmpty());
}

// A vertically scrolling column of sections split by dividers, with the style's margins.
QWidget* scrollingPage(const std::vector<QWidget*>& sections) {
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Not a tab stop of its own: focusing a control scrolls it into view.
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    for (std::size_t i = 0; i < sections.size(); ++i) {
        if (i > 0) layout->addWidget(divider(content));
        layout->addWidget(sections[i]);
    }
    layout->addStretch(1);
    scroll->setWidget(content);
    return scroll;
}

QCheckBox* toggle(const QString& text, const QString& description, QWidget* parent) {
    auto* box = new QCheckBox(text, parent);
    box->setAccessibleName(text);
    box->setAccessibleDescription(description);
    return box;
}

QPushButton* button(const QString& text, const QString& description, QWidget* parent) {
    auto* pushButton = new QPushButton(text, parent);
    pushButton->setAccessibleName(text);
    pushButton->setAccessibleDescription(description);
    pushButton->setAutoDefault(false);
    return pushButton;
}

Symbol playerSymbol(MusicPlayer player) {
    switch (player) {
        case MusicPlayer::appleMusic:
            return Symbol::musicNote;
        case MusicPlayer::qqMusic:
            return Symbol::musicNoteList;
        case MusicPlayer::netEaseMusic:
            return Symbol::waveformCircle;
        case MusicPlayer::spotify:
            return Symbol::radioWaves;
    }
    return Symbol::musicNote;
}

constexpr std::array<Symbol, 4> tabSymbols{Symbol::waveform, Symbol::musicNoteList, Symbol::speakerWave, Symbol::gear};

}  // namespace

SettingsView::SettingsView(OverlayPreferences& preferences, VisualizerModel& visualizerModel,
                           PlaybackStatus& playbackStatus, SettingsActions actions, bool launchAtLoginEnabled,
                           QString versionText, QWidget* parent)
    : QWidget(parent),
      preferences_(preferences),
      visualizerModel_(visualizerModel),
      playbackStatus_(playbackStatus),
      actions_(std::move(actions)),
      launchAtLoginEnabled_(launchAtLoginEnabled),
      versionText_(std::move(versionText)),
      quit_([] { QCoreApplication::quit(); }) {
    setMinimumSize(560, 430);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    tabs_ = new QTabWidget(this);
    tabs_->setDocumentMode(true);
    tabs_->setAccessibleName(QStringLiteral("Settings"));
    tabs_->setAccessibleDescription(QStringLiteral("The settings pages"));
    tabs_->addTab(makeDisplayTab(), qText(label(SettingsTab::display)));
    tabs_->addTab(makePlayersTab(), qText(label(SettingsTab::players)));
    tabs_->addTab(makeAudioTab(), qText(label(SettingsTab::audio)));
    tabs_->addTab(makeGeneralTab(), qText(label(SettingsTab::general)));
    layout->addWidget(tabs_);
    applyIcons();

    for (PreferenceKey key : allCases<PreferenceKey>()) showPreference(key);
    refreshAudioRow();
    showCaptureFailureReason();
    // Each announcement names what changed; only the widgets showing it are touched.
    preferencesObserver_ = preferences_.changed.connect([this](PreferenceKey key) { showPreference(key); });
    modelObserver_ = visualizerModel_.changed.connect([this](VisualizerModelKey key) {
        switch (key) {
            case VisualizerModelKey::captureStatus:
                refreshRetry();
                refreshAudioRow();
                break;
            case VisualizerModelKey::audioLevel:
                refreshAudioRow();
                break;
            case VisualizerModelKey::captureFailureReason:
                showCaptureFailureReason();
                break;
            default:
                break;  // the preview reads the rest on its own frames
        }
    });
    playbackObserver_ = playbackStatus_.changed.connect([this](PlaybackStatusKey key) {
        if (key == PlaybackStatusKey::state) refreshRetry();
    });
}

SettingsView::~SettingsView() {
    preferences_.changed.disconnect(preferencesObserver_);
    visualizerModel_.changed.disconnect(modelObserver_);
    playbackStatus_.changed.disconnect(playbackObserver_);
}

SettingsTab SettingsView::selectedTab() const {
    const int index = tabs_->currentIndex();
    return index < 0 ? SettingsTab::display : allCases<SettingsTab>()[static_cast<std::size_t>(index)];
}

void SettingsView::setSelectedTab(SettingsTab tab) { tabs_->setCurrentIndex(static_cast<int>(caseIndex(tab))); }

QWidget* SettingsView::page(SettingsTab tab) const { return tabs_->widget(static_cast<int>(caseIndex(tab))); }

Symbol SettingsView::statusSymbol(AudioCaptureStatus status) {
    switch (status) {
        case AudioCaptureStatus::waiting:
        case AudioCaptureStatus::fallback:
            return Symbol::waveformCircle;
        case AudioCaptureStatus::live:
            return Symbol::waveformCircleFill;
        case AudioCaptureStatus::permissionRequired:
            return Symbol::exclamationShield;
        case AudioCaptureStatus::protectedAudio:
            return Symbol::speakerSlashCircle;
    }
    return Symbol::waveformCircle;
}

QString SettingsView::licenseText() {
    QFile file(QStringLiteral(":/lorvane/COPYING"));
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll());
}

// MARK: Tabs

QWidget* SettingsView::makeDisplayTab() {
    preview_ = new WavePreview(preferences_, visualizerModel_);

    auto* toggles = new QWidget;
    auto* toggleLayout = column(toggles);
    showWaveform_ = toggle(settingTitle(SettingKey::overlayEnabled), QStringLiteral("Shows or hides the wave on the screen"),
                           toggles);
    autoShow_ = toggle(settingTitle(SettingKey::autoShow),
                       QStringLiteral("Shows the wave whenever a monitored player plays"), toggles);
    avoidCovering_ = toggle(settingTitle(SettingKey::avoidsCoveringWindows),
                            QStringLiteral("Keeps the wave below other windows"), toggles);
    for (QCheckBox* box : {showWaveform_, autoShow_, avoidCovering_}) toggleLayout->addWidget(box);
    connect(showWaveform_, &QCheckBox::clicked, this, [this](bool on) {
        if (actions_.setOverlayEnabled) actions_.setOverlayEnabled(on);
    });
    connect(autoShow_, &QCheckBox::clicked, this, [this](bool on) {
        if (actions_.setAutoShow) actions_.setAutoShow(on);
    });
    connect(avoidCovering_, &QCheckBox::clicked, this, [this](bool on) {
        if (actions_.setAvoidsCoveringWindows) actions_.setAvoidsCoveringWindows(on);
    });

    auto* appearance = new QWidget;
    auto* appearanceLayout = column(appearance);
    auto* pickers = new QHBoxLayout;
    displayMode_ = new ChoiceGroup(settingTitle(SettingKey::displayMode), optionTitles(SettingKey::displayMode),
                                   QStringLiteral("How the wave is shown"),
                                   {QStringLiteral("A band of bars at the chosen position"),
                                    QStringLiteral("The whole screen over a frosted background")},
                                   appearance);
    position_ = new ChoiceGroup(settingTitle(SettingKey::position), optionTitles(SettingKey::position),
                                QStringLiteral("Where the band sits on the screen (Standard Waveform only)"), {},
                                appearance);
    pickers->addWidget(displayMode_);
    pickers->addWidget(position_);
    appearanceLayout->addLayout(pickers);
    appearanceLayout->addWidget(makePalettePicker());
    connect(displayMode_, &ChoiceGroup::chosen, this, [this](int index) {
        if (actions_.setDisplayMode) actions_.setDisplayMode(allCases<OverlayDisplayMode>()[static_cast<std::size_t>(index)]);
    });
    connect(position_, &ChoiceGroup::chosen, this, [this](int index) {
        if (actions_.setPosition) actions_.setPosition(allCases<OverlayPosition>()[static_cast<std::size_t>(index)]);
    });

    // The preview heads the page, above the first section.
    auto* page = scrollingPage({section(QStringLiteral("Display"), toggles), section(QStringLiteral("Appearance"), appearance)});
    auto* content = static_cast<QScrollArea*>(page)->widget();
    static_cast<QVBoxLayout*>(content->layout())->insertWidget(0, preview_);
    return page;
}

QWidget* SettingsView::makePalettePicker() {
    auto* palettes = new QWidget;
    palettes->setAccessibleName(QStringLiteral("Color"));
    auto* rows = new QGridLayout(palettes);
    rows->setContentsMargins(0, 0, 0, 0);
    swatchGroup_ = new QButtonGroup(palettes);
    swatchGroup_->setExclusive(true);
    // The solid colours fill the first row; the two smaller groups share the second.
    int column = 0;
    int row = 0;
    for (WaveColorGroup colorGroup : allCases<WaveColorGroup>()) {
        const auto colours = members(colorGroup);
        const int span = static_cast<int>(colours.size());
        if (colorGroup != WaveColorGroup::solid && row == 0) {
            row = 2;
            column = 0;
        }
        auto* heading = new QLabel(qText(title(colorGroup)), palettes);
        rows->addWidget(heading, row, column, 1, span);
        int index = 0;
        for (WaveColor color : colours) {
            auto* swatch = new SwatchButton(color, palettes);
            swatches_[color] = swatch;
            swatchGroup_->addButton(swatch);
            rows->addWidget(swatch, row + 1, column + index);
            ++index;
            connect(swatch, &SwatchButton::clicked, this, [this, color] {
                if (actions_.setColor) actions_.setColor(color);
            });
        }
        column += span;
    }
    keepTabStopOnChecked(*swatchGroup_);
    return palettes;
}

QWidget* SettingsView::makePlayerRow(MusicPlayer player) {
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* icon = new QLabel(row);
    icon->setFixedWidth(fontMetrics().height() * 3 / 2);
    icon->setAlignment(Qt::AlignCenter);
    playerIcons_[caseIndex(player)] = icon;
    layout->addWidget(icon);
    auto* name = new QLabel(qText(title(player)), row);
    layout->addWidget(name);
    layout->addStretch(1);
    auto* toggleBox = new QCheckBox(row);
    // No visible label: the row's name says what it is.
    toggleBox->setAccessibleName(qText(title(player)));
    toggleBox->setAccessibleDescription(QStringLiteral("Watches %1 for playback").arg(qText(title(player))));
    name->setBuddy(toggleBox);
    playerToggles_[caseIndex(player)] = toggleBox;
    layout->addWidget(toggleBox);
    connect(toggleBox, &QCheckBox::clicked, this, [this, player](bool on) {
        if (actions_.setPlayerEnabled) actions_.setPlayerEnabled(player, on);
    });
    return row;
}

QWidget* SettingsView::makePlayersTab() {
    auto* list = new QWidget;
    auto* layout = column(list);
    const auto players = allCases<MusicPlayer>();
    for (std::size_t i = 0; i < players.size(); ++i) {
        if (i > 0) layout->addWidget(divider(list));
        layout->addWidget(makePlayerRow(players[i]));
    }
    // Players beyond the four above get their own section here.
    auto* others = new QWidget;
    otherPlayersSlot_ = column(others);
    otherPlayersSlot_->addWidget(
        new OtherPlayersSection(preferences_, actions_.setOtherPlayersEnabled, actions_.setOtherPlayerEnabled));
    return scrollingPage({section(settingTitle(SettingKey::enabledPlayers), list), others});
}

QWidget* SettingsView::makeAudioTab() {
    auto* response = new QWidget;
    audioResponsive_ = toggle(settingTitle(SettingKey::audioResponsive),
                              QStringLiteral("Drives the wave from the sound being played"), response);
    column(response)->addWidget(audioResponsive_);
    connect(audioResponsive_, &QCheckBox::clicked, this, [this](bool on) {
        if (actions_.setAudioResponsive) actions_.setAudioResponsive(on);
    });

    auto* detection = new QWidget;
    auto* detectionLayout = column(detection);
    auto* statusRow = new QHBoxLayout;
    statusIcon_ = new QLabel(detection);
    const int iconSize = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    statusIcon_->setFixedSize(iconSize, iconSize);
    statusText_ = new QLabel(detection);
    statusText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusText_->setAccessibleName(QStringLiteral("Audio Detection Status"));
    statusRow->addWidget(statusIcon_);
    statusRow->addWidget(statusText_, 1);
    detectionLayout->addLayout(statusRow);
    captureFailure_ = noticeLine(detection, QStringLiteral("Capture Failure Reason"));
    detectionLayout->addWidget(captureFailure_);
    auto* buttons = new QHBoxLayout;
    retry_ = button(settingTitle(SettingKey::retryAudioCapture), QStringLiteral("Tries system-audio capture again now"), detection);
    permissions_ = button(settingTitle(SettingKey::openAudioCaptureSettings),
                          QStringLiteral("Opens the system's sound settings"), detection);
    buttons->addWidget(retry_);
    buttons->addWidget(permissions_);
    buttons->addStretch(1);
    detectionLayout->addLayout(buttons);
    connect(retry_, &QPushButton::clicked, this, [this] {
        if (actions_.retryAudioCapture) actions_.retryAudioCapture();
    });
    connect(permissions_, &QPushButton::clicked, this, [this] {
        if (actions_.openAudioCaptureSettings) actions_.openAudioCaptureSettings();
    });

    return scrollingPage(
        {section(QStringLiteral("Audio Response"), response), section(QStringLiteral("Audio Detection"), detection)});
}

QWidget* SettingsView::makeGeneralTab() {
    auto* startup = new QWidget;
    auto* startupLayout = column(startup);
    launchAtLogin_ = toggle(settingTitle(SettingKey::launchAtLogin),
                            QStringLiteral("Starts Lorvane when you log in"), startup);
    launchAtLogin_->setChecked(launchAtLoginEnabled_);
    startupLayout->addWidget(launchAtLogin_);
    autostartWarning_ = noticeLine(startup, QStringLiteral("Launch at Login Warning"));
    startupLayout->addWidget(autostartWarning_);
    notSaved_ = noticeLine(startup, QStringLiteral("Settings Storage Warning"));
    startupLayout->addWidget(notSaved_);
    noTrayHost_ = noticeLine(startup, QStringLiteral("No Tray Notice"));
    startupLayout->addWidget(noTrayHost_);
    quitButton_ = button(QStringLiteral("Quit Lorvane"), QStringLiteral("Ends the program"), startup);
    quitButton_->hide();
    auto* quitRow = new QHBoxLayout;
    quitRow->addWidget(quitButton_);
    quitRow->addStretch(1);
    startupLayout->addLayout(quitRow);
    connect(launchAtLogin_, &QCheckBox::clicked, this, [this](bool on) {
        // The state reached is shown, so a refused change snaps back.
        launchAtLoginEnabled_ = actions_.setLaunchAtLogin ? actions_.setLaunchAtLogin(on) : false;
        launchAtLogin_->setChecked(launchAtLoginEnabled_);
    });
    connect(quitButton_, &QPushButton::clicked, this, [this] {
        if (quit_) quit_();
    });

    auto* about = new QWidget;
    auto* aboutLayout = new QHBoxLayout(about);
    aboutLayout->setContentsMargins(0, 0, 0, 0);
    aboutIcon_ = new QLabel(about);
    aboutIcon_->setAccessibleName(QStringLiteral("Lorvane Icon"));
    aboutLayout->addWidget(aboutIcon_, 0, Qt::AlignTop);
    auto* names = new QVBoxLayout;
    auto* name = new QLabel(QStringLiteral("Lorvane"), about);
    QFont nameFont = name->font();
    nameFont.setBold(true);
    name->setFont(nameFont);
    auto* version = new QLabel(versionText_, about);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* license = new QLabel(QStringLiteral("License: %1").arg(QLatin1String(licenseName)), about);
    license->setTextInteractionFlags(Qt::TextSelectableByMouse);
    licenseButton_ = button(QStringLiteral("Show License"), QStringLiteral("Shows the GNU General Public License"),
                            about);
    auto link = [about](const QString& text, const char* url, const QString& description) {
        auto* label = new QLabel(QStringLiteral("<a href=\"%1\">%2</a>").arg(QLatin1String(url), text), about);
        label->setTextFormat(Qt::RichText);
        label->setOpenExternalLinks(true);
        label->setTextInteractionFlags(Qt::TextBrowserInteraction);
        label->setAccessibleName(text);
        label->setAccessibleDescription(description);
        label->setToolTip(QLatin1String(url));
        return label;
    };
    auto* homeLink = link(QStringLiteral("Home Page"), homePage, QLatin1String(homePage));
    auto* bugsLink = link(QStringLiteral("Report a Bug"), bugReports, QLatin1String(bugReports));
    connect(licenseButton_, &QPushButton::clicked, this, &SettingsView::showLicense);
    for (QWidget* line : std::initializer_list<QWidget*>{name, version, license}) names->addWidget(line);
    auto* links = new QHBoxLayout;
    links->addWidget(licenseButton_);
    links->addWidget(homeLink);
    links->addWidget(bugsLink);
    links->addStretch(1);
    names->addLayout(links);
    aboutLayout->addLayout(names, 1);

    auto* drawing = new QWidget;
    auto* drawingLayout = column(drawing);
    renderer_ = new ChoiceGroup(settingTitle(SettingKey::renderer), optionTitles(SettingKey::renderer),
                                QStringLiteral("How the wave is drawn"),
                                {QStringLiteral("OpenGL, unless it runs in software; then the processor"),
                                 QStringLiteral("Always the processor; for drivers that misbehave"),
                                 QStringLiteral("Always OpenGL")},
                                drawing);
    drawingLayout->addWidget(renderer_);
    connect(renderer_, &ChoiceGroup::chosen, this, [this](int index) {
        if (actions_.setRenderer) actions_.setRenderer(allCases<RendererChoice>()[static_cast<std::size_t>(index)]);
    });

    return scrollingPage({section(QStringLiteral("Startup"), startup), section(QStringLiteral("Performance"), drawing),
                          section(QStringLiteral("About"), about)});
}

void SettingsView::showLicense() {
    auto* dialog = new QDialog(window());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(QStringLiteral("Lorvane License"));
    dialog->setObjectName(QStringLiteral("LorvaneLicense"));
    auto* layout = new QVBoxLayout(dialog);
    auto* text = new QPlainTextEdit(licenseText(), dialog);
    text->setReadOnly(true);
    text->setAccessibleName(QStringLiteral("License Text"));
    text->setLineWrapMode(QPlainTextEdit::NoWrap);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    layout->addWidget(text);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    layout->addWidget(buttons);
    const QFontMetrics metrics(text->font());
    dialog->resize(metrics.horizontalAdvance(QLatin1Char('x')) * 84, metrics.height() * 30);
    dialog->show();
}

// MARK: Notices from other parts

void SettingsView::setCaptureFailureReason(const QString& reason) { setNotice(captureFailure_, reason); }

void SettingsView::showCaptureFailureReason() {
    const std::optional<AudioCaptureReason> reason = visualizerModel_.captureFailureReason();
    setCaptureFailureReason(reason ? qText(audioCaptureReasonText(*reason)) : QString());
}

void SettingsView::setTrayHostPresent(bool present) {
    setNotice(noTrayHost_, present ? QString()
                                   : QStringLiteral("This desktop shows no tray icons, so Lorvane has no menu there. "
                                                    "Closing this window leaves Lorvane running: "
                                                    "\u201Clorvane --show-settings\u201D or starting Lorvane again "
                                                    "brings it back."));
    quitButton_->setVisible(!present);
}

void SettingsView::setAutostartWarning(const QString& warning) { setNotice(autostartWarning_, warning); }

void SettingsView::setSettingsNotSavedNotice(const QString& notice) { setNotice(notSaved_, notice); }

// MARK: Theme

void SettingsView::applyIcons() {
    const QColor text = palette().color(QPalette::WindowText);
    const QColor buttonText = palette().color(QPalette::ButtonText);
    const QColor accent = palette().color(QPalette::Highlight);
    for (int i = 0; i < tabs_->count(); ++i) tabs_->setTabIcon(i, themedIcon(tabSymbols[static_cast<std::size_t>(i)], text));
    retry_->setIcon(themedIcon(Symbol::arrowClockwise, buttonText));
    permissions_->setIcon(themedIcon(Symbol::lockShield, buttonText));
    const int small = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    for (MusicPlayer player : allCases<MusicPlayer>()) {
        playerIcons_[caseIndex(player)]->setPixmap(
            themedIcon(playerSymbol(player), accent).pixmap(QSize(small, small), devicePixelRatioF()));
    }
    const int large = style()->pixelMetric(QStyle::PM_LargeIconSize, nullptr, this) * 3 / 2;
    aboutIcon_->setPixmap(applicationIcon().pixmap(QSize(large, large), devicePixelRatioF()));
    if (shownStatusSymbol_) {
        statusIcon_->setPixmap(themedIcon(*shownStatusSymbol_, accent).pixmap(QSize(small, small), devicePixelRatioF()));
    }
}

void SettingsView::changeEvent(QEvent* event) {
    // A light/dark switch while open: icons drawn in the palette's colours are drawn again; the
    // swatches and the rest repaint from the palette by themselves.
    switch (event->type()) {
        case QEvent::PaletteChange:
        case QEvent::ThemeChange:
        case QEvent::StyleChange:
            if (tabs_) applyIcons();
            break;
        default:
            break;
    }
    QWidget::changeEvent(event);
}

void SettingsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // The audio row is left alone while the window is hidden; catch up now.
    refreshAudioRow();
    // The login entry may have been changed by hand while the window was away.
    if (actions_.isLaunchAtLoginEnabled) showLaunchAtLogin(actions_.isLaunchAtLoginEnabled());
}

void SettingsView::showLaunchAtLogin(bool enabled) {
    launchAtLoginEnabled_ = enabled;
    if (launchAtLogin_->isChecked() != enabled) launchAtLogin_->setChecked(enabled);
}

// MARK: Refresh

void SettingsView::showPreference(PreferenceKey key) {
    switch (key) {
        case PreferenceKey::overlayEnabled:
            showWaveform_->setChecked(preferences_.overlayEnabled());
            break;
        case PreferenceKey::autoShow:
            autoShow_->setChecked(preferences_.autoShow());
            break;
        case PreferenceKey::avoidsCoveringWindows:
            avoidCovering_->setChecked(preferences_.avoidsCoveringWindows());
            break;
        case PreferenceKey::audioResponsive:
            audioResponsive_->setChecked(preferences_.audioResponsive());
            refreshRetry();
            preview_->update();
            break;
        case PreferenceKey::displayMode:
            displayMode_->setCurrentIndex(static_cast<int>(caseIndex(preferences_.displayMode())));
            // The stored position stays visible while the choice is disabled.
            position_->setEnabled(lorvane::isEnabled(SettingKey::position, settingContext()));
            preview_->update();
            break;
        case PreferenceKey::position:
            position_->setCurrentIndex(static_cast<int>(caseIndex(preferences_.position())));
            break;
        case PreferenceKey::color:
            if (SwatchButton* chosen = swatches_.at(preferences_.color()); !chosen->isChecked()) chosen->setChecked(true);
            // The new colour shows in the preview's next frame, drawn now.
            preview_->update();
            break;
        case PreferenceKey::renderer:
            renderer_->setCurrentIndex(static_cast<int>(caseIndex(preferences_.renderer())));
            break;
        case PreferenceKey::enabledPlayers:
            for (MusicPlayer player : allCases<MusicPlayer>()) {
                playerToggles_[caseIndex(player)]->setChecked(preferences_.enabledPlayers().contains(player));
            }
            break;
    }
    ++preferenceUpdates_[caseIndex(key)];
}

SettingContext SettingsView::settingContext() const {
    return SettingContext::of(preferences_, playbackStatus_.state(), visualizerModel_.captureStatus());
}

// The same rule as the tray's item: retrying needs a playing player and audio response on.
void SettingsView::refreshRetry() { retry_->setEnabled(lorvane::isEnabled(SettingKey::retryAudioCapture, settingContext())); }

void SettingsView::refreshAudioRow() {
    // Hidden, the row is left alone; showing the window catches it up.
    if (!isVisible()) return;
    ++audioRowRefreshes_;
    const AudioCaptureStatus status = visualizerModel_.captureStatus();
    const QString text = QString::fromStdString(audioStatusText(status, visualizerModel_.audioLevel()));
    if (statusText_->text() != text) {
        statusText_->setText(text);
        statusText_->setAccessibleDescription(text);
    }
    const Symbol symbol = statusSymbol(status);
    if (!shownStatusSymbol_ || *shownStatusSymbol_ != symbol) {
        shownStatusSymbol_ = symbol;
        const int small = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
        statusIcon_->setPixmap(
            themedIcon(symbol, palette().color(QPalette::Highlight)).pixmap(QSize(small, small), devicePixelRatioF()));
    }
}

}  // namespace lorvane
