// Writing an event allocates nothing, and contexts that are over leave nothing behind.
#include <functional>

#include "metrics/output/NullStream.h"
#include "tests/output/CountedMemory.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using namespace Testing;

struct Case {
    Mode mode;
    Format format;
};

class MemoryTest : public testing::TestWithParam<Case> {
  protected:
    static constexpr std::uint64_t kContexts = 20;

    // `contexts` roots that are open at the same time, each with a child, and take turns.
    static std::vector<MetricsEvent> Lives(std::uint64_t firstId, std::uint64_t contexts, int rounds) {
        std::vector<MetricsEvent> events;
        const auto each = [&](auto make) {
            for (std::uint64_t id = firstId; id < firstId + 2 * contexts; id += 2) events.push_back(make(id));
        };
        each([](std::uint64_t id) { return Create(0, id); });
        each([](std::uint64_t id) { return Construct(0, id); });
        each([](std::uint64_t id) { return Create(id, id + 1); });
        each([](std::uint64_t id) { return Construct(id, id + 1); });
        for (; rounds != 0; --rounds) {
            each([](std::uint64_t id) { return Attribute(id, "file", MetricsValue::Ref("a,<b>\n")); });
            each([](std::uint64_t id) { return Make(MetricsEventType::ScopeOpen, id + 1, FourCC("io")); });
            each([](std::uint64_t id) { return Value(id + 1, "elapsed", 1.5); });
            each([](std::uint64_t id) { return Make(MetricsEventType::ScopeClose, id + 1, FourCC("io")); });
        }
        each([](std::uint64_t id) { return Close(id); });
        each([](std::uint64_t id) { return Close(id + 1); });
        return events;
    }

    static void Listen(Output& output) {
        if (GetParam().mode == Mode::Single) output.OpenStream(new basic_onullstream<char>, 0);
    }
};

TEST_P(MemoryTest, AnEventAllocatesNothing) {
    Output output(GetParam().mode, GetParam().format);
    Listen(output);
    const auto events = Lives(1, kContexts, 500);
    output.Put(events);
    const long before = allocations;
    output.Put(events);
    // A context has its records, queue blocks come from the output's store, a buffer of bytes doubles.
    EXPECT_LE(allocations - before, static_cast<long>(kContexts) * 40);
    EXPECT_EQ(output.Errors(), Briefs());
}

TEST_P(MemoryTest, ContextsThatAreOverLeaveNothing) {
    Output output(GetParam().mode, GetParam().format);
    Listen(output);
    std::uint64_t id = 1;
    const auto live = [&] {
        output.Put(Lives(id, kContexts, 3));
        for (const std::uint64_t end = id + 2 * kContexts; id < end; ++id) output.TakeBuffer(id);
    };
    for (int warmUp = 0; warmUp < 10; ++warmUp) live();
    const long before = liveAllocations;
    for (int repeat = 0; repeat < 500; ++repeat) live();
    EXPECT_LE(liveAllocations - before, 10);
}

INSTANTIATE_TEST_SUITE_P(Outputs, MemoryTest,
                         testing::Values(Case{Mode::PerContext, Format::Raw},
                                         Case{Mode::PerContext, Format::Xml},
                                         Case{Mode::PerContext, Format::Buffer},
                                         Case{Mode::Single, Format::Xml}, Case{Mode::Single, Format::Raw},
                                         Case{Mode::Borrowed, Format::Xml}));

// Streams of which parts were missed: a subscriber that came late, contexts that outlive their root.
TEST(MemoryOfStrays, StaysFlat) {
    if (kThreadSanitized) GTEST_SKIP() << "one thread, for minutes";
    const std::function<std::vector<MetricsEvent>(std::uint64_t)> strays[] = {
        [](std::uint64_t id) { return std::vector{Create(99, id)}; },
        [](std::uint64_t id) {
            return std::vector{Construct(99, id), Value(id, "v", 1), Close(id)};
        },
        [](std::uint64_t id) {
            return std::vector{Create(0, id),      Construct(0, id),      Create(id, id + 1),   Close(id),
                               Create(id, id + 2), Construct(id, id + 1), Value(id + 1, "v", 1)};
        },
        [](std::uint64_t id) {
            return std::vector{Create(0, id), Construct(0, id), Close(id), Create(id, id + 1),
                               Construct(id, id + 1)};
        },
    };
    for (const auto& stray : strays) {
        Output output(Mode::PerContext, Format::Buffer);
        std::uint64_t id = 100;
        const auto repeat = [&](int times) {
            for (; times != 0; --times, id += 3) {
                output.Put(stray(id));
                output.Drain(0);
                output.TakeBuffer(id);
            }
        };
        repeat(80000);
        const long before = liveAllocations;
        repeat(80000);
        EXPECT_LE(liveAllocations - before, 100);
    }
}

}  // namespace
}  // namespace Metrics
