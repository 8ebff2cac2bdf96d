#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/OutputState.h"
#include "tests/output/EventMaking.h"

namespace Metrics::Testing {

using Briefs = std::vector<std::string>;
using Mode = MetricsOutput::Mode;
using Format = MetricsOutput::Format;

// What an output does with batches, without a manager that runs.
class Output : public detail::OutputState {
  public:
    Output(Mode mode, Format format) : OutputState(detail::Core::Current(), mode, format) {}
    ~Output() { CloseDown(); }

    void Put(const std::vector<MetricsEvent>& batch) { ProcessBatch(batch); }
    // What is written for a context from now on.
    std::ostringstream& Listen(std::uint64_t contextId) {
        std::ostringstream& stream = streams_.emplace_back();
        OpenStream(&stream, contextId);
        return stream;
    }
    // The same in batches of random sizes.
    void PutInPieces(const std::vector<MetricsEvent>& events, std::uint32_t seed) {
        std::mt19937 random(seed);
        for (auto at = events.begin(); at != events.end();) {
            const auto size =
                std::min<std::ptrdiff_t>(1 + static_cast<std::ptrdiff_t>(random() % 200), events.end() - at);
            ProcessBatch(std::vector<MetricsEvent>(at, at + size));
            at += size;
        }
    }

  private:
    std::deque<std::ostringstream> streams_;
};

inline Briefs Decode(const std::shared_ptr<MetricsValueBuffer>& buffer) {
    if (!buffer) return {"no buffer"};
    Briefs briefs;
    for (std::uint32_t left = buffer->ReadHeader().eventCount; left != 0; --left) {
        MetricsEvent event;
        event.Read(*buffer);
        briefs.push_back(Brief(event));
    }
    return briefs;
}

// A folder of its own for each test, gone afterwards.
class OutputTest : public testing::Test {
  protected:
    OutputTest();
    ~OutputTest() override;

    std::string Path(const std::string& name) const { return folder_ + "/" + name; }
    static std::string ReadFile(const std::string& name) {
        std::ifstream file(name);  // as text, as it was written: systems end lines each in their way
        if (!file) return "no file";
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

  private:
    std::string folder_;
};

}  // namespace Metrics::Testing
