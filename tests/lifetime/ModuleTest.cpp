// Modules that are unloaded while the library works. One test program links the library, the other one
// doesn't and has it only through the module.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/lifetime/Text.h"
#include "tests/support/FolderTest.h"
#include "tests/support/Module.h"
#include "tests/support/Wine.h"

namespace Metrics::Testing {
namespace {

struct LoadedModule : ::Module {
    explicit LoadedModule(const char* path = LIFETIME_MODULE) : ::Module(path) { EXPECT_TRUE(IsLoaded()); }
    ~LoadedModule() { Free(); }

    template <class... Arguments>
    void Call(const char* function, Arguments... arguments) const {
        Find<void(Arguments...)>(function)(arguments...);
    }
};

std::size_t CountIn(const char* file, const char* what) {
    return Count(ReadFile(file), what);
}

#ifdef LIFETIME_HOST

TEST(OnlyThroughAModule, TheLibraryOutlivesIt) {
    const char* const file = "module-only.csv";
    for (int round = 1; round <= 20; ++round) {
        {
            const LoadedModule module;
            module.Call("ModuleBegin", file);
            module.Call("ModuleMark", 10);
            // A thread that marked for the first time inside the module ends after it is gone.
            std::thread([&] { module.Call("ModuleMark", 1); }).join();
            if (round % 2 == 0) module.Call("ModuleEnd");  // else its output closes when it is unloaded
        }
        EXPECT_FALSE(::Module::IsPresent(LIFETIME_MODULE));
        ASSERT_EQ(CountIn(file, ",7,\"module's scope\""), 11U) << "round " << round;
    }
}

TEST(OnlyThroughAModule, TheProcessEndsWithTheModuleLoadedAndMarking) {
    if (UnderWine()) GTEST_SKIP() << "Wine may hang when a thread is ended while it allocates";
    auto* module = new LoadedModule;
    module->Call("ModuleBegin", "module-left.csv");
    std::thread([module] {
        for (;;) module->Call("ModuleMark", 1), std::this_thread::sleep_for(std::chrono::microseconds(100));
    }).detach();
    module->Call("ModuleMark", 1000);
}

#else

TEST(Module, IsUnloadedWhileItsMarksAreQueued) {
    const LoadedModule writer;  // a second handle would be the same module, so marks come from a copy
    writer.Call("ModuleBegin", "module-queued.csv");
    for (int round = 0; round < 20; ++round) {
        LoadedModule(LIFETIME_SECOND_MODULE).Call("ModuleMark", 50);
        EXPECT_FALSE(::Module::IsPresent(LIFETIME_SECOND_MODULE)) << "nothing was tested";
    }
    writer.Call("ModuleEnd");
    EXPECT_EQ(CountIn("module-queued.csv", ",6,\"module's scope\""), 1000U);
    EXPECT_EQ(CountIn("module-queued.csv", ",10,\"module's value\""), 1000U);
    EXPECT_EQ(CountIn("module-queued.csv", ",7,\"module's own text\""), 1000U);
    EXPECT_EQ(CountIn("module-queued.csv", "Module.cpp"), 1000U);
}

#endif

}  // namespace
}  // namespace Metrics::Testing
