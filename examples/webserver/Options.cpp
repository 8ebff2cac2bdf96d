#include "examples/webserver/Options.h"

#include <charconv>
#include <ostream>
#include <string_view>
#include <system_error>

namespace WebServer {

namespace {

unsigned ParseNumber(std::string_view option, std::string_view text, unsigned least, unsigned most) {
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most) {
        throw UsageError(std::string(option) + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not \"" + std::string(text) + '"');
    }
    return number;
}

Measure ParseMeasure(std::string_view text) {
    if (text == "off") return Measure::Off;
    if (text == "xml") return Measure::Xml;
    if (text == "rows") return Measure::Rows;
    throw UsageError("--measure takes off, xml or rows, not \"" + std::string(text) + '"');
}

void Set(Options& options, std::string_view option, std::string_view value) {
    if (option == "--port") {
        options.port = static_cast<std::uint16_t>(ParseNumber(option, value, 0, 65535));
    } else if (option == "--threads") {
        options.threads = ParseNumber(option, value, 1, 64);
    } else if (option == "--measure") {
        options.measure = ParseMeasure(value);
    } else if (option == "--out") {
        options.out = value;
    } else if (option == "--bits") {
        options.bits = value;
    } else {
        throw UsageError("there is no option " + std::string(option));
    }
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string_view option = argv[i];
        if (option == "--help" || option == "-h") {
            options.help = true;
            break;
        }
        if (i + 1 == argc)
            throw UsageError(std::string(option) + " needs a value, or is none of the options");
        Set(options, option, argv[i + 1]);
    }
    if (options.out.empty()) options.out = options.measure == Measure::Xml ? "requests.xml" : "requests.csv";
    return options;
}

void PrintHelp(std::ostream& out) {
    out << "Serves a few pages on 127.0.0.1 until it is interrupted, and measures each request.\n"
           "\n"
           "usage: metrics-webserver [options]\n"
           "\n"
           "  --port N        0 lets the system choose (default: 8080)\n"
           "  --threads N     that serve requests (default: 1)\n"
           "  --measure WHAT  off, xml (elements) or rows (a line per request); default: off\n"
           "  --out FILE      default: requests.xml or requests.csv\n"
           "  --bits LIST     what each scope measures: wall, time, mem, loc; default: "
        << Options().bits
        << "\n"
           "  --help          this text\n"
           "\n"
           "Pages: / and /table?rows=N. Exit codes: 0 done, 1 something failed, 64 wrong usage.\n";
}

}  // namespace WebServer
