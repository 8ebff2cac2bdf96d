#include "metrics/rows/Functions.h"

#include <algorithm>
#include <iterator>

#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

using enum ColumnType;

// The order counts: of entries with one name or one number the first is found.
constexpr FunctionEntry kFunctions[] = {
    {"(end)", Function::End, None, 0x10},
    {"+", Function::Add, Real, 0x8},
    {"--", Function::Subtract, Real, 0x8},
    {"*", Function::Multiply, Real, 0x8},
    {"/", Function::Divide, Real, 0x8},
    {"%", Function::Remainder, Real, 0x8},
    {"sqrt", Function::Sqrt, Real, 0x2},
    {"pow", Function::Pow, Real, 0x4},
    {"abs", Function::Abs, Real, 0x2},
    {"||", Function::Or, Boolean, 0x848},
    {"&&", Function::And, Boolean, 0x848},
    {"exp", Function::Exp, Real, 0x2},
    {"min", Function::Min, Real, 0x6},
    {"max", Function::Max, Real, 0x6},
    {"log", Function::Log, Real, 0x6},
    {"round", Function::Round, Real, 0x6},
    {"floor", Function::Floor, Real, 0x2},
    {"ceil", Function::Ceil, Real, 0x2},
    {"pi", Function::Pi, Real, 0x1},
    {"e", Function::E, Real, 0x1},
    {"==", Function::Equal, Boolean, 0x828},
    {"!=", Function::NotEqual, Boolean, 0x828},
    {"<>", Function::NotEqual, Boolean, 0x828},
    {"<=", Function::LessEqual, Boolean, 0x828},
    {">=", Function::GreaterEqual, Boolean, 0x828},
    {"<", Function::Less, Boolean, 0x828},
    {">", Function::Greater, Boolean, 0x828},
    {"sum", Function::Sum, Real, 0x82},
    {"avg", Function::Mean, Real, 0x82},
    {"min", Function::AggregateMin, Real, 0x82},
    {"max", Function::AggregateMax, Real, 0x82},
    {"mean", Function::Mean, Real, 0x82},
    {"var", Function::Variance, Real, 0x82},
    {"cov", Function::Covariance, Real, 0x84},
    {"corr", Function::Correlation, Real, 0x84},
    {"stdev", Function::Deviation, Real, 0x82},
    {"count", Function::Count, Integer, 0x82},
    {"id", Function::Id, String, 0xD02},
    {"path", Function::Path, String, 0xD02},
    {"pivotpath", Function::PivotPath, String, 0xD02},
    {"scopes", Function::Scopes, String, 0xD04},
    {"nodename", Function::NodeName, String, 0x1D04},
    {"nodenum", Function::NodeNumber, Integer, 0x1504},
    {"nodestart", Function::NodeNumber, Integer, 0x1504},
    {"nodeend", Function::NodeEnd, Integer, 0x1604},
    {"depth", Function::Depth, Integer, 0x502},
    {"linenum", Function::LineNumber, Integer, 0x102},
    {"rownum", Function::RowNumber, Integer, 0x101},
    {"attr", Function::Attribute, String, 0xD04},
    {"..", Function::Attribute, String, 0xD08},
};

}  // namespace

const FunctionEntry* FindFunction(std::string_view name) {
    const auto found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                    [&](const auto& entry) { return EqualIgnoringCase(entry.name, name); });
    return found == std::end(kFunctions) ? nullptr : found;
}

const FunctionEntry* FindOperator(std::string_view text) {
    const FunctionEntry* best = nullptr;
    for (const FunctionEntry& entry : kFunctions) {
        if (!(entry.kind & FunctionKind::kInfix) || !text.starts_with(entry.name)) continue;
        if (best == nullptr || entry.name.size() > best->name.size()) best = &entry;
    }
    return best;
}

const FunctionEntry& FunctionOf(Function id) {
    return *std::find_if(std::begin(kFunctions), std::end(kFunctions),
                         [&](const auto& entry) { return entry.id == id; });
}

int PrecedenceOf(Function op) {
    switch (op) {
        case Function::Or: return 1;
        case Function::And: return 2;
        case Function::Add:
        case Function::Subtract: return 4;
        case Function::Multiply:
        case Function::Divide:
        case Function::Remainder: return 5;
        default: return 3;  // the comparisons
    }
}

}  // namespace Metrics::detail
