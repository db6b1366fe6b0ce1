#pragma once
// A QApplication for widget tests, created once before the first test (on the offscreen platform
// unless the test sets another). Bounded waits come from support/EventLoopWait.h.

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <chrono>
#include <functional>
#include <memory>

#include "support/EventLoopWait.h"

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

// Runs what is already queued on the event loop (posted work, zero-delay timers).
inline void drainEvents() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents);
}

}  // namespace lorvane::test
