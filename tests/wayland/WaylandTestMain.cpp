// The Wayland overlay tests start their own headless compositors (sway, weston) as an unprivileged
// user; this process only drives them, so it needs no GUI platform of its own.
#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    QCoreApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
