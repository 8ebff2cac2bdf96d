// A web server that measures its requests: a context for each, with the steps of its answer as scopes. To be
// read in this order: Connection.cpp (the marks), RequestContext.h, Measurement.cpp (where they go),
// Server.cpp. scripts/measure-server shows what that costs.
#include <exception>
#include <iostream>
#include <string>

#include "examples/webserver/Measurement.h"
#include "examples/webserver/Options.h"
#include "examples/webserver/Server.h"

namespace {

using namespace WebServer;

enum ExitCode { kDone = 0, kFailed = 1, kUsage = 64 };

ExitCode Run(const Options& options) {
    Measurement measurement(options);
    const auto answered = Serve(options.port, options.threads, [](std::uint16_t port) {
        std::cout << "listening on 127.0.0.1:" << port << std::endl;  // now: somebody may wait for it
    });
    const auto problems = measurement.Finish();
    for (const std::string& problem : problems) std::cerr << "metrics-webserver: " << problem << '\n';
    std::cout << answered << " requests answered\n";
    return problems.empty() ? kDone : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = ParseOptions(argc, argv);
        if (!options.help) return Run(options);
        PrintHelp(std::cout);
        return kDone;
    } catch (const UsageError& error) {
        std::cerr << "metrics-webserver: " << error.what() << "\nTry metrics-webserver --help.\n";
        return kUsage;
    } catch (const std::exception& error) {
        std::cerr << "metrics-webserver: " << error.what() << '\n';
        return kFailed;
    }
}
