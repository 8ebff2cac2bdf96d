#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// A call that cannot be meant; what() says why.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the command line asks for.
struct Options {
    std::optional<std::string> definitionFile;  // -d
    std::optional<std::string> definitionText;  // -e
    std::optional<std::string> outputFile;      // -o
    char separator = ',';                       // --pipe
    bool schema = false;                        // --schema
    bool check = false;                         // --check
    bool buffer = false;                        // --buffer
    bool help = false;                          // -h, --help
    std::vector<std::string> inputs;            // "-" is standard input, as is none
};

Options ParseOptions(const std::vector<std::string>& arguments);

extern const char* const kUsage;
