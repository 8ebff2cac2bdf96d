#pragma once

#include <exception>
#include <string>

#include "metrics/MetricsBitsUtils.h"

namespace Metrics::detail {

// The bits of an enable mask that an event's component id can hold.
constexpr unsigned long long kComponentMask = 0xFFF;
// Components and filters, without the measurements of scopes.
constexpr unsigned long long kAllFilters = 0xFFFFFFFFF0000FFF;

// The one table, built under a lock by whoever asks first and constant from then on. A bad filters.xml leaves
// it with the built-in entries.
const MetricsBitsUtils::BitsMap& BitsTable();

// Throws what was wrong with filters.xml; only the first time that it is asked.
void ThrowFilterErrorOnce();

// What was wrong with the filter file when the table was built, or null. The built-in names are there all the
// same.
std::exception_ptr FilterError();

// Who hears of mnemonics that are not in the table, separated by commas: the manager, which stands above.
// Null at first; it must not throw.
using UnknownMnemonicHandler = void (*)(const std::string& mnemonics);
void SetUnknownMnemonicHandler(UnknownMnemonicHandler handler);
void TellUnknownMnemonics(const std::string& mnemonics);

}  // namespace Metrics::detail
