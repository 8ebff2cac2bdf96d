#pragma once

#include <string_view>

#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/CompiledRow.h"

namespace Metrics::detail {

inline constexpr std::size_t kMaxOperands = 4096;

// Builds a row column by column.
class RowCompiler {
  public:
    RowCompiler();

    // Throws RowDefinitionError; the columns before stay.
    void Add(std::string_view column);
    CompiledRow Finish();

  private:
    void CheckParentheses(std::string_view column) const;
    std::uint32_t Bind(const Operand& operand);
    int NodeFor(const std::vector<PathName>& path);
    void BindExpression(CompiledColumn& column, Expression& expression);
    void MarkRequired(const Program& program);
    void Classify(CompiledColumn& column, std::string_view text) const;
    void FindJoints();
    void DescribeJoint(int node);

    CompiledRow row_;
    std::uint32_t fields_ = 0;  // written columns, those of scopes() counted one by one
};

}  // namespace Metrics::detail
