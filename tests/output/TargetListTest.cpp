// The targets of an output: which of them are flushed, which are closed.
#include "metrics/output/RawWriter.h"
#include "metrics/output/TargetList.h"
#include "tests/output/OutputFixture.h"

namespace Metrics::detail {
namespace {

TEST(TargetList, WhatClosesBeforeTheFlushLeavesThatToTheOthers) {
    constexpr std::uint64_t kTargets = 5;
    std::deque<std::ostringstream> streams(kTargets);
    TargetList targets;
    for (std::uint64_t id = 0; id < kTargets; ++id) {
        OutputTarget target;
        target.stream = &streams[id];
        target.writer = std::make_unique<RawWriter>(streams[id], false);
        targets.Open(id, std::move(target));
    }
    const MetricsEvent event = Testing::OpenScope(1, "a");
    const auto write = [&](Audience& audience) { targets.Write(audience, {&event, 1}); };
    const auto written = [&](std::uint64_t id) { return Testing::Has(streams[id].str(), ",6,"); };
    for (auto& [id, audience] : targets.Audiences()) write(audience);
    for (const std::uint64_t closing : {0, 4}) {
        targets.Mark(targets.Audiences().at(closing));
        ASSERT_EQ(targets.CloseMarked().size(), 1U);
        EXPECT_TRUE(written(closing));
        for (auto& [id, audience] : targets.Audiences()) EXPECT_FALSE(written(id)) << id;
    }
    targets.Flush();
    for (auto& [id, audience] : targets.Audiences()) {
        EXPECT_TRUE(written(id)) << id;
        streams[id].str("");
        write(audience);
    }
    targets.Flush();
    for (auto& [id, audience] : targets.Audiences()) EXPECT_TRUE(written(id)) << id;
}

}  // namespace
}  // namespace Metrics::detail
