#include "ui/shell/SettingsView.h"

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "core/app/SettingsTable.h"
#include "ui/shell/SegmentedPicker.h"
#include "ui/shell/SwatchButton.h"
#include "ui/shell/SymbolIcon.h"
#include "ui/shell/WaveformIcon.h"

namespace lorvane {

namespace {

constexpr int pagePadding = 28;

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

// A titled block: a 14-point header, then its content.
QWidget* section(const QString& title, QWidget* content) {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    auto* header = new QLabel(title, box);
    QFont font = header->font();
    font.setPointSize(14);
    font.setBold(true);
    header->setFont(font);
    layout->addWidget(header);
    layout->addWidget(content);
    return box;
}

QVBoxLayout* column(QWidget* owner, int spacing = 8) {
    auto* layout = new QVBoxLayout(owner);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    return layout;
}

// A vertically scrolling column of sections split by dividers.
QWidget* scrollingPage(const std::vector<QWidget*>& sections) {
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(pagePadding, pagePadding, pagePadding, pagePadding);
    layout->setSpacing(18);
    for (std::size_t i = 0; i < sections.size(); ++i) {
        if (i > 0) layout->addWidget(divider(content));
        layout->addWidget(sections[i]);
    }
    layout->addStretch(1);
    scroll->setWidget(content);
    return scroll;
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
      versionText_(std::move(versionText)) {
    setMinimumSize(560, 430);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    tabs_ = new QTabWidget(this);
    tabs_->setDocumentMode(true);
    const QColor text = palette().color(QPalette::WindowText);
    tabs_->addTab(makeDisplayTab(), symbolIcon(Symbol::waveform, text), qText(label(SettingsTab::display)));
    tabs_->addTab(makePlayersTab(), symbolIcon(Symbol::musicNoteList, text), qText(label(SettingsTab::players)));
    tabs_->addTab(makeAudioTab(), symbolIcon(Symbol::speakerWave, text), qText(label(SettingsTab::audio)));
    tabs_->addTab(makeGeneralTab(), symbolIcon(Symbol::gear, text), qText(label(SettingsTab::general)));
    layout->addWidget(tabs_);

    refreshPreferences();
    refreshModel();
    preferencesObserver_ = preferences_.objectWillChange.connect([this] { schedulePreferencesRefresh(); });
    modelObserver_ = visualizerModel_.objectWillChange.connect([this] { scheduleModelRefresh(); });
    playbackObserver_ = playbackStatus_.changed.connect([this](PlaybackStatusKey key) {
        if (key == PlaybackStatusKey::state) refreshRetry();
    });
}

SettingsView::~SettingsView() {
    preferences_.objectWillChange.disconnect(preferencesObserver_);
    visualizerModel_.objectWillChange.disconnect(modelObserver_);
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

// MARK: Tabs

QWidget* SettingsView::makeDisplayTab() {
    auto* toggles = new QWidget;
    auto* toggleLayout = column(toggles);
    showWaveform_ = new QCheckBox(settingTitle(SettingKey::overlayEnabled), toggles);
    autoShow_ = new QCheckBox(settingTitle(SettingKey::autoShow), toggles);
    avoidCovering_ = new QCheckBox(settingTitle(SettingKey::avoidsCoveringWindows), toggles);
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
    auto* appearanceLayout = column(appearance, 12);
    auto* pickers = new QGridLayout;
    pickers->setHorizontalSpacing(12);
    pickers->setVerticalSpacing(8);
    displayMode_ = new SegmentedPicker(settingTitle(SettingKey::displayMode), optionTitles(SettingKey::displayMode),
                                       appearance);
    position_ = new SegmentedPicker(settingTitle(SettingKey::position), optionTitles(SettingKey::position), appearance);
    pickers->addWidget(new QLabel(settingTitle(SettingKey::displayMode), appearance), 0, 0);
    pickers->addWidget(displayMode_, 0, 1);
    pickers->addWidget(new QLabel(settingTitle(SettingKey::position), appearance), 1, 0);
    pickers->addWidget(position_, 1, 1);
    pickers->setColumnStretch(1, 1);
    appearanceLayout->addLayout(pickers);
    appearanceLayout->addWidget(makePalettePicker());
    connect(displayMode_, &SegmentedPicker::chosen, this, [this](int index) {
        if (actions_.setDisplayMode) actions_.setDisplayMode(allCases<OverlayDisplayMode>()[static_cast<std::size_t>(index)]);
    });
    connect(position_, &SegmentedPicker::chosen, this, [this](int index) {
        if (actions_.setPosition) actions_.setPosition(allCases<OverlayPosition>()[static_cast<std::size_t>(index)]);
    });

    return scrollingPage({section(QStringLiteral("Display"), toggles), section(QStringLiteral("Appearance"), appearance)});
}

QWidget* SettingsView::makePalettePicker() {
    auto* palettes = new QWidget;
    auto* layout = column(palettes, 8);
    constexpr int columns = 5;
    for (WaveColorGroup colorGroup : allCases<WaveColorGroup>()) {
        layout->addWidget(new QLabel(qText(title(colorGroup)), palettes));
        auto* grid = new QGridLayout;
        grid->setSpacing(10);
        int index = 0;
        for (WaveColor color : members(colorGroup)) {
            auto* swatch = new SwatchButton(color, palettes);
            swatches_[color] = swatch;
            grid->addWidget(swatch, index / columns, index % columns);
            ++index;
            connect(swatch, &SwatchButton::clicked, this, [this, color] {
                if (actions_.setColor) actions_.setColor(color);
            });
        }
        for (int c = 0; c < columns; ++c) grid->setColumnStretch(c, 1);
        layout->addLayout(grid);
    }
    return palettes;
}

QWidget* SettingsView::makePlayerRow(MusicPlayer player) {
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 4, 0, 4);
    auto* icon = new QLabel(row);
    icon->setFixedWidth(24);
    icon->setAlignment(Qt::AlignCenter);
    icon->setPixmap(paintSymbol(playerSymbol(player), 20, palette().color(QPalette::Highlight), devicePixelRatioF()));
    layout->addWidget(icon);
    layout->addWidget(new QLabel(qText(title(player)), row));
    layout->addStretch(1);
    auto* toggle = new QCheckBox(row);
    // No visible label: the row's name says what it is.
    toggle->setAccessibleName(qText(title(player)));
    playerToggles_[caseIndex(player)] = toggle;
    layout->addWidget(toggle);
    connect(toggle, &QCheckBox::clicked, this, [this, player](bool on) {
        if (actions_.setPlayerEnabled) actions_.setPlayerEnabled(player, on);
    });
    return row;
}

QWidget* SettingsView::makePlayersTab() {
    auto* list = new QWidget;
    auto* layout = column(list, 0);
    const auto players = allCases<MusicPlayer>();
    for (std::size_t i = 0; i < players.size(); ++i) {
        if (i > 0) layout->addWidget(divider(list));
        layout->addWidget(makePlayerRow(players[i]));
    }
    return scrollingPage({section(settingTitle(SettingKey::enabledPlayers), list)});
}

QWidget* SettingsView::makeAudioTab() {
    auto* response = new QWidget;
    audioResponsive_ = new QCheckBox(settingTitle(SettingKey::audioResponsive), response);
    column(response)->addWidget(audioResponsive_);
    connect(audioResponsive_, &QCheckBox::clicked, this, [this](bool on) {
        if (actions_.setAudioResponsive) actions_.setAudioResponsive(on);
    });

    auto* detection = new QWidget;
    auto* detectionLayout = column(detection, 12);
    auto* statusRow = new QHBoxLayout;
    statusIcon_ = new QLabel(detection);
    statusIcon_->setFixedSize(24, 24);
    statusText_ = new QLabel(detection);
    statusText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusRow->addWidget(statusIcon_);
    statusRow->addWidget(statusText_, 1);
    detectionLayout->addLayout(statusRow);
    auto* buttons = new QHBoxLayout;
    const QColor text = palette().color(QPalette::ButtonText);
    retry_ = new QPushButton(symbolIcon(Symbol::arrowClockwise, text), settingTitle(SettingKey::retryAudioCapture),
                             detection);
    permissions_ = new QPushButton(symbolIcon(Symbol::lockShield, text),
                                   settingTitle(SettingKey::openAudioCaptureSettings), detection);
    for (QPushButton* button : {retry_, permissions_}) button->setAutoDefault(false);
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
    launchAtLogin_ = new QCheckBox(settingTitle(SettingKey::launchAtLogin), startup);
    launchAtLogin_->setChecked(launchAtLoginEnabled_);
    column(startup)->addWidget(launchAtLogin_);
    connect(launchAtLogin_, &QCheckBox::clicked, this, [this](bool on) {
        // The state reached is shown, so a refused change snaps back.
        launchAtLoginEnabled_ = actions_.setLaunchAtLogin ? actions_.setLaunchAtLogin(on) : false;
        launchAtLogin_->setChecked(launchAtLoginEnabled_);
    });

    auto* about = new QWidget;
    auto* aboutLayout = new QHBoxLayout(about);
    aboutLayout->setContentsMargins(0, 0, 0, 0);
    aboutLayout->setSpacing(14);
    auto* icon = new QLabel(about);
    icon->setPixmap(applicationIcon().pixmap(52, 52));
    icon->setFixedSize(52, 52);
    aboutLayout->addWidget(icon);
    auto* names = new QVBoxLayout;
    names->setSpacing(4);
    auto* name = new QLabel(QStringLiteral("Lorvane"), about);
    QFont nameFont = name->font();
    nameFont.setBold(true);
    name->setFont(nameFont);
    auto* version = new QLabel(versionText_, about);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    names->addWidget(name);
    names->addWidget(version);
    aboutLayout->addLayout(names);
    aboutLayout->addStretch(1);

    return scrollingPage({section(QStringLiteral("Startup"), startup), section(QStringLiteral("About"), about)});
}

// MARK: Refresh

void SettingsView::schedulePreferencesRefresh() {
    if (preferencesRefreshPending_) return;
    preferencesRefreshPending_ = true;
    QTimer::singleShot(0, this, [this] { refreshPreferences(); });
}

void SettingsView::scheduleModelRefresh() {
    if (modelRefreshPending_) return;
    modelRefreshPending_ = true;
    QTimer::singleShot(0, this, [this] { refreshModel(); });
}

void SettingsView::refreshPreferences() {
    preferencesRefreshPending_ = false;
    showWaveform_->setChecked(preferences_.overlayEnabled());
    autoShow_->setChecked(preferences_.autoShow());
    avoidCovering_->setChecked(preferences_.avoidsCoveringWindows());
    displayMode_->setCurrentIndex(static_cast<int>(caseIndex(preferences_.displayMode())));
    // The stored position stays visible while the picker is disabled.
    position_->setCurrentIndex(static_cast<int>(caseIndex(preferences_.position())));
    position_->setEnabled(lorvane::isEnabled(SettingKey::position, SettingContext::of(preferences_, playbackStatus_.state(),
                                                                             visualizerModel_.captureStatus())));
    for (const auto& [color, swatch] : swatches_) swatch->setSelected(color == preferences_.color());
    for (MusicPlayer player : allCases<MusicPlayer>()) {
        playerToggles_[caseIndex(player)]->setChecked(preferences_.enabledPlayers().contains(player));
    }
    audioResponsive_->setChecked(preferences_.audioResponsive());
    refreshRetry();
}

// The same rule as the tray's item: retrying needs a playing player and audio response on.
void SettingsView::refreshRetry() {
    const SettingContext context =
        SettingContext::of(preferences_, playbackStatus_.state(), visualizerModel_.captureStatus());
    retry_->setEnabled(lorvane::isEnabled(SettingKey::retryAudioCapture, context));
}

void SettingsView::refreshModel() {
    modelRefreshPending_ = false;
    const AudioCaptureStatus status = visualizerModel_.captureStatus();
    const QString text = QString::fromStdString(audioStatusText(status, visualizerModel_.audioLevel()));
    if (statusText_->text() != text) statusText_->setText(text);
    const Symbol symbol = statusSymbol(status);
    if (!shownStatusSymbol_ || *shownStatusSymbol_ != symbol) {
        shownStatusSymbol_ = symbol;
        statusIcon_->setPixmap(paintSymbol(symbol, 22, palette().color(QPalette::Highlight), devicePixelRatioF()));
    }
}

}  // namespace lorvane
