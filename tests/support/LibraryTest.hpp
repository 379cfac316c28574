// LibraryTest: the fixture every library test starts from: a fresh testing platform
// (manual clock at 1,500,000,000, hand-pumped queues, temporary documents directory,
// UTC as local time) installed, and every shared instance back to its first state.
#pragma once

#include "platform/SharedInstance.hpp"

#include <bvgeo/testing/TestPlatform.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace bvgeo::testing {

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform_ = std::make_unique<TestPlatform>(options());
        platform_->installFresh();
    }
    void TearDown() override {
        platform_->runUntilIdle();
        resetAllSharedInstances();
        platform_.reset();
    }
    virtual TestPlatformOptions options() const { return {}; }

    TestPlatform& sim() { return *platform_; }

private:
    std::unique_ptr<TestPlatform> platform_;
};

} // namespace bvgeo::testing
