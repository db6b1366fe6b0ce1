#pragma once
// The main queue on Qt's event loop of the thread that made it (the GUI thread).

#include <QObject>
#include <QPointer>

#include "core/MainQueue.h"

namespace lorvane {

class QtMainQueue final : public MainQueue {
public:
    QtMainQueue();
    ~QtMainQueue() override;
    void post(std::function<void()> work) override;
    void postAfter(double seconds, std::function<void()> work) override;
    std::unique_ptr<RepeatingTimer> startRepeating(double interval, std::function<void()> tick) override;

private:
    QObject* context_;  // lives on the main thread; posted work dies with it
};

}  // namespace lorvane
