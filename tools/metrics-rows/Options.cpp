#include "Options.h"

const char* const kUsage =
    R"(usage: metrics-rows (-d FILE | -e TEXT) [-o FILE [--schema]] [--pipe] [--buffer] [INPUT...]
       metrics-rows (-d FILE | -e TEXT) --check

Turns XML that an output wrote into the rows of a row definition. Reads standard input
when no INPUT is given or INPUT is "-".

  -d FILE    the row definition is in FILE
  -e TEXT    the row definition is TEXT
  -o FILE    write to FILE, not to standard output
  --schema   describe FILE in the schema.ini beside it
  --pipe     separate fields by "|", not by ","
  --buffer   the input is an event buffer, not XML
  --check    only compile the definition and list its columns with their types
  -h, --help this text

Exit codes: 0 done, 1 no row, 2 bad input or definition, 64 bad usage, 130 interrupted.
)";

namespace {

class Reader {
  public:
    explicit Reader(const std::vector<std::string>& arguments) : arguments_(arguments) {}

    bool Next(std::string& argument) {
        if (at_ == arguments_.size()) return false;
        argument = arguments_[at_++];
        return true;
    }
    std::string ValueOf(const std::string& option) {
        std::string value;
        if (!Next(value)) throw UsageError("option " + option + " needs a value");
        return value;
    }

  private:
    const std::vector<std::string>& arguments_;
    std::size_t at_ = 0;
};

void CheckTogether(const Options& options) {
    if (options.help) return;
    if (options.definitionFile.has_value() == options.definitionText.has_value())
        throw UsageError("one of -d and -e is needed");
    if (options.schema && !options.outputFile) throw UsageError("--schema needs -o");
    if (options.check && !options.inputs.empty()) throw UsageError("--check reads no input");
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
    Options options;
    Reader reader(arguments);
    bool onlyInputs = false;
    for (std::string argument; reader.Next(argument);) {
        if (onlyInputs || argument == "-" || !argument.starts_with('-')) {
            options.inputs.push_back(argument);
        } else if (argument == "--") {
            onlyInputs = true;
        } else if (argument == "-d") {
            options.definitionFile = reader.ValueOf(argument);
        } else if (argument == "-e") {
            options.definitionText = reader.ValueOf(argument);
        } else if (argument == "-o") {
            options.outputFile = reader.ValueOf(argument);
        } else if (argument == "--pipe") {
            options.separator = '|';
        } else if (argument == "--schema") {
            options.schema = true;
        } else if (argument == "--check") {
            options.check = true;
        } else if (argument == "--buffer") {
            options.buffer = true;
        } else if (argument == "-h" || argument == "--help") {
            options.help = true;
        } else {
            throw UsageError("unknown option " + argument);
        }
    }
    CheckTogether(options);
    return options;
}
