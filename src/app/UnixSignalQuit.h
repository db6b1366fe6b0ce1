#pragma once
// Ends the event loop on SIGTERM, SIGINT and SIGHUP, so that quitting by signal stops the monitors
// like the menu's Quit does.

#include <QObject>

class QSocketNotifier;

namespace lorvane {

class UnixSignalQuit final : public QObject {
    Q_OBJECT
public:
    explicit UnixSignalQuit(QObject* parent = nullptr);
    ~UnixSignalQuit() override;

private:
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace lorvane
