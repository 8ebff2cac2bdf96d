#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "metrics/ColumnType.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/Expression.h"

namespace Metrics::detail {

inline constexpr int kNone = -1;
inline constexpr int kRoot = 0;  // the pattern node of the leading "*"

// What a row asks of the elements that one pattern node matches.
struct RowOperand {
    Operand what;
    int node = kRoot;
    std::uint32_t field = 0;  // its place among the operands of the node
    bool required = false;    // a row without it is never written

    bool KnownAtOpen() const { return what.kind != Operand::Kind::Text && what.fact != Function::NodeEnd; }
};

// The paths of all operands, merged on their common beginnings.
struct PatternNode {
    PathName name;
    int parent = kNone;
    int depth = 0;
    int joint = kNone;  // the joint that this node is, or the nearest above
    bool isJoint = false;
    bool needsEnd = false;      // an operand is known only when the element closes
    bool knowsAtOpen = false;   // an operand is known when it opens
    int textField = kNone;      // its elements' own text, among their fields
    bool soughtAround = false;  // rows of other paths look for its text in the elements around
    std::vector<int> children;
    std::vector<std::uint32_t> operands;
};

// A pattern node whose elements gather rows. Joints stand in an order in which parents come first.
struct Joint {
    int node = kRoot;
    int depth = 0;
    int parent = kNone;          // the next joint up
    int branchInParent = kNone;  // of the parent joint: where this one is
    int branches = 1;            // 0 is what the node itself brings, then its children
    std::vector<int> branchOf;   // of each operand; kNone for one that is not below
    std::vector<std::vector<std::uint32_t>> operandsOf;  // by branch
    // Of the root: the branches of which all is had from inside the elements that they match, so that such
    // elements around go before those inside.
    std::vector<int> labels;
    std::vector<bool> ownPath;     // of each operand: its named node is this joint's or one above it
    std::vector<bool> sharesName;  // of each operand: its path and the joint's begin with the same name
    bool allShareName = false;
};

struct CompiledColumn {
    enum class Kind : std::uint8_t { Value, Scopes, Pivot };

    std::string name;
    ColumnType type = ColumnType::None;
    std::uint32_t precision = 0;
    std::uint32_t flags = 0;  // ExprFlags
    std::uint32_t precedence = 0;
    Kind kind = Kind::Value;
    std::uint32_t scopes = 0;  // of Scopes: how many values are written
    bool hasAggregate = false;
    Program program;

    bool IsFilter() const { return (flags & ExprFlags::kFilter) != 0; }
};

struct AggregateSlot {
    AggregateCall call;
    std::vector<std::uint32_t> operands;  // what the arguments ask for
};

// A whole row definition, ready to run. It does not change after it is built and may be shared by readers.
struct CompiledRow {
    std::vector<CompiledColumn> columns;
    std::vector<RowOperand> operands;
    std::vector<std::string> texts;
    std::vector<AggregateSlot> aggregates;
    std::vector<PatternNode> nodes;
    std::vector<Joint> joints;
    bool hasNamedPaths = false;
    bool usesNames = false;  // a fact needs the names of the open elements
    bool usesPaths = false;
    bool usesLines = false;
    bool usesAttributes = false;
    bool hasComputed = false;
    bool hasOptional = false;

    bool IsSummary() const { return !aggregates.empty(); }
};

}  // namespace Metrics::detail
