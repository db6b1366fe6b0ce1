#pragma once
// Turns the Qt event loop until a condition holds or a bound passes, and answers the condition.
// Tests wait on conditions with a bound like this, never on a fixed sleep.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <chrono>
#include <functional>

namespace lorvane::test {

// `poll` is the pause between looks: longer for conditions that cost a round trip to check.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds bound = std::chrono::milliseconds(10000),
                      std::chrono::milliseconds poll = std::chrono::milliseconds(5)) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > bound.count()) return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if (!done()) QThread::msleep(static_cast<unsigned long>(poll.count()));
    }
    return true;
}

inline bool waitUntil(const std::function<bool()>& done, int boundMilliseconds) {
    return waitUntil(done, std::chrono::milliseconds(boundMilliseconds));
}

}  // namespace lorvane::test
