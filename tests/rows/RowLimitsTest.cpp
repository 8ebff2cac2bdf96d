// The limits of what is kept, with small ones: what they cost and that all else stands.
#include <gtest/gtest.h>

#include "metrics/reader/XmlScanner.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/RowEngine.h"
#include "metrics/rows/RowReader.h"

#if defined(__linux__)
#include <malloc.h>
#endif

namespace {

using namespace Metrics::detail;

// The rows, the notices as "! " lines among them, the counts behind.
std::string RowsWithin(std::string_view definition, std::string_view input, const RowLimits& limits) {
    CompiledRow row;
    CompileRow(SplitDefinition(definition), row);
    std::string out;
    RowReader* current = nullptr;
    RowReader reader(
        row, [&] { current->AppendCurrent(out, ',', true); }, limits);
    current = &reader;
    reader.Notices().SetHandler([&](const RowNotice& notice) {
        out += "! " + std::to_string(static_cast<int>(notice.limit)) + " at " +
               std::to_string(notice.element) + '\n';
    });
    RowEngine engine(row, reader, reader.Notices(), limits);
    StreamingXml::XmlScanner scanner(engine);
    scanner.Feed(input);
    engine.Finish();
    reader.GiveGroups();
    return out + "! " + std::to_string(reader.Notices().Count()) + '\n';
}

TEST(RowLimits, CostWhatIsBeyondThem) {
    const struct {
        const char* definition;
        const char* input;
        RowLimits limits;
        const char* rows;
    } cases[] = {
        {"a.x;path(x)", "<a><b><x>0<i/></x></b><x>1</x></a>", {.depth = 2}, "! 0 at 3\n1,a.x\n! 2\n"},
        // A value that is too long is not replaced by the one before it.
        {"l.n;l.i",
         "<l><n>1</n><i>2</i><n>long</n><i>3</i><i>4</i><n>5</n><i>6</i></l>",
         {.valueSize = 3},
         "! 1 at 4\n1,2\n5,4\n5,6\n! 1\n"},
        {"a..k;path(a.x);a.x",
         "<a k='long'><x>1</x></a><a k='s'><x>2</x><xyz/></a>",
         {.valueSize = 3},
         "! 1 at 1\ns,a.x,2\n! 1\n"},
        {"path(a.b)", "<a><b/></a><a><c/><b/></a>", {.valueSize = 2}, "! 1 at 2\n! 2\n"},
        {"a;[n]:count(a)",
         "<a>1</a><a>2</a><a>3</a><a>1</a><a>4</a>",
         {.groups = 2},
         "! 3 at 3\n1,2\n2,1\n! 2\n"},
        // Of a pivot path the ends are kept, so that they count what the whole paths do not.
        {"pivotpath(a);[n]:count(a)",
         "<x><a>1</a><y><a>2</a></y></x>",
         {.groups = 4},
         "! 3 at 4\nx.a,1\na,2\ny.a,1\n! 1\n"},
        {"a;[n]:count(a)", "<a>1</a><a>2</a><a>1</a>", {.groupBytes = 200}, "! 3 at 2\n1,2\n! 1\n"},
    };
    for (const auto& [definition, input, limits, rows] : cases)
        EXPECT_EQ(RowsWithin(definition, input, limits), rows) << definition << "\n" << input;
}

#if defined(__linux__)
// Each of a thousand nested elements has up to a thousand ends of its path, 300 MB of text in all.
TEST(RowLimits, NestedPivotsTakeLittle) {
    std::string input;
    for (unsigned i = 0, state = 1; i < 1000; ++i) {
        state = state * 1664525 + 1013904223;
        input += std::string("<") + static_cast<char>('a' + (state >> 16) % 26) + ">";
    }
    CompiledRow row;
    CompileRow({"pivotpath(*)", "count(*)"}, row);
    const auto used = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t before = used();
    std::size_t lines = 0;
    RowReader reader(row, [&] { ++lines; });
    RowEngine engine(row, reader, reader.Notices());
    StreamingXml::XmlScanner scanner(engine);
    scanner.Feed(input);
    engine.Finish();
    EXPECT_LT(used() - before, std::size_t{64} << 20);
    reader.GiveGroups();
    EXPECT_GT(lines, 100000U);
    EXPECT_GT(reader.Notices().Count(RowLimit::Groups), 0U);
}
#endif

}  // namespace
