// Writing an event allocates nothing, and contexts that are over leave nothing behind.
#include "metrics/output/NullStream.h"
#include "tests/output/OutputFixture.h"
#include "tests/support/Allocator.h"
#include "tests/support/Memory.h"

namespace Metrics {
namespace {

using namespace Testing;

constexpr std::uint64_t kContexts = 20;

// Roots that are open at the same time, each with a child, and take turns.
std::vector<MetricsEvent> Lives(std::uint64_t firstId, int rounds) {
    std::vector<MetricsEvent> events;
    const auto each = [&](auto make) {
        for (std::uint64_t id = firstId; id < firstId + 2 * kContexts; id += 2) events.push_back(make(id));
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

TEST(OutputMemory, AnEventAllocatesNothingAndContextsThatAreOverLeaveNothing) {
    for (const auto& [mode, format] :
         {std::pair{Mode::PerContext, Format::Raw}, std::pair{Mode::PerContext, Format::Xml},
          std::pair{Mode::PerContext, Format::Buffer}, std::pair{Mode::Single, Format::Xml},
          std::pair{Mode::Single, Format::Raw}, std::pair{Mode::Borrowed, Format::Xml},
          std::pair{Mode::Completed, Format::Xml}, std::pair{Mode::Completed, Format::CsvComma}}) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(mode) << " " << static_cast<int>(format));
        Output output(mode, format);
        output.SetRowDefinition("path(io);io.elapsed:r");
        if (mode == Mode::Single || mode == Mode::Completed)
            output.OpenStream(new basic_onullstream<char>, 0);
        std::uint64_t id = 1;
        const auto live = [&](int rounds) {
            const auto events = Lives(id, rounds);
            const int before = Allocator::allocations;
            output.Put(events);
            const int allocations = Allocator::allocations - before;
            for (const std::uint64_t end = id + 2 * kContexts; id < end; ++id) output.TakeBuffer(id);
            return allocations;
        };
        for (int warmUp = 0; warmUp < 10; ++warmUp) live(3);
        const int before = Allocator::live;
        for (int repeat = 0; repeat < 500; ++repeat) live(3);
        EXPECT_LE(Allocator::live - before, 10);
        live(500);
        // A context has its records, queue blocks come from the output's store, a buffer of bytes doubles.
        EXPECT_LE(live(500), static_cast<int>(kContexts) * 40);
        EXPECT_EQ(output.Errors(), Briefs());
    }
}

// Streams of which parts were missed: a subscriber that came late, contexts that outlive their root.
TEST(OutputMemory, StaysFlatWithStrays) {
    if (kThreadSanitized) GTEST_SKIP() << "one thread, for minutes";
    Output output(Mode::PerContext, Format::Buffer);
    std::uint64_t id = 100;
    const auto highestOf = [&](int times) {
        int highest = 0;
        for (; times != 0; --times, id += 10) {
            output.Put({Create(99, id)});
            output.Put({Construct(99, id + 1), Value(id + 1, "v", 1), Close(id + 1)});
            output.Put({Create(0, id + 2), Construct(0, id + 2), Create(id + 2, id + 3), Close(id + 2),
                        Create(id + 2, id + 4), Construct(id + 2, id + 3), Value(id + 3, "v", 1)});
            output.Put({Create(0, id + 5), Construct(0, id + 5), Close(id + 5), Create(id + 5, id + 6),
                        Construct(id + 5, id + 6)});
            output.Drain(0);
            output.TakeBuffer(id + 2);
            output.TakeBuffer(id + 5);
            highest = std::max(highest, Allocator::live);
        }
        return highest;
    };
    const int before = highestOf(40000);
    EXPECT_LE(highestOf(40000) - before, 100);
}

// Roots that stay open and grow, from half-time on behind a child of each that stays open too.
TEST(OutputMemory, StaysUnderItsLimit) {
    constexpr std::uint64_t kRoots = 1000;
    constexpr int kLimit = 1 << 20;
    constexpr int kRounds = 60;  // of a text for each root: twelve times what may be held
    const std::string text(200, 'x');
    for (const auto& [mode, format] :
         {std::pair{Mode::Completed, Format::Xml}, std::pair{Mode::Single, Format::Xml},
          std::pair{Mode::Completed, Format::Raw}, std::pair{Mode::Completed, Format::CsvComma},
          std::pair{Mode::Single, Format::CsvComma}, std::pair{Mode::Completed, Format::Buffer}}) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(mode) << " " << static_cast<int>(format));
        Output output(mode, format);
        output.SetRowDefinition("r.n");
        output.OpenStream(format == Format::Buffer ? nullptr : new basic_onullstream<char>, 0);
        output.SetHeldLimit(kLimit);
        const auto each = [&](auto make) {
            std::vector<MetricsEvent> batch;
            for (std::uint64_t id = 1; id <= 2 * kRoots; id += 2) batch.push_back(make(id));
            const int before = Allocator::live;
            output.Put(std::exchange(batch, {}));
            return before;  // the batch's own texts are in it
        };
        const auto grow = [&] {
            int highest = 0;
            for (int left = kRounds; left != 0; --left)
                highest = std::max(highest, each([&](std::uint64_t id) { return Value(id, "n", text); }));
            return highest;
        };
        each([](std::uint64_t id) { return Create(0, id); });
        each([](std::uint64_t id) { return Construct(0, id); });
        each([](std::uint64_t id) { return OpenScope(id, "r"); });
        const int few = Allocator::live;
        // Each root has its records, and in a table its engine.
        const int perRoot = format == Format::CsvComma ? 40 : 10;
        const int most = kLimit / 200 + static_cast<int>(kRoots) * (1 + perRoot);
        EXPECT_LE(grow() - few, most);
        each([](std::uint64_t id) { return Create(id, id + 1); });
        each([](std::uint64_t id) { return Construct(id, id + 1); });
        EXPECT_LE(grow() - few, most + static_cast<int>(kRoots) * perRoot);
        EXPECT_EQ(output.Errors(), Briefs());
    }
}

}  // namespace
}  // namespace Metrics
