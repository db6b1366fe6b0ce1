// The overlay window tests run real windows on a private X desktop: Xvfb with openbox, one X screen
// of 3840 x 1200 carrying RandR monitors that the tests arrange (one 1920 x 1080 monitor to start).
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <cstdio>

#include "support/XSession.h"

namespace {
lorvane::test::XSession* currentSession = nullptr;
}

lorvane::test::XSession& overlaySession() { return *currentSession; }

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    lorvane::test::XSession::Options options;
    options.width = 3840;
    options.height = 1200;
    lorvane::test::XSession session(options);
    if (!session.isRunning() || !session.setMonitors({{0, 0, 1920, 1080}})) {
        std::fprintf(stderr, "no X session for the overlay tests: %s\n", session.error().c_str());
        return 1;
    }
    currentSession = &session;
    session.exportEnvironment();
    QGuiApplication app(argc, argv);
    const int result = RUN_ALL_TESTS();
    currentSession = nullptr;
    return result;
}
