#include <algorithm>
#include <charconv>

#include "metrics/RowDefinitionError.h"
#include "metrics/rows/ExpressionParser.h"
#include "metrics/rows/Text.h"
#include "metrics/values/XmlName.h"

namespace Metrics::detail {
namespace {

// A number literal of digits only; false for anything else or one that is out of all reason.
bool ReadDigits(std::string_view text, std::uint32_t& value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool IsLiteral(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.find('"', 1) == text.size() - 1;
}

}  // namespace

// The cursor stands on the '(' and is left behind the ')' that belongs to it.
ExpressionParser::Call ExpressionParser::ReadCall(Cursor& cursor, std::size_t nameAt,
                                                  std::string_view name) const {
    Call call{name, {}, {}, nullptr};
    const std::string_view text = cursor.text;
    std::size_t start = cursor.at + 1;
    int depth = 0;
    bool quoted = false;
    for (; !cursor.AtEnd(); ++cursor.at) {
        const char c = text[cursor.at];
        if (c == '"') quoted = !quoted;
        if (quoted) continue;
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (depth != 0 && (c != ',' || depth != 1)) continue;
        call.arguments.push_back(Trim(text.substr(start, cursor.at - start)));
        start = cursor.at + 1;
        if (depth == 0) break;
    }
    if (cursor.AtEnd()) FailSyntax();
    ++cursor.at;
    call.text = Trim(text.substr(nameAt, cursor.at - nameAt));
    if (call.arguments.size() == 1 && call.arguments[0].empty()) call.arguments.clear();
    return call;
}

void ExpressionParser::CheckArity(const Call& call) const {
    using namespace FunctionKind;
    std::size_t count = call.arguments.size();
    if (count == 1 && (call.entry->kind & kSecondDefaults)) count = 2;
    constexpr std::uint32_t kNeeds[] = {kNoArgument, kOneArgument, kTwoArguments};
    if (count < std::size(kNeeds) && (call.entry->kind & kNeeds[count])) return;
    throw RowDefinitionError("Error: wrong number of arguments for function '" + std::string(call.text) +
                             "'");
}

void ExpressionParser::ParseCall(Call call) {
    call.entry = FindFunction(call.name);
    if (call.entry == nullptr)
        throw RowDefinitionError("Error: unrecognized function: '" + std::string(call.name) + "'");
    CheckArity(call);
    const Function id = call.entry->id;
    if (call.entry->kind & FunctionKind::kAggregate) return ParseAggregate(call, id);
    if (id == Function::RowNumber) return Emit({Step::Kind::RowNumber});
    if (call.entry->kind & (FunctionKind::kNode | FunctionKind::kNodeEnd)) return ParseNodeFunction(call);
    if (call.arguments.size() == 1 && id == Function::Min)
        return ParseAggregate(call, Function::AggregateMin);
    if (call.arguments.size() == 1 && id == Function::Max)
        return ParseAggregate(call, Function::AggregateMax);
    ParseArguments(call);
    Emit({Step::Kind::Scalar, id});
}

// Always two: the literal 0 stands where one is not given.
void ExpressionParser::ParseArguments(const Call& call) {
    for (std::size_t i = 0; i < 2; ++i) {
        if (i < call.arguments.size()) {
            Parse(call.arguments[i]);
        } else {
            EmitNumber(0, "0");
        }
    }
}

void ExpressionParser::ParseAggregate(const Call& call, Function function) {
    if (inAggregate_) throw RowDefinitionError("Not supported: an aggregate inside an aggregate.");
    AggregateCall aggregate{function, {}, {}};
    inAggregate_ = true;
    Program* const outer = target_;
    target_ = &aggregate.x;
    Parse(call.arguments[0]);
    if (call.arguments.size() > 1) {
        target_ = &aggregate.y;
        Parse(call.arguments[1]);
    }
    target_ = outer;
    inAggregate_ = false;
    Emit({Step::Kind::Aggregate, function, static_cast<std::uint32_t>(out_.aggregates.size())});
    out_.aggregates.push_back(std::move(aggregate));
}

void ExpressionParser::ParseNodeFunction(const Call& call) {
    const Function id = call.entry->id;
    const std::string_view second = call.arguments.size() > 1 ? call.arguments[1] : "0";
    if (id == Function::Attribute) {
        if (!IsLiteral(second)) {
            throw RowDefinitionError(
                "Syntax error: invalid attribute lookup expression: expected attr(path,\"name\")");
        }
        return AddAttribute(call.arguments[0], second);
    }
    Operand operand{Operand::Kind::Fact, id, 0, {}, PathArgument(call.arguments[0])};
    const bool digits = ReadDigits(second, operand.number);
    const bool fits = id != Function::Scopes || (operand.number >= 1 && operand.number <= kMaxColumns);
    if (!digits || !fits) {
        throw RowDefinitionError("Syntax error: invalid node function: expected " +
                                 std::string(call.entry->name) + "(path,number)");
    }
    EmitOperand(std::move(operand));
}

void ExpressionParser::AddAttribute(std::string_view path, std::string_view name) {
    if (IsLiteral(name)) name = name.substr(1, name.size() - 2);
    EmitOperand({Operand::Kind::Attribute, Function::Attribute, 0, UndoXmlName(name), PathArgument(path)});
}

std::vector<PathName> ExpressionParser::PathArgument(std::string_view text) const {
    if (LooksLikeNumber(text) || text.starts_with('"') || IsComputed(text))
        throw RowDefinitionError("Error: invalid path");
    return ParsePath(text);
}

}  // namespace Metrics::detail
