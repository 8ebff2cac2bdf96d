// A file for every unit of work: each root context gets an XML file of its own, opened when the context is
// created and complete when it has ended, so that a slow one can be looked at by itself.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>

#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "metrics/MetricsBitsUtils.h"
#include "metrics/MetricsManager.h"
#include "metrics/MetricsOutput.h"
#include "metrics/Session.h"

using namespace Metrics;
namespace fs = std::filesystem;

namespace {

std::size_t Parse(const std::string& text) {
    METRICS_SCOPE("parse");
    const auto fields = static_cast<std::size_t>(std::count(text.begin(), text.end(), '&')) + 1;
    METRICS_VALUE("fields", fields);
    return fields;
}

void Serve(const std::string& request) {
    Context context = Context::Root("request");
    context.AddAttribute("text", request);
    METRICS_SCOPE("serve");
    const auto fields = Parse(request);
    METRICS_SCOPE_NAMED(fields > 1 ? "search" : "show");  // a name that is known only now
}

void Measure(const fs::path& folder) {
    fs::create_directories(folder);
    MetricsManager::GetInstance().SetBits(MetricsBitsUtils::GetMetricsBitsFromMnemonicList("time, loc"),
                                          false);

    const Session session;
    MetricsOutput output(MetricsOutput::Mode::PerContext, MetricsOutput::Format::Xml);
    output.SetWildcardedOutputFile((folder / "request-*.xml").string());  // the star becomes the context's id
    for (const auto* request : {"id=7", "name=a&town=b", "id=8"}) Serve(request);

    // A file that cannot be opened or written doesn't disturb the work: it is an error of the output.
    output.Close();
    for (const auto& error : output.GetErrors()) std::cerr << error << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const fs::path folder = argc > 1 ? argv[1] : "requests";
        Measure(folder);
        const std::set<fs::path> files(fs::directory_iterator(folder), {});
        for (const fs::path& file : files) std::cout << file.filename().string() << '\n';
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
