#pragma once
// The Players tab's "Other players" section: one switch for every player beyond the named four, and
// a row per other player seen on this machine (icon and name from its desktop entry) with its own
// checkbox. Follows the preferences, so a player seen while the window is open appears at once.

#include <QString>
#include <QWidget>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/OverlayPreferences.h"
#include "core/Signal.h"

class QCheckBox;
class QLabel;
class QVBoxLayout;

namespace lorvane {

class OtherPlayersSection final : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* title = "Other players";
    static constexpr const char* switchText = "All other players";
    static constexpr const char* emptyText = "Players you use appear here.";

    OtherPlayersSection(OverlayPreferences& preferences, std::function<void(bool)> setOtherPlayersEnabled,
                        std::function<void(const std::string&, bool)> setOtherPlayerEnabled,
                        QWidget* parent = nullptr);
    ~OtherPlayersSection() override;

    QCheckBox* allPlayersSwitch() const { return allPlayers_; }
    // The row checkbox of a desktop entry, if it is listed.
    QCheckBox* playerToggle(const std::string& desktopEntry) const;
    // The name a listed entry is shown with.
    QString playerTitle(const std::string& desktopEntry) const;
    std::size_t rowCount() const { return rows_.size(); }

private:
    struct Row {
        QWidget* widget = nullptr;
        QCheckBox* toggle = nullptr;
        QString title;
    };
    void scheduleRefresh();
    void refresh();
    Row makeRow(const std::string& desktopEntry);

    OverlayPreferences& preferences_;
    std::function<void(bool)> setOtherPlayersEnabled_;
    std::function<void(const std::string&, bool)> setOtherPlayerEnabled_;
    QCheckBox* allPlayers_ = nullptr;
    QLabel* empty_ = nullptr;
    QVBoxLayout* list_ = nullptr;
    std::map<std::string, Row> rows_;
    std::vector<std::string> shownEntries_;
    bool refreshPending_ = false;
    Signal<>::Id observer_ = 0;
};

}  // namespace lorvane
