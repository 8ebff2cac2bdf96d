#include "examples/wordcount/Options.h"

#include <algorithm>
#include <charconv>
#include <ostream>
#include <string_view>
#include <system_error>
#include <thread>

namespace WordCount {

namespace {

constexpr unsigned kMostThreads = 256;
constexpr unsigned kMostProcesses = 64;

unsigned ParseCount(std::string_view option, std::string_view text, unsigned most) {
    unsigned count = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || stop != end || count < 1 || count > most) {
        throw UsageError(std::string(option) + " takes a number from 1 to " + std::to_string(most) +
                         ", not \"" + std::string(text) + "\"");
    }
    return count;
}

/// The arguments, one after the other.
class Arguments {
  public:
    Arguments(int argc, const char* const* argv) : next_(argv + std::min(argc, 1)), end_(argv + argc) {}

    bool AtEnd() const { return next_ == end_; }
    std::string_view Next() { return *next_++; }
    std::string_view ValueOf(std::string_view option) {
        if (AtEnd()) throw UsageError(std::string(option) + " needs a value");
        return Next();
    }

  private:
    const char* const* next_;
    const char* const* end_;
};

void SetFolder(Options& options, std::string_view folder) {
    if (!options.folder.empty()) throw UsageError("more than one folder given");
    if (folder.empty()) throw UsageError("the folder's name is empty");
    options.folder = folder;
}

void ParseArgument(Options& options, Arguments& arguments) {
    const std::string_view argument = arguments.Next();
    if (argument == "--help" || argument == "-h") {
        options.help = true;
    } else if (argument == "--out") {
        options.out = arguments.ValueOf(argument);
    } else if (argument == "--threads") {
        options.threads = ParseCount(argument, arguments.ValueOf(argument), kMostThreads);
    } else if (argument == "--processes") {
        options.processes = ParseCount(argument, arguments.ValueOf(argument), kMostProcesses);
    } else if (argument == "--share") {  // only for the copies that --processes starts
        options.share = ParseCount(argument, arguments.ValueOf(argument), kMostProcesses);
    } else if (argument == "--measure") {
        options.measure = arguments.ValueOf(argument);
    } else if (argument == "--mute") {
        options.mute = true;
    } else if (argument.substr(0, 1) == "-") {
        throw UsageError("there is no option " + std::string(argument));
    } else {
        SetFolder(options, argument);
    }
}

// What one option alone doesn't tell.
void Complete(Options& options) {
    if (options.out.empty()) throw UsageError("the output folder's name is empty");
    if (options.processes != 0 && options.threads != 0)
        throw UsageError("--threads or --processes, not both");
    if (options.share > options.processes) throw UsageError("there is no such share");
    if (options.threads == 0)
        options.threads = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
    if (options.folder.empty()) options.folder = METRICS_DEMO_FOLDER;
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
    Options options;
    Arguments arguments(argc, argv);
    while (!arguments.AtEnd()) ParseArgument(options, arguments);
    Complete(options);
    return options;
}

void PrintHelp(std::ostream& out) {
    out << "Counts the words in all files of a folder, and measures itself doing so.\n"
           "\n"
           "usage: metrics-demo [options] [folder]\n"
           "\n"
           "  folder          what to count (default: " METRICS_DEMO_FOLDER
           ")\n"
           "  --out DIR       where the output goes, made if missing (default: out)\n"
           "  --threads N     size of the pool; 1 does everything on the main thread, in order\n"
           "  --processes N   let N copies of the program do the work, on one thread each\n"
           "  --measure LIST  what every scope measures: wall, time, mem, loc (default: time, mem, loc)\n"
           "  --mute          leave what differs from run to run out of ordered.csv and the XML\n"
           "  --help          this text\n"
           "\n"
           "Files with NUL bytes, hidden files and symbolic links are left out.\n"
           "Exit codes: 0 done, 1 something could not be read or written, 64 wrong usage.\n";
}

}  // namespace WordCount
