#pragma once

#include <gtest/gtest.h>

#include <optional>

#include "metrics/Session.h"
#include "tests/support/Recorder.h"

namespace Metrics::Testing {

/// A manager that runs and collects, and a recorder; each test has a manager of its own, whose ids start
/// at 1.
class RunningTest : public ::testing::Test {
  protected:
    RunningTest() {
        session_.emplace();
        recorder_.emplace();
        recorder_->Take();
    }
    ~RunningTest() override {
        recorder_.reset();
        session_.reset();
        MetricsManager::FreeInstance();
    }

    MetricsManager& Manager() { return MetricsManager::GetInstance(); }
    Recorder& Recorded() { return *recorder_; }
    Lines TakeLines() { return recorder_->TakeLines(); }

  private:
    std::optional<Session> session_;
    std::optional<Recorder> recorder_;
};

/// A manager that was not started.
class FreshTest : public ::testing::Test {
  protected:
    FreshTest() { MetricsManager::FreeInstance(); }
    ~FreshTest() override {
        MetricsManager::GetInstance().Shutdown();
        MetricsManager::FreeInstance();
    }
    MetricsManager& Manager() { return MetricsManager::GetInstance(); }
};

}  // namespace Metrics::Testing
