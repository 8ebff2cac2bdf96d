// Roots as they end, parts of roots that are too large, and closings in any order: what is written is read
// back and compared with what the marks meant.
#include <set>
#include <utility>

#include "metrics/reader/XmlScanner.h"
#include "tests/output/RandomMarks.h"
#include "tests/support/Recorder.h"

namespace Metrics {
namespace {

using namespace Testing;

// --- Parts ------------------------------------------------------------------------------------------------

// An element that was written in pieces, joined: what is in it by the number of the element around.
struct Joined {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::string around;
    std::multiset<std::string> values;
    int parts = 0;
    bool hasFirst = false;
    bool operator==(const Joined& other) const {
        return name == other.name && attributes == other.attributes && around == other.around &&
               values == other.values;
    }
};
using Elements = std::map<std::string, Joined>;  // by the attribute `id`

std::ostream& operator<<(std::ostream& out, const Joined& one) {
    out << one.name << Quoted(one.attributes) << " in " << one.around << ":";
    for (const std::string& value : one.values) out << " " << value.substr(0, 8);
    return out;
}

void Collect(const Mark& mark, const std::string& around, Elements& elements) {
    for (const Mark& one : mark.inside) {
        if (one.isElement) {
            const std::string& id = one.attributes.at("id");
            elements[id] = {one.name, one.attributes, around, {}};
            Collect(one, id, elements);
        } else if (one.name.empty()) {
            Collect(one, around, elements);
        } else {
            elements[around].values.insert(one.value);
        }
    }
}

// Reads XML and joins the parts.
class Joiner final : StreamingXml::XmlHandler {
  public:
    // `strict`: each element that has parts has a first one.
    explicit Joiner(const std::string& xml, bool strict = true) : strict_(strict) {
        wantsText_ = true;
        StreamingXml::XmlScanner scanner(*this);
        scanner.Feed(xml);
        scanner.End();
        EXPECT_EQ(open_, std::vector<std::string>{""});
    }

    Elements elements;
    int cuts = 0;
    int aside = 0;  // attributes of the host's that were called `part`

  private:
    void OpenElement(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                     std::uint64_t) override {
        text_.clear();
        value_ = name.starts_with('s') ? "" : name;
        if (!value_.empty()) return;
        Joined element;
        element.name = name;
        element.around = open_.back();
        for (const auto& one : attributes)
            EXPECT_TRUE(element.attributes.emplace(one.name, one.value).second) << name << " " << one.name;
        TakePart(element);
        const std::string id = element.attributes["id"];
        open_.push_back(id);
        if (const auto known = elements.find(id); known != elements.end() && known->second.parts != 0) {
            EXPECT_EQ(known->second.attributes, element.attributes) << id;
            EXPECT_EQ(known->second.around, element.around) << id;
            EXPECT_GE(element.parts, 2) << id;
            EXPECT_LE(element.parts, known->second.parts + 1) << id;
            EXPECT_TRUE(known->second.hasFirst || !strict_) << id;
            known->second.parts = std::max(element.parts, known->second.parts);
            ++cuts;
        } else {
            EXPECT_LE(element.parts, 1) << id;
            element.hasFirst = element.parts == 1;
            element.parts = 1;
            elements[id] = element;
        }
    }
    void Text(std::string_view piece) override { text_ += piece; }
    bool CloseElement() override {
        if (value_.empty()) open_.pop_back();
        if (value_ == "v") elements[open_.back()].values.insert(text_);
        value_.clear();
        return !open_.empty();
    }
    // The number of the part, and the host's own attribute of that name back in its place.
    void TakePart(Joined& element) {
        auto& attributes = element.attributes;
        if (attributes.count("part") != 0 && attributes["part"] != "mine") {
            element.parts = std::stoi(attributes["part"]);
            attributes.erase("part");
        }
        if (auto own = attributes.extract("_part")) {
            own.key() = "part";
            attributes.insert(std::move(own));
            ++aside;
        }
    }

    const bool strict_;
    std::string value_;  // its name, in a value
    std::string text_;
    std::vector<std::string> open_ = {""};  // ids
};

Elements WhatTheyMeant(const RandomMarks& marks) {
    Elements expected;
    for (const std::uint64_t root : marks.Roots()) Collect(marks.Of(root), "", expected);
    return expected;
}

// Root 1 never ends in every other run.
TEST(Completed, EachRootIsWrittenWholeInTheBatchInWhichItEnds) {
    for (std::uint32_t seed = 1; seed <= 16 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const RandomMarks marks(seed, 60, 3000);
        Output output(Mode::Completed, Format::Xml);
        const std::stringbuf& written = output.Listen();
        std::mt19937 random(seed);
        std::string expected;
        std::vector<MetricsEvent> batch;
        for (const auto& [event, endedRoot] : marks.Events()) {
            const bool hangs = seed % 2 == 0 && Brief(event) == "1:3:0:0";
            if (!hangs) batch.push_back(event);
            if (endedRoot != 0 && !(endedRoot == 1 && seed % 2 == 0)) expected += marks.Xml(endedRoot);
            if (random() % 50 != 0) continue;
            output.Put(std::exchange(batch, {}));
            ASSERT_EQ(written.str(), expected);
        }
        output.Put(batch);
        EXPECT_EQ(written.str(), expected);
        output.CloseDown();
        EXPECT_EQ(Joiner(written.str()).elements, WhatTheyMeant(marks));
        EXPECT_TRUE(written.str() == expected || seed % 2 == 0);
    }
}

TEST(Parts, JoinedTheyAreWhatTheMarksMeant) {
    int cuts = 0;
    int aside = 0;
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        const Mode mode = seed % 2 == 0 ? Mode::Single : Mode::Completed;
        SCOPED_TRACE(testing::Message() << "seed " << seed << " mode " << static_cast<int>(mode));
        const RandomMarks marks(seed, 40, 4000);
        Output output(mode, Format::Xml);
        const std::stringbuf& stream = output.Listen();
        output.SetHeldLimit(seed % 5 * 10000);
        output.PutInPieces(marks.Arrival(), seed);
        output.CloseDown();
        const Joiner joined(stream.str(), mode == Mode::Completed);
        cuts += joined.cuts;
        aside += joined.aside;
        EXPECT_EQ(joined.elements, WhatTheyMeant(marks));
        if (testing::Test::HasFailure()) break;
    }
    EXPECT_GT(cuts, 1000);
    EXPECT_GT(aside, 100);
}

// What is merged elsewhere is put in order there: buffers hold what came, each context's events in their
// order.
TEST(Parts, OfABufferAreTheEventsAsTheyCame) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        const RandomMarks marks(seed, 40, 2000);
        Output output(seed % 2 == 0 ? Mode::Single : Mode::Completed, Format::Buffer);
        output.OpenStream(nullptr, 0);
        output.SetHeldLimit(seed % 5 * 10000);
        output.PutInPieces(marks.Arrival(), seed);
        output.CloseDown();
        std::map<std::uint64_t, Briefs> written, expected;
        for (const MetricsEvent& event : ReadEvents(*output.FindBuffer(0)))
            written[event.contextId.AsUInt64()].push_back(Brief(event));
        for (const auto& [context, steps] : marks.Steps())
            for (const MetricsEvent& event : steps) expected[context].push_back(Brief(event));
        EXPECT_TRUE(written == expected);
    }
}

// The rows of a table, in any order.
std::multiset<std::string> RowsIn(const std::string& table) {
    std::istringstream lines(table);
    std::multiset<std::string> rows;
    std::string line;
    for (std::getline(lines, line); std::getline(lines, line);) rows.insert(line);
    return rows;
}

// As the XML of each root gives them.
TEST(Completed, RowsComeFromEachRootAlone) {
    const std::string definition = "attr(*,\"id\");v;depth(v):i;nodenum(v):i;path(v)";
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        const RandomMarks marks(seed, 60, 1500);
        std::multiset<std::string> expected;
        for (const std::uint64_t root : marks.Roots())
            expected.merge(
                RowsIn(WrittenBy(Mode::Borrowed, Format::CsvComma, definition, marks.Arrival(), root)));
        EXPECT_EQ(RowsIn(WrittenBy(Mode::Completed, Format::CsvComma, definition, marks.Arrival(), 0)),
                  expected);
        EXPECT_GT(expected.size(), 100U);
    }
}

std::vector<MetricsEvent> Request(std::uint64_t id) {
    return {Create(0, id),      Construct(0, id),    OpenScope(id, "r"),
            Value(id, "n", id), CloseScope(id, "r"), Close(id)};
}

// The rows of what is done are there beside a root that hangs; the groups of a summary are one set.
TEST(Completed, RowsComeAsTheyCompleteAndGroupsAreCommon) {
    for (const auto& [definition, before, after] :
         {std::tuple{"[n]:r.n:i;[rownum]:rownum():i", "n,rownum\n7,1\n2,2\n", "n,rownum\n7,1\n2,2\n8,3\n"},
          std::tuple{"[path]:path(r);[n]:sum(r.n):i", "", "path,n\nr,17\n"}}) {
        Output output(Mode::Completed, Format::CsvComma);
        output.SetRowDefinition(definition);
        const std::stringbuf& written = output.Listen();
        output.Put({Create(0, 1), Construct(0, 1), OpenScope(1, "r"), Value(1, "n", 7)});
        output.Put(Request(2));
        EXPECT_EQ(written.str(), before);
        output.Put({CloseScope(1, "r"), OpenScope(1, "r"), Value(1, "n", 8)});
        output.CloseDown();
        EXPECT_EQ(written.str(), after);
    }
}

// Root 1 hangs at its child 2 while others come and go.
TEST(Valve, OpensInSingleAndTellsWhatWaits) {
    LogKeeper log;
    Output output(Mode::Single, Format::Xml);
    const std::stringbuf& written = output.Listen();
    output.SetHeldLimit(200 << 10);
    output.Put({Create(0, 1), Construct(0, 1), Attribute(1, "a", "b"), OpenScope(1, "hangs"), Create(1, 2),
                Construct(1, 2), OpenScope(2, "child")});
    std::string expected = "<hangs a=\"b\">\n  <child>\n";
    std::uint64_t id = 3;
    Lines told;
    for (; (told = log.Take()).empty(); ++id) {
        ASSERT_EQ(written.str(), expected);
        ASSERT_LT(id, 1000U);
        output.Put(Request(id));
    }
    EXPECT_TRUE(Has(told.front(), " for context 2 to close, which holds root 1;")) << told.front();
    std::string requests;
    for (std::uint64_t one = 3; one < id; ++one)
        requests += "<r>\n  <n>" + std::to_string(one) + "</n>\n</r>\n";
    EXPECT_EQ(written.str(), expected + "  </child>\n</hangs>\n" + requests);
    output.Put(Request(2000));
    output.Put({Value(2, "n", 1), CloseScope(2, "child"), Close(2), CloseScope(1, "hangs"), Close(1)});
    output.CloseDown();
    EXPECT_EQ(written.str(),
              expected + "  </child>\n</hangs>\n" + requests +
                  "<hangs a=\"b\" part=\"2\">\n  <child part=\"2\">\n    <n>1</n>\n  </child>\n"
                  "</hangs>\n<r>\n  <n>2000</n>\n</r>\n");
}

}  // namespace
}  // namespace Metrics
