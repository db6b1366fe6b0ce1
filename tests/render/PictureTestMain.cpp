// The picture tests render through OpenGL on a private X server (Mesa's software renderer here), or
// with --drawing-path=cpu the same pictures through the CPU drawing path, held to the same rules and
// the same reference pictures.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <cstdio>
#include <cstring>
#include <memory>

#include "support/XSession.h"
#include "core/render/DrawingPath.h"
#include "ui/OffscreenWaveRenderer.h"

namespace {
std::unique_ptr<lorvane::OffscreenWaveRenderer> sharedRenderer;
lorvane::DrawingPath path = lorvane::DrawingPath::gl;
}

// One renderer for all tests; it lives while the application and the X server do.
lorvane::OffscreenWaveRenderer& pictureRenderer() { return *sharedRenderer; }
lorvane::DrawingPath picturePath() { return path; }

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--drawing-path=cpu") == 0) path = lorvane::DrawingPath::cpu;
    }
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    lorvane::test::XSession::Options options;
    options.windowManager = false;
    lorvane::test::XSession session(options);
    if (!session.isRunning()) {
        std::fprintf(stderr, "no X session for the picture tests: %s\n", session.error().c_str());
        return 1;
    }
    session.exportEnvironment();
    QGuiApplication app(argc, argv);
    sharedRenderer = std::make_unique<lorvane::OffscreenWaveRenderer>();
    const int result = RUN_ALL_TESTS();
    sharedRenderer.reset();
    return result;
}
