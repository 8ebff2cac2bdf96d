// Modules that are unloaded while the library works. One test program links the library, the other one
// doesn't and has it only through the module.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/support/Module.h"
#include "tests/support/Wine.h"

namespace Metrics::Testing {
namespace {

class LoadedModule {
  public:
    explicit LoadedModule(const char* path = LIFETIME_MODULE) : module_(path) {
        EXPECT_TRUE(module_.IsLoaded());
    }
    ~LoadedModule() { module_.Free(); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    void Mark(int times) const { module_.Find<void(int)>("ModuleMark")(times); }
    void Begin(const std::string& file) const {
        module_.Find<void(const char*)>("ModuleBegin")(file.c_str());
    }
    void Flush() const { module_.Find<void()>("ModuleFlush")(); }
    void End() const { module_.Find<void()>("ModuleEnd")(); }

  private:
    ::Module module_;
};

int CountIn(const std::string& file, const std::string& what) {
    std::ifstream stream(file);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    int count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

#ifdef LIFETIME_HOST

TEST(OnlyThroughAModule, TheLibraryOutlivesIt) {
    const std::string file = "module-only.csv";
    for (int round = 1; round <= 20; ++round) {
        {
            const LoadedModule module;
            module.Begin(file);
            module.Mark(10);
            // A thread that marked for the first time inside the module ends after it is gone.
            std::thread([&] { module.Mark(1); }).join();
            module.End();
        }
        EXPECT_FALSE(::Module::IsPresent(LIFETIME_MODULE));
        ASSERT_EQ(CountIn(file, ",6,\"module's scope\""), 11) << "round " << round;
    }
}

TEST(OnlyThroughAModule, ItsOutputClosesWhenTheModuleIsUnloaded) {
    const std::string file = "module-unloaded.csv";
    {
        const LoadedModule module;
        module.Begin(file);
        module.Mark(10);
    }
    EXPECT_FALSE(::Module::IsPresent(LIFETIME_MODULE));
    EXPECT_EQ(CountIn(file, ",7,\"module's scope\""), 10);
}

TEST(OnlyThroughAModule, TheProcessEndsWithTheModuleLoadedAndMarking) {
    if (UnderWine()) GTEST_SKIP() << "Wine may hang when a thread is ended while it allocates";
    auto* module = new LoadedModule;
    module->Begin("module-left.csv");
    std::thread([module] {
        for (;;) module->Mark(1), std::this_thread::sleep_for(std::chrono::microseconds(100));
    }).detach();
    module->Flush();
}

#else

TEST(Module, IsUnloadedWhileItsMarksAreQueued) {
    const LoadedModule writer;  // a second handle would be the same module, so marks come from a copy
    writer.Begin("module-queued.csv");
    for (int round = 0; round < 20; ++round) {
        LoadedModule(LIFETIME_SECOND_MODULE).Mark(50);
        EXPECT_FALSE(::Module::IsPresent(LIFETIME_SECOND_MODULE)) << "nothing was tested";
    }
    writer.End();
    EXPECT_EQ(CountIn("module-queued.csv", ",6,\"module's scope\""), 1000);
    EXPECT_EQ(CountIn("module-queued.csv", ",10,\"module's value\""), 1000);
    EXPECT_EQ(CountIn("module-queued.csv", ",7,\"module's own text\""), 1000);
    EXPECT_EQ(CountIn("module-queued.csv", "Module.cpp"), 1000);
}

#endif

}  // namespace
}  // namespace Metrics::Testing
