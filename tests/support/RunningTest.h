#pragma once

#include <gtest/gtest.h>

#include "metrics/Session.h"
#include "tests/support/Recorder.h"

namespace Metrics::Testing {

/// A manager that was not started; each test has a manager of its own, whose ids start at 1.
class FreshTest : public ::testing::Test {
  protected:
    FreshTest() { MetricsManager::FreeInstance(); }
    ~FreshTest() override {
        MetricsManager::GetInstance().Shutdown();
        MetricsManager::FreeInstance();
    }
    MetricsManager& Manager() { return MetricsManager::GetInstance(); }
    bool WaitForState(std::uint32_t state) {
        return Manager().WaitUntil([&] { return Manager().GetState() == state; }, 20000);
    }
};

/// A manager that runs and collects, and a recorder.
class RunningTest : public FreshTest {
  protected:
    RunningTest() { recorder_.Take(); }
    Recorder& Recorded() { return recorder_; }
    Lines TakeLines() { return recorder_.TakeLines(); }

  private:
    Session session_;
    Recorder recorder_;
};

}  // namespace Metrics::Testing
