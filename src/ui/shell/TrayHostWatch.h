#pragma once
// Watches the session bus for a desktop tray host: a StatusNotifier watcher that has a host
// registered. Panels often start after the programs of a login, and may crash and come back, so the
// answer can change at any time; every question is asked without blocking.

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <optional>

namespace lorvane {

class TrayHostWatch final : public QObject {
    Q_OBJECT
public:
    explicit TrayHostWatch(QDBusConnection bus, QObject* parent = nullptr);

    // Nothing until the first answer came.
    std::optional<bool> hostRegistered() const { return hostRegistered_; }

signals:
    // The answer changed (or came for the first time).
    void hostChanged(bool registered);

private slots:
    void ask();
    void watcherLeft();

private:
    void answered(std::uint64_t question, bool registered);

    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    std::optional<bool> hostRegistered_;
    // Answers to older questions are dropped.
    std::uint64_t question_ = 0;
};

}  // namespace lorvane
