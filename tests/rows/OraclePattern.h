#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tests/rows/RowOracle.h"

// What the oracle knows before it looks for rows: what a definition asks for, and what elements say.
namespace RowRules {

using Kind = Column::Kind;
using Names = std::vector<std::string>;

struct Operand {
    Kind kind;
    Names path;
    int above;
    bool required;
};

bool BeginsWith(const Names& path, const Names& beginning);
// The branch of the joint that the path belongs to; the path itself when it ends there.
Names Branch(const Names& joint, const Names& path);
const Element* Above(const Element* element, std::size_t levels);

// The pattern tree of a definition. Joints and branches are known by their paths.
class Pattern {
  public:
    explicit Pattern(const std::vector<Column>& columns);

    // In the order in which the definition mentions them.
    std::vector<Names> BranchesOf(const Names& joint) const;
    bool IsJoint(const Names& path) const;
    // The next joint above the path, or the path's own; false when there is none.
    bool JointAbove(Names& path) const;
    std::vector<std::size_t> OperandsOf(const Names& branch, const Names& joint) const;
    bool AnyNamed() const;

    std::vector<Operand> operands;
    std::vector<std::size_t> operandOf;  // by column
    std::vector<Names> paths;            // all beginnings of paths
    std::vector<Names> joints;           // the deepest first

  private:
    void AddOperand(const Column& column);
    void FindJoints();
};

// What can be said of elements so far: of those that have closed, everything.
class Facts {
  public:
    // `last`: the number of the last element in it.
    void Close(const Element& element, int last) { ends_[&element] = last; }

    static std::size_t DepthOf(const Element* element);
    // With which element's close the value is known.
    static const Element* EndOf(const Operand& operand, const Element* element);
    bool IsKnown(const Operand& operand, const Element* element) const;
    std::string Text(const Operand& operand, const Element& element) const;

  private:
    std::map<const Element*, int> ends_;
};

}  // namespace RowRules
