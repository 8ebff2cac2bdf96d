#pragma once

#include <string>
#include <vector>

// Language tests are data. A file holds cases, each like this:
//
//     == what it shows
//     --- definition
//     time.elapsed
//     --- input
//     <s><time><elapsed>1</elapsed></time></s>
//     --- rows
//     1
//
// "--- table" instead of "--- rows" expects the header line too. "--- error" holds the message of what is
// thrown, after the rows when it comes with rows. What stands before the first case is comment.
//
// Many expressions are one case with the parts "results" or "errors" instead: lines "expression => result"
// and "definition => message". Their input is an element v with an a of 7.
struct RowCase {
    std::string title;
    std::string definition = {};
    std::string input = {};
    std::string output = {};
    std::string error = {};
    bool withHeader = false;
    std::string results = {};
    std::string errors = {};
};

std::vector<RowCase> ReadCases(const std::string& file);

// What came of reading a text with a definition.
struct RowOutcome {
    std::string output;
    std::string error;
};

// `chunk` bytes at a time; 0 feeds everything at once.
RowOutcome RunRows(const std::string& definition, const std::string& input, std::size_t chunk = 0,
                   bool withHeader = false);
