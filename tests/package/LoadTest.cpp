// The library loaded and freed by a program that was not linked to it. The path is METRICS_LIBRARY.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/Module.h"

namespace {

// Metrics::MetricsManager::GetInstance() and Start(), as the compilers of all our systems spell them.
constexpr const char* kGetInstance = "_ZN7Metrics14MetricsManager11GetInstanceEv";
constexpr const char* kStart = "_ZN7Metrics14MetricsManager5StartEv";

void StartManager(const Module& library) {
    auto* getInstance = library.Find<void*()>(kGetInstance);
    auto* start = library.Find<void(void*)>(kStart);
    ASSERT_NE(getInstance, nullptr);
    ASSERT_NE(start, nullptr);
    start(getInstance());
}

}  // namespace

TEST(LoadTest, AThreadFromBeforeTheLoadCanUseIt) {
    std::atomic<const Module*> loaded = nullptr;
    std::thread older([&loaded] {
        while (loaded == nullptr) std::this_thread::yield();
        StartManager(*loaded);
    });
    const Module library(METRICS_LIBRARY);
    loaded = &library;
    older.join();
}

TEST(LoadTest, IsFreedAgainAndAgainUntilItsWorkerRuns) {
    for (const bool starts : {false, false, true}) {
        Module library(METRICS_LIBRARY);
        ASSERT_TRUE(library.IsLoaded());
        if (starts) StartManager(library);
        library.Free();
    }
    ASSERT_TRUE(Module::IsPresent(METRICS_LIBRARY));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the worker has something to run in
}
