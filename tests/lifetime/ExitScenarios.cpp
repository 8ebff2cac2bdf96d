// A program that ends in the way it is told to, with an output of the kind it is told to have:
//
//     lifetime_exit <file> <where the output lives> <way to end> [session]
//
// A thousand events, "kept", are posted before the last Flush; as many, "last", after it; eight threads post
// all the time (not under Wine), and so does a static object's destructor. Test code reads the file.
#include <chrono>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"
#include "tests/support/Memory.h"
#include "tests/support/Wine.h"

namespace {

using namespace Metrics;

// Marks after main has returned, and after everything that was constructed later has gone.
struct MarksAtTheEnd {
    ~MarksAtTheEnd() {
        Context context = Context::Root("end");
        METRICS_SCOPE("end");
        METRICS_VALUE("end", 1);
    }
};

const MarksAtTheEnd marksFirstAndLast;
std::optional<MetricsOutput> staticOutput;
thread_local std::optional<MetricsOutput> threadLocalOutput;
thread_local const MarksAtTheEnd marksWithItsThread;

void Post(const char* name) {
    Scope scope("work");
    for (int i = 0; i < 1000; ++i) scope.Emit(name, i);
}

void StartPosters() {
    for (int i = 0; i < 8; ++i) {
        std::thread([] {
            static_cast<void>(&marksWithItsThread);
            for (;;) {
                Context context = Context::Root("load");
                METRICS_SCOPE("load");
                std::this_thread::sleep_for(std::chrono::microseconds(Testing::kThreadSanitized ? 5000 : 50));
            }
        }).detach();
    }
}

[[noreturn]] void QuickExit() {
#ifdef __MINGW32__  // which has only what quick_exit does in the end
    std::_Exit(7);
#else
    std::quick_exit(7);
#endif
}

int Work(std::optional<MetricsOutput>& output, const char* file, const std::string& way) {
    output.emplace(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
    output->OpenFile(file, 0);
    Context context = Context::Root("main");
    if (!Testing::UnderWine()) StartPosters();
    Post("kept");
    output->Flush();
    Post("last");
    if (way == "exit") std::exit(7);
    if (way == "quick_exit") QuickExit();
    if (way == "throw") throw std::runtime_error("uncaught");
    return 7;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 1;
    const std::string where = argv[2];
    std::optional<Session> session;
    if (argc > 4) {
        session.emplace();
    } else {
        MetricsManager::GetInstance().Start();
        MetricsManager::GetInstance().SetState(MetricsManager::Collecting, true);
    }
    if (where == "static") return Work(staticOutput, argv[1], argv[3]);
    if (where == "thread_local") return Work(threadLocalOutput, argv[1], argv[3]);
    std::optional<MetricsOutput> local;
    return Work(local, argv[1], argv[3]);
}
