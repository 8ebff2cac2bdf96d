#pragma once

#include <vector>

#include "examples/wordcount/FileList.h"
#include "examples/wordcount/Totals.h"

namespace WordCount {

/// Counts the files on a pool of `threads` threads and merges what they find on the calling thread. With one
/// thread everything happens on the calling one, file by file, so that two runs mark the same in the same
/// order.
Totals CountFiles(const std::vector<File>& files, unsigned threads);

}  // namespace WordCount
