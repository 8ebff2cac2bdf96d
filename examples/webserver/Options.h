#pragma once

#include <cstdint>
#include <iosfwd>
#include <stdexcept>
#include <string>

namespace WebServer {

/// What is written of the requests.
enum class Measure { Off, Xml, Rows };

struct Options {
    std::uint16_t port = 8080;  ///< 0: the system chooses.
    unsigned threads = 1;
    Measure measure = Measure::Off;
    std::string out;            ///< The file; empty: requests.xml or requests.csv.
    std::string bits = "wall";  ///< What each scope measures, by mnemonics.
    bool help = false;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Throws UsageError.
Options ParseOptions(int argc, const char* const* argv);
void PrintHelp(std::ostream& out);

}  // namespace WebServer
