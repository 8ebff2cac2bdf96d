// Random definitions on random documents: the engine's rows are those of the oracle, whatever the pieces.
#include "tests/rows/RowOracle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "tests/rows/RunRows.h"

namespace {

class OracleSource {
  public:
    explicit OracleSource(unsigned seed) : random_(seed) {}

    std::vector<Column> Columns() {
        std::vector<Column> columns;
        for (std::size_t count = 1 + Below(5); count > 0; --count) {
            Column column;
            if (!columns.empty() && Below(2) == 0) column.path = columns[Below(columns.size())].path;
            if (!column.path.empty()) column.path.resize(Below(column.path.size()));
            for (std::size_t names = Below(12) == 0 ? 0 : 1 + Below(3); names > 0; --names)
                column.path.push_back(Below(8) == 0 && names > 1 ? "*" : Name());
            const std::size_t kind = Below(8);
            if (kind == 5 || kind == 6) column.kind = Column::Kind::Attribute;
            if (kind == 7) column.kind = Below(2) == 0 ? Column::Kind::NodeNumber : Column::Kind::NodeEnd;
            if (column.kind == Column::Kind::NodeEnd) column.above = static_cast<int>(Below(3));
            column.isOptional = kind < 5 && !column.path.empty() && Below(5) == 0;
            column.isFilter = kind < 5 && !column.isOptional && !columns.empty() && Below(10) == 0;
            columns.push_back(column);
        }
        return columns;
    }

    std::unique_ptr<Element> Document() {
        auto document = std::make_unique<Element>();
        elements_ = 0;
        std::size_t left = 2 + Below(24);
        while (left > 0) AddChild(*document, left);
        return document;
    }

  private:
    std::size_t Below(std::size_t limit) { return random_() % limit; }
    std::string Name() { return std::string(1, static_cast<char>('a' + Below(3))); }

    void AddChild(Element& parent, std::size_t& left) {
        --left;
        auto child = std::make_unique<Element>();
        child->parent = &parent;
        child->name = Name();
        child->number = ++elements_;
        if (Below(3) != 0) child->text = std::to_string(++values_);
        if (Below(4) == 0) child->attributes[Column::kAttribute] = std::to_string(++values_);
        while (left > 0 && Below(5) != 0) AddChild(*child, left);
        parent.children.push_back(std::move(child));
    }

    std::mt19937 random_;
    int values_ = 0;
    int elements_ = 0;
};

std::string Definition(const std::vector<Column>& columns) {
    std::string text;
    for (const Column& column : columns) {
        std::string path = column.path.empty() || column.path.front() == "*" ? "*" : "";
        for (const std::string& name : column.path) path += (path.empty() ? "" : ".") + name;
        if (!text.empty()) text += ';';
        if (column.isFilter) text += '#';
        switch (column.kind) {
            case Column::Kind::Text: text += path; break;
            case Column::Kind::Attribute: text += "attr(" + path + ",\"" + Column::kAttribute + "\")"; break;
            case Column::Kind::NodeNumber: text += "nodenum(" + path + ")"; break;
            case Column::Kind::NodeEnd:
                text += "nodeend(" + path + "," + std::to_string(column.above) + ")";
                break;
        }
        if (column.isFilter) text += "%2";
        if (column.isOptional) text += '?';
    }
    return text;
}

void AppendMarkup(std::string& out, const Element& element) {
    if (element.parent != nullptr) {
        out += '<' + element.name;
        for (const auto& [key, value] : element.attributes) out += ' ' + key + "=\"" + value + '"';
        out += '>' + element.text;
    }
    for (const auto& child : element.children) AppendMarkup(out, *child);
    if (element.parent != nullptr) out += "</" + element.name + '>';
}

TEST(RowOracle, TheEngineMakesTheSameRows) {
    const char* const wanted = std::getenv("ROW_ORACLE_SEEDS");
    const unsigned long seeds = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 1200;
    std::size_t lines = 0;
    for (unsigned seed = 0; seed < seeds; ++seed) {
        OracleSource source(seed);
        const std::vector<Column> columns = source.Columns();
        const std::string definition = Definition(columns);
        for (int documents = 0; documents < 3; ++documents) {
            const auto document = source.Document();
            std::string input;
            AppendMarkup(input, *document);
            const std::string rows = RowsOf(columns, *document);
            ASSERT_EQ(RunRows(definition, input, 1 + seed % 50), rows) << "seed " << seed << "\n"
                                                                       << definition << "\n"
                                                                       << input;
            lines += static_cast<std::size_t>(std::count(rows.begin(), rows.end(), '\n'));
        }
    }
    EXPECT_GT(lines, seeds) << "else this shows little";
}

}  // namespace
