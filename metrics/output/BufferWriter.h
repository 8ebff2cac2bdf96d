#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/IWriter.h"

namespace Metrics {

// Collects events in their binary form, for another process to merge.
class BufferWriter final : public IWriter {
  public:
    void Begin() override { buffer_.AppendHeader(); }
    void Write(const MetricsEvent& event) override;
    void Flush() override {}
    void End() override { buffer_.PatchHeader(count_, bytes_); }
    std::shared_ptr<MetricsValueBuffer> TakeBuffer() override {
        *finished_ = std::move(buffer_);
        return finished_;
    }

  private:
    // Filled where it is found without another step through memory, of which thousands of contexts make many.
    MetricsValueBuffer buffer_;
    std::shared_ptr<MetricsValueBuffer> finished_ = std::make_shared<MetricsValueBuffer>();
    std::uint32_t bytes_ = 0;
    std::uint32_t count_ = 0;
};

}  // namespace Metrics
