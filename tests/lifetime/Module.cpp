// A module that instruments itself, and one that is all a program knows of the library: loaded and
// unloaded again while its marks are queued.
#include <memory>
#include <optional>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

using namespace Metrics;

extern "C" void ModuleMark(int times);
extern "C" void ModuleBegin(const char* file);
extern "C" void ModuleEnd();

namespace {

std::optional<Session> session;
std::optional<MetricsOutput> output;

}  // namespace

// The names, the file and the value's name are literals of this module. Inline, as in a header: variables of
// such functions may be shared between modules, which then stay loaded for ever.
inline void Mark(int i) {
    METRICS_SCOPE("module's scope", Scope::kLocation);
    METRICS_VALUE("module's value", i);
    METRICS_SCOPE_NAMED(std::string("module's own text"));
}

void ModuleMark(int times) {
    Context context = Context::Root("module's context");
    for (int i = 0; i < times; ++i) Mark(i);
}

void ModuleBegin(const char* file) {
    session.emplace();
    output.emplace(MetricsOutput::Mode::Borrowed, MetricsOutput::Format::RawUnordered);
    output->OpenFile(file, 0);
}

void ModuleEnd() {
    output.reset();
    session.reset();
}
