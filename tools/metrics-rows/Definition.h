#pragma once

#include <iosfwd>

#include "Options.h"
#include "metrics/rows/CompiledRow.h"

// Bad input or a bad definition; what() is the whole message, with the place.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Reads and compiles the definition that the options name. Throws InputError.
Metrics::detail::CompiledRow CompileDefinition(const Options& options);

// One line per written column: its name, a tab and its type.
void ListColumns(const Metrics::detail::CompiledRow& row, std::ostream& out);
