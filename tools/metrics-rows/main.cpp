// Turns XML that an output wrote, or the events of a buffer, into rows.
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "Definition.h"
#include "Options.h"
#include "Table.h"
#include "metrics/base/FileError.h"
#include "metrics/platform/Platform.h"
#include "metrics/platform/StandardStreams.h"
#include "metrics/rows/SchemaFile.h"

namespace {

enum ExitCode { kDone = 0, kNoRow = 1, kBadInput = 2, kUsageError = 64, kInterrupted = 130 };

int Complain(const std::string& message, int code) {
    std::cerr << "metrics-rows: " << message << '\n';
    return code;
}

void ReadInput(Table& table, const std::string& name, bool buffer) {
    std::ifstream file;
    const bool standard = name == "-";
    if (!standard) file.open(name, std::ios::binary);
    if (!standard && !file) throw InputError(name + ": cannot be opened");
    std::istream& in = standard ? std::cin : file;
    const std::string shown = standard ? "<stdin>" : name;
    if (buffer) {
        table.ReadBuffer(shown, in);
    } else {
        table.ReadXml(shown, in);
    }
}

// Nobody reads what goes into a closed pipe: that is no error.
int OutputFailed(const Options& options, int reason) {
    if (!options.outputFile && (reason == EPIPE || reason == EINVAL)) return kDone;
    return Complain(options.outputFile.value_or("<stdout>") + ": cannot be written", kBadInput);
}

int WriteTable(const Options& options, const Metrics::detail::CompiledRow& row, std::ostream& out) {
    const Metrics::platform::InterruptHandler interrupts;
    Table table(row, out, options.separator);
    std::string complaint;
    errno = 0;
    table.WriteHeader();
    try {
        const std::vector<std::string> standard{"-"};
        for (const std::string& input : options.inputs.empty() ? standard : options.inputs) {
            ReadInput(table, input, options.buffer);
            if (table.BrokenOff()) break;
        }
    } catch (const InputError& error) {
        complaint = error.what();
    }
    table.Finish();
    table.ShowLeftOut();
    if (!out.good()) return OutputFailed(options, errno);
    if (!complaint.empty()) return Complain(complaint, kBadInput);
    if (Metrics::platform::InterruptHandler::Flag().load()) return kInterrupted;
    return table.Rows() > 0 ? kDone : kNoRow;
}

int Run(const Options& options) {
    if (options.help) {
        std::cout << kUsage;
        return kDone;
    }
    const Metrics::detail::CompiledRow row = CompileDefinition(options);
    if (options.check) {
        ListColumns(row, std::cout);
        return kDone;
    }
    if (!options.outputFile) return WriteTable(options, row, std::cout);
    std::ofstream file(*options.outputFile, std::ios::binary);
    if (!file) throw InputError(*options.outputFile + ": cannot be written");
    if (options.schema) {
        const auto columns = Metrics::detail::ListColumns(row, true);
        const Metrics::detail::TableSchema schema{*options.outputFile,
                                                  Metrics::detail::SchemaEntries(columns, options.separator)};
        Metrics::detail::WriteSchemas({&schema, 1});
    }
    return WriteTable(options, row, file);
}

}  // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    Metrics::platform::PrepareStandardStreams();
    try {
        return Run(ParseOptions({argv + 1, argv + argc}));
    } catch (const UsageError& error) {
        return Complain(std::string(error.what()) + "\n" + kUsage, kUsageError);
    } catch (const Metrics::detail::FileError& error) {
        return Complain(error.Details(), kBadInput);
    } catch (const std::exception& error) {
        return Complain(error.what(), kBadInput);
    }
}
