#pragma once

#include <filesystem>
#include <iosfwd>
#include <stdexcept>
#include <string>

namespace WordCount {

/// What the command line asks for.
struct Options {
    std::filesystem::path folder;            ///< whose files are counted
    std::filesystem::path out = "out";       ///< where the output goes
    unsigned threads = 0;                    ///< of the pool; set, if not asked for, to what the machine has
    unsigned processes = 0;                  ///< copies of this program that do the work; 0 for none
    unsigned share = 0;                      ///< this is the copy of that number; 0 for none
    std::string measure = "time, mem, loc";  ///< mnemonics of what every scope measures
    bool mute = false;                       ///< leaves out what differs from run to run
    bool help = false;
};

/// The command line makes no sense.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Throws UsageError.
Options ParseOptions(int argc, const char* const* argv);

void PrintHelp(std::ostream& out);

}  // namespace WordCount
