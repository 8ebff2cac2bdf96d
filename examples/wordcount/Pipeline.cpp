#include "examples/wordcount/Pipeline.h"

#include <atomic>
#include <cstddef>
#include <thread>
#include <utility>

#include "examples/wordcount/Channel.h"

namespace WordCount {

namespace {

using Done = Channel<FileCounts>;

// Takes the next file that nobody has taken, until there is none or nobody wants the counts.
void Work(const std::vector<File>& files, std::atomic<std::size_t>& next, Done& done) {
    for (std::size_t i = next++; i < files.size(); i = next++) {
        if (!done.Push(CountFile(files[i]))) return;
    }
}

// Lets the pool go when merging fails, so that it can be joined.
struct CloseAtEnd {
    Done& done;
    ~CloseAtEnd() { done.Close(); }
};

}  // namespace

Totals CountFiles(const std::vector<File>& files, unsigned threads) {
    Totals totals;
    if (threads == 1) {
        for (const File& file : files) totals.Merge(CountFile(file));
        return totals;
    }
    Done done(2 * std::size_t{threads});
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> pool;
    const CloseAtEnd closeAtEnd{done};
    for (unsigned i = 0; i < threads; ++i) pool.emplace_back([&] { Work(files, next, done); });
    for (std::size_t i = 0; i < files.size(); ++i) totals.Merge(std::move(*done.Pop()));
    return totals;
}

}  // namespace WordCount
