// Modules that are unloaded while the library works. One test program links the library, the other one
// doesn't and has it only through the module.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>


namespace Metrics::Testing {
namespace {

class LoadedModule {
  public:
    LoadedModule() : handle_(dlopen(LIFETIME_MODULE, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(handle_, nullptr) << dlerror();
    }
    ~LoadedModule() { dlclose(handle_); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    void Mark(int times) const { Find<void (*)(int)>("ModuleMark")(times); }
    void Begin(const std::string& file) const { Find<void (*)(const char*)>("ModuleBegin")(file.c_str()); }
    void Flush() const { Find<void (*)()>("ModuleFlush")(); }
    void End() const { Find<void (*)()>("ModuleEnd")(); }

    static bool IsLoaded() {
        void* handle = dlopen(LIFETIME_MODULE, RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr) dlclose(handle);
        return handle != nullptr;
    }

  private:
    template <class Function>
    Function Find(const char* name) const {
        return reinterpret_cast<Function>(dlsym(handle_, name));
    }

    void* handle_;
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
        EXPECT_FALSE(LoadedModule::IsLoaded());
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
    EXPECT_FALSE(LoadedModule::IsLoaded());
    EXPECT_EQ(CountIn(file, ",7,\"module's scope\""), 10);
}

TEST(OnlyThroughAModule, TheProcessEndsWithTheModuleLoadedAndMarking) {
    auto* module = new LoadedModule;
    module->Begin("module-left.csv");
    std::thread([module] {
        for (;;) module->Mark(1), std::this_thread::sleep_for(std::chrono::microseconds(100));
    }).detach();
    module->Flush();
}

#else

TEST(Module, IsUnloadedWhileItsMarksAreQueued) {
    const LoadedModule
        writer;  // keeps the output; a second handle would be the same module, so marks come from a copy
    writer.Begin("module-queued.csv");
    for (int round = 0; round < 20; ++round) {
        void* copy = dlopen(LIFETIME_SECOND_MODULE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(copy, nullptr) << dlerror();
        reinterpret_cast<void (*)(int)>(dlsym(copy, "ModuleMark"))(50);
        dlclose(copy);
        EXPECT_EQ(dlopen(LIFETIME_SECOND_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "nothing was tested";
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
