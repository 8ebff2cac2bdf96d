#include "tests/rows/RowCases.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "metrics/Csv.h"
#include "metrics/XmlParser.h"

namespace {

std::string* PartOf(RowCase& test, const std::string& name) {
    if (name == "definition") return &test.definition;
    if (name == "input") return &test.input;
    if (name == "rows" || name == "table") return &test.output;
    if (name == "error") return &test.error;
    if (name == "results") return &test.results;
    if (name == "errors") return &test.errors;
    throw std::runtime_error("unknown part: " + name);
}

// Calls `add` with both sides of each line "expression => result".
template <class Add>
void ForEachLine(const std::string& table, Add add) {
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t arrow = line.find(" => ");
        if (arrow == std::string::npos) throw std::runtime_error("no arrow: " + line);
        add(line.substr(0, arrow), line.substr(arrow + 4));
    }
}

// An expression of literals alone makes no row, so that another column has to.
void Expand(const RowCase& table, std::vector<RowCase>& cases) {
    ForEachLine(table.results, [&](const std::string& expression, const std::string& result) {
        cases.push_back({expression, "v.a;[r]:" + expression, table.input, "7," + result + '\n'});
    });
    ForEachLine(table.errors, [&](const std::string& definition, const std::string& message) {
        cases.push_back({definition, definition, table.input, {}, message});
    });
}

std::string Header(StreamingXml::XmlParser& parser) {
    std::ostringstream line;
    Metrics::WriteCsvHeader(parser, line, ',', parser.IsSummary());
    return line.str();
}

}  // namespace

std::vector<RowCase> ReadCases(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + file);
    std::vector<RowCase> cases;
    std::string* part = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("== ")) {
            // The empty line before a case is no part of the one before.
            if (part != nullptr && part->ends_with('\n')) part->pop_back();
            cases.push_back({line.substr(3)});
            part = nullptr;
        } else if (line.starts_with("--- ") && !cases.empty()) {
            part = PartOf(cases.back(), line.substr(4));
            if (line == "--- table") cases.back().withHeader = true;
        } else if (part != nullptr) {
            *part += line + '\n';
        }
    }
    std::vector<RowCase> all;
    for (RowCase& test : cases) {
        if (!test.error.empty()) test.error.pop_back();
        Expand(test, all);
        if (!test.definition.empty()) all.push_back(std::move(test));
    }
    return all;
}

RowOutcome RunRows(const std::string& definition, const std::string& input, std::size_t chunk,
                   bool withHeader) {
    RowOutcome outcome;
    StreamingXml::XmlParser parser(
        [&](StreamingXml::XmlParser& row) { row.AppendRow(outcome.output, ',', row.IsSummary()); });
    try {
        parser.Compile(definition);
        if (withHeader) outcome.output += Header(parser);
        const std::string_view all = input;
        const std::size_t step = chunk == 0 ? std::max<std::size_t>(all.size(), 1) : chunk;
        for (std::size_t at = 0; at < all.size(); at += step) {
            // A copy of its own, so that reading past its end is seen.
            const std::vector<char> piece(
                all.begin() + static_cast<std::ptrdiff_t>(at),
                all.begin() + static_cast<std::ptrdiff_t>(std::min(at + step, all.size())));
            parser.Feed({piece.data(), piece.size()});
        }
        parser.End();
    } catch (const Metrics::RowDefinitionError& error) {
        outcome.error = error.what();
    }
    return outcome;
}
