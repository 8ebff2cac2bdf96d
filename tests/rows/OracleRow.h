#pragma once

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include "tests/rows/OraclePattern.h"

// A row of the oracle on its way, and where rows wait.
namespace RowRules {

// What an element brings for the operands of one path.
struct Brought {
    const Element* element;
    bool used = false;
};
using Value = std::shared_ptr<Brought>;

struct Cell {
    Value value;
    bool own = false;
    bool settled = false;  // an attribute that is nowhere to be had

    bool Holds() const { return value != nullptr || settled; }
};

struct Row {
    Names origin;  // the path of the joint where it was made
    const Element* at = nullptr;
    Names joint;     // where it is now
    Names cameFrom;  // the branch that handed it up; the joint's own path when none did
    bool outranked = false;
    std::vector<Cell> cells;
};

// What an element that a joint is bound to has gathered. Branches are known by their paths.
struct Place {
    std::map<Names, Value> fresh;  // by branch, the last while no row has been made of it
    std::map<Names, Names> freshPath;
    std::vector<Value> last;  // by operand
    std::list<Row> waiting;
};

inline bool HoldsUnused(const Row& row) {
    return std::any_of(row.cells.begin(), row.cells.end(),
                       [](const Cell& cell) { return cell.own && cell.value && !cell.value->used; });
}

inline bool AnyWaits(const Place& place) {
    return std::any_of(place.waiting.begin(), place.waiting.end(), HoldsUnused);
}

}  // namespace RowRules
