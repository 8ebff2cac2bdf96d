#include <gtest/gtest.h>

#include <memory>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

TEST(MemoryTest, TotalsAddUp) {
    const AddressSpaceTotals totals = QueryAddressSpace();
    EXPECT_EQ(totals.total, totals.free + totals.reserved + totals.committed);
    EXPECT_GT(totals.committed, 1u << 20);
    EXPECT_GT(totals.free, std::uint64_t{1} << 40);
}

TEST(MemoryTest, CommittedGrowsByALargeAllocation) {
    constexpr std::size_t kSize = std::size_t{64} << 20;
    const std::uint64_t before = QueryAddressSpace().committed;
    const auto block = std::make_unique<char[]>(kSize);
    char* const volatile kept = block.get();  // or Clang would do without the block
    EXPECT_NE(kept, nullptr);
    EXPECT_GE(QueryAddressSpace().committed, before + kSize);
}

TEST(MemoryTest, TheMachineHasMemory) {
    const GlobalMemory memory = QueryGlobalMemory();
    EXPECT_GT(memory.physicalTotal, std::uint64_t{64} << 20);
    EXPECT_GT(memory.physicalAvailable, 0u);
    EXPECT_LE(memory.physicalAvailable, memory.physicalTotal);
    EXPECT_GT(memory.commitLimit, 0u);
    EXPECT_LE(memory.commitAvailable, memory.commitLimit);
    EXPECT_LE(memory.loadPercent, 100u);
}

}  // namespace Metrics::platform
