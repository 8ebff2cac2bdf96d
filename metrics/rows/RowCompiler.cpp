#include "metrics/rows/RowCompiler.h"

#include <algorithm>
#include <bit>

#include "metrics/RowDefinitionError.h"

namespace Metrics::detail {
namespace {

void CheckModifiers(std::uint32_t flags) {
    using namespace ExprFlags;
    if ((flags & kOptional) && (flags & kComputed)) {
        throw RowDefinitionError("Not supported: Using the optional ('?') modifier on a computed value.");
    }
    if (std::popcount(flags & (kOptional | kFilter | kPrecedence)) > 1) {
        throw RowDefinitionError(
            "Not supported: use of multiple modifiers; choose only one of: optional (?), filter (#), and "
            "precedence (').");
    }
}

bool NeedsNames(Function fact) {
    return fact == Function::Path || fact == Function::PivotPath || fact == Function::Scopes ||
           fact == Function::NodeName;
}

bool HasAggregate(const Program& program) {
    return std::any_of(program.begin(), program.end(),
                       [](const Step& step) { return step.kind == Step::Kind::Aggregate; });
}

}  // namespace

RowCompiler::RowCompiler() {
    row_.nodes.emplace_back();
}

void RowCompiler::CheckParentheses(std::string_view column) const {
    const auto opened = std::count(column.begin(), column.end(), '(');
    const auto closed = std::count(column.begin(), column.end(), ')');
    if (opened == closed) return;
    const char* const which = closed > opened ? ")" : "(";
    throw RowDefinitionError(std::string("Error: unmatched '") + which + "': '" + std::string(column) + "'");
}

void RowCompiler::Add(std::string_view text) {
    CheckParentheses(text);
    ColumnSpec spec = ParseColumnSpec(text);
    if (!spec.error.empty()) throw RowDefinitionError("Syntax error: " + spec.error);
    const ModifiedExpression modified = ReadModifiers(spec.expr);

    CompiledColumn column;
    column.name = spec.name;
    column.type = spec.type;
    column.precision = spec.precision;
    column.flags = spec.parts | modified.flags;
    column.precedence = modified.precedence;
    if (IsComputed(modified.text)) column.flags |= ExprFlags::kComputed;
    CheckModifiers(column.flags);

    Expression expression = ParseExpression(modified.text, text);
    column.flags |= expression.flags;
    if (column.type == ColumnType::None) column.type = expression.result;
    BindExpression(column, expression);
    Classify(column, text);
    fields_ += column.kind == CompiledColumn::Kind::Scopes ? column.scopes : 1;
    if (fields_ > kMaxColumns)
        throw RowDefinitionError("Error: more than " + std::to_string(kMaxColumns) + " columns");
    row_.hasComputed |= (column.flags & ExprFlags::kComputed) != 0;
    row_.hasOptional |= (column.flags & ExprFlags::kOptional) != 0;
    row_.columns.push_back(std::move(column));
}

// scopes() makes several columns and so stands alone; a pivot multiplies lines only where it stands alone.
void RowCompiler::Classify(CompiledColumn& column, std::string_view text) const {
    for (const Step& step : column.program) {
        if (step.kind != Step::Kind::Operand) continue;
        const Operand& what = row_.operands[step.index].what;
        if (what.kind != Operand::Kind::Fact) continue;
        const bool alone = column.program.size() == 1;
        if (what.fact == Function::PivotPath && alone) column.kind = CompiledColumn::Kind::Pivot;
        if (what.fact != Function::Scopes) continue;
        if (!alone || column.IsFilter())
            throw RowDefinitionError("Error: syntax error in path: '" + std::string(text) + "'");
        column.kind = CompiledColumn::Kind::Scopes;
        column.scopes = what.number;
    }
}

void RowCompiler::BindExpression(CompiledColumn& column, Expression& expression) {
    const auto firstText = static_cast<std::uint32_t>(row_.texts.size());
    const auto firstAggregate = static_cast<std::uint32_t>(row_.aggregates.size());
    const auto bind = [&](Program& program) {
        for (Step& step : program) {
            if (step.kind == Step::Kind::Operand) step.index = Bind(expression.operands[step.index]);
            if (step.kind == Step::Kind::Aggregate) step.index += firstAggregate;
            if (step.kind == Step::Kind::Number || step.kind == Step::Kind::Text) step.index += firstText;
        }
    };
    bind(expression.program);
    for (AggregateCall& call : expression.aggregates) {
        bind(call.x);
        bind(call.y);
        AggregateSlot slot{std::move(call), {}};
        for (const Program* argument : {&slot.call.x, &slot.call.y}) {
            for (const Step& step : *argument)
                if (step.kind == Step::Kind::Operand) slot.operands.push_back(step.index);
        }
        row_.aggregates.push_back(std::move(slot));
    }
    std::move(expression.texts.begin(), expression.texts.end(), std::back_inserter(row_.texts));
    column.program = std::move(expression.program);
    column.hasAggregate = HasAggregate(column.program);
    if (!(column.flags & ExprFlags::kOptional)) MarkRequired(column.program);
}

// An attribute cannot be marked optional (it is computed), so it never makes a row incomplete.
void RowCompiler::MarkRequired(const Program& program) {
    for (const Step& step : program) {
        if (step.kind != Step::Kind::Operand) continue;
        RowOperand& operand = row_.operands[step.index];
        operand.required |= operand.what.kind != Operand::Kind::Attribute;
    }
}

std::uint32_t RowCompiler::Bind(const Operand& what) {
    const auto known = std::find_if(row_.operands.begin(), row_.operands.end(),
                                    [&](const RowOperand& operand) { return operand.what == what; });
    if (known != row_.operands.end()) return static_cast<std::uint32_t>(known - row_.operands.begin());
    if (row_.operands.size() >= kMaxOperands)
        throw RowDefinitionError("Error: more than " + std::to_string(kMaxOperands) + " different values");

    RowOperand operand{what, NodeFor(what.path)};
    PatternNode& node = row_.nodes[static_cast<std::size_t>(operand.node)];
    operand.field = static_cast<std::uint32_t>(node.operands.size());
    node.operands.push_back(static_cast<std::uint32_t>(row_.operands.size()));
    node.needsEnd |= !operand.KnownAtOpen();
    node.knowsAtOpen |= operand.KnownAtOpen();
    if (what.kind == Operand::Kind::Text) node.textField = static_cast<int>(operand.field);
    if (what.kind == Operand::Kind::Fact) {
        row_.usesNames |= NeedsNames(what.fact);
        row_.usesLines |= what.fact == Function::LineNumber;
        row_.usesPaths |= (FunctionOf(what.fact).kind & FunctionKind::kPathArgument) != 0;
    }
    row_.usesAttributes |= what.kind == Operand::Kind::Attribute;
    row_.hasNamedPaths |= operand.node != kRoot;
    row_.operands.push_back(std::move(operand));
    return static_cast<std::uint32_t>(row_.operands.size() - 1);
}

int RowCompiler::NodeFor(const std::vector<PathName>& path) {
    int at = kRoot;
    for (const PathName& name : path) {
        const auto& children = row_.nodes[static_cast<std::size_t>(at)].children;
        const auto known = std::find_if(children.begin(), children.end(), [&](int child) {
            return row_.nodes[static_cast<std::size_t>(child)].name == name;
        });
        if (known != children.end()) {
            at = *known;
            continue;
        }
        const int added = static_cast<int>(row_.nodes.size());
        PatternNode node;
        node.name = name;
        node.parent = at;
        node.depth = row_.nodes[static_cast<std::size_t>(at)].depth + 1;
        row_.nodes[static_cast<std::size_t>(at)].children.push_back(added);
        row_.nodes.push_back(std::move(node));
        at = added;
    }
    return at;
}

}  // namespace Metrics::detail
