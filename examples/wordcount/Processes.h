#pragma once

#include "examples/wordcount/FileList.h"
#include "examples/wordcount/Options.h"
#include "examples/wordcount/Totals.h"

namespace WordCount {

/// Starts `options.processes` copies of this program, each of which counts its share of the folder, and
/// merges what they counted and what they measured into the context `contextId`. Throws std::runtime_error if
/// one of them fails.
Totals CountInProcesses(const Options& options, unsigned long long contextId);

/// What such a copy does: counts its share of the files and leaves the counts, and the events as a buffer,
/// beside the output of the program that started it.
void CountShare(const Options& options, const FileList& list);

}  // namespace WordCount
