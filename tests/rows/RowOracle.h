#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

// The rules by which rows are made, once more: slow, over a whole document, and written from what the rules
// say rather than from how the engine works, so that the two can be held against each other.

struct Element {
    std::string name;  // empty in the implicit root
    std::map<std::string, std::string> attributes;
    std::string text;
    std::vector<std::unique_ptr<Element>> children;
    const Element* parent = nullptr;
    int number = 0;
};

struct Column {
    enum class Kind { Text, Attribute, NodeNumber, NodeEnd };

    Kind kind = Kind::Text;
    std::vector<std::string> path;  // without the leading "*"; "*" is any name
    int above = 0;                  // the second argument of NodeEnd
    bool isOptional = false;
    bool isFilter = false;  // lets odd numbers through

    static constexpr const char* kAttribute = "k";
};

// The lines that a table of the document has, without its header.
std::string RowsOf(const std::vector<Column>& columns, const Element& document);
