#pragma once
// One QCoreApplication for a whole end-to-end test program: the D-Bus clients and child processes
// need an event loop, made before the first test and gone after the last.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <memory>

namespace lorvane::test {

class CoreApplicationEnvironment final : public ::testing::Environment {
public:
    explicit CoreApplicationEnvironment(char* programName) : argv_{programName, nullptr} {}
    void SetUp() override { app_ = std::make_unique<QCoreApplication>(argc_, argv_); }
    void TearDown() override { app_.reset(); }

private:
    int argc_ = 1;
    char* argv_[2];
    std::unique_ptr<QCoreApplication> app_;
};

}  // namespace lorvane::test
