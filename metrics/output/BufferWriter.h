#pragma once

#include <cstdint>
#include <memory>

#include "metrics/MetricsValueBuffer.h"
#include "metrics/output/IWriter.h"

namespace Metrics {

// Collects events in their binary form, for another process to merge.
class BufferWriter final : public IWriter {
  public:
    BufferWriter() : buffer_(std::make_shared<MetricsValueBuffer>()) {}

    void Begin() override { buffer_->AppendHeader(); }
    void Write(const MetricsEvent& event) override;
    void Flush() override {}
    void End() override { buffer_->PatchHeader(count_, bytes_); }
    std::shared_ptr<MetricsValueBuffer> Buffer() const override { return buffer_; }

  private:
    std::shared_ptr<MetricsValueBuffer> buffer_;
    std::uint32_t bytes_ = 0;
    std::uint32_t count_ = 0;
};

}  // namespace Metrics
