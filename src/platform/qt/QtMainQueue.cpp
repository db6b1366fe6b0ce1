#include "platform/qt/QtMainQueue.h"

#include <QMetaObject>
#include <QTimer>
#include <cmath>

namespace lorvane {

namespace {

class QtRepeatingTimer final : public RepeatingTimer {
public:
    QtRepeatingTimer(double interval, std::function<void()> tick) {
        timer_.setInterval(static_cast<int>(std::lround(interval * 1000.0)));
        QObject::connect(&timer_, &QTimer::timeout, [tick = std::move(tick)] { tick(); });
        timer_.start();
    }

private:
    QTimer timer_;
};

}  // namespace

QtMainQueue::QtMainQueue() : context_(new QObject) {}

QtMainQueue::~QtMainQueue() { delete context_; }

void QtMainQueue::post(std::function<void()> work) {
    QMetaObject::invokeMethod(context_, std::move(work), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(double seconds, std::function<void()> work) {
    const int ms = static_cast<int>(std::lround(std::max(seconds, 0.0) * 1000.0));
    QTimer::singleShot(ms, Qt::PreciseTimer, context_, std::move(work));
}

std::unique_ptr<RepeatingTimer> QtMainQueue::startRepeating(double interval, std::function<void()> tick) {
    return std::make_unique<QtRepeatingTimer>(interval, std::move(tick));
}

}  // namespace lorvane
