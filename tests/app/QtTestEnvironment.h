#pragma once
// A QApplication for widget tests, created once before the first test (on the offscreen platform
// unless the test sets another), and a bounded wait that keeps the event loop turning.

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <chrono>
#include <functional>
#include <memory>

namespace lorvane::test {

class QtTestEnvironment final : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "lorvane_tests";
        static char* argv[] = {name, nullptr};
        app_ = std::make_unique<QApplication>(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);
    }
    void TearDown() override { app_.reset(); }

private:
    std::unique_ptr<QApplication> app_;
};

// Turns the event loop until `done` holds or the bound passes; answers `done()`.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds bound = std::chrono::milliseconds(10000)) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > bound.count()) return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if (!done()) QThread::msleep(2);
    }
    return true;
}

// Runs what is already queued on the event loop (posted work, zero-delay timers).
inline void drainEvents() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents);
}

}  // namespace lorvane::test
