#include "metrics/rows/ExpressionParser.h"

#include <algorithm>

#include "metrics/RowDefinitionError.h"
#include "metrics/rows/ColumnSpec.h"
#include "metrics/rows/Numbers.h"
#include "metrics/rows/Text.h"

namespace Metrics::detail {
namespace {

// What lies between the quotes of a string literal.
std::string_view LiteralText(std::string_view text) {
    if (text.size() < 2 || text.back() != '"')
        throw RowDefinitionError("Error: mismatched quotes in string literal " + std::string(text));
    return text.substr(1, text.size() - 2);
}

}  // namespace

// Counts one level of recursion, so that a hostile definition cannot use up the stack.
class ExpressionParser::Nesting {
  public:
    explicit Nesting(ExpressionParser& parser) : depth_(parser.depth_) {
        if (++depth_ > kMaxNesting) {
            throw RowDefinitionError("Error: more than " + std::to_string(kMaxNesting) +
                                     " levels of nesting: '" + std::string(parser.column_) + "'");
        }
    }
    ~Nesting() { --depth_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

  private:
    int& depth_;
};

void ExpressionParser::Cursor::SkipBlanks() {
    at = std::min(text.find_first_not_of(" \t", at), text.size());
}

void ExpressionParser::Parse(std::string_view text) {
    if (!IsComputed(text)) return ParseSingle(Trim(text));
    Cursor cursor{text};
    ParseBinary(cursor, 1);
    if (!cursor.AtEnd()) FailSyntax();
}

void ExpressionParser::ParseBinary(Cursor& cursor, int weakest) {
    ParseUnary(cursor);
    for (;;) {
        cursor.SkipBlanks();
        if (cursor.AtEnd() || cursor.At(")")) return;
        const FunctionEntry* op =
            IsOperatorAt(cursor.text, cursor.at) ? FindOperator(cursor.text.substr(cursor.at)) : nullptr;
        if (op == nullptr || op->id == Function::Attribute) FailSyntax();
        const int precedence = PrecedenceOf(op->id);
        if (precedence < weakest) return;
        cursor.at += op->name.size();
        ParseBinary(cursor, precedence + 1);
        Emit({Step::Kind::Scalar, op->id});
    }
}

void ExpressionParser::ParseUnary(Cursor& cursor) {
    const Nesting nesting(*this);
    cursor.SkipBlanks();
    if (cursor.At("--")) {
        cursor.at += 2;
        EmitNumber(0, "0");
        ParseUnary(cursor);
        Emit({Step::Kind::Scalar, Function::Subtract});
    } else if (cursor.At("(")) {
        ++cursor.at;
        ParseBinary(cursor, 1);
        if (!cursor.At(")")) FailSyntax();
        ++cursor.at;
    } else {
        ParsePrimary(cursor);
    }
}

void ExpressionParser::ParsePrimary(Cursor& cursor) {
    const std::size_t start = cursor.at;
    const std::string_view operand = ReadOperand(cursor);
    if (cursor.At("(")) {
        ParseCall(ReadCall(cursor, start, operand));
    } else if (cursor.At("..")) {
        cursor.at += 2;
        AddAttribute(operand, ReadOperand(cursor));
    } else {
        ParseSingle(operand);
    }
}

// Up to the next operator outside quotes. A "*" that the operand begins with is a name.
std::string_view ExpressionParser::ReadOperand(Cursor& cursor) const {
    cursor.SkipBlanks();
    const std::string_view text = cursor.text;
    const std::size_t start = cursor.at;
    if (cursor.At("*")) ++cursor.at;
    while (!cursor.AtEnd()) {
        if (text[cursor.at] == '"') {
            cursor.at = std::min(text.find('"', cursor.at + 1), text.size() - 1);
        } else if (IsOperatorAt(text, cursor.at)) {
            break;
        }
        ++cursor.at;
    }
    return Trim(text.substr(start, cursor.at - start));
}

void ExpressionParser::ParseSingle(std::string_view text) {
    if (LooksLikeNumber(text)) {
        EmitNumber(LeadingReal(text), text);
    } else if (text.starts_with('"')) {
        EmitText(LiteralText(text));
    } else {
        Operand operand;
        operand.path = ParsePath(text);
        EmitOperand(std::move(operand));
    }
}

void ExpressionParser::EmitNumber(double number, std::string_view text) {
    Emit({Step::Kind::Number, Function::End, static_cast<std::uint32_t>(out_.texts.size()), number});
    out_.texts.emplace_back(text);
}

void ExpressionParser::EmitText(std::string_view text) {
    Emit({Step::Kind::Text, Function::End, static_cast<std::uint32_t>(out_.texts.size())});
    out_.texts.emplace_back(text);
}

void ExpressionParser::EmitOperand(Operand operand) {
    Emit({Step::Kind::Operand, Function::End, static_cast<std::uint32_t>(out_.operands.size())});
    out_.operands.push_back(std::move(operand));
}

void ExpressionParser::FailSyntax() const {
    throw RowDefinitionError("Error: syntax error in path: '" + std::string(column_) + "'");
}

Expression ParseExpression(std::string_view text, std::string_view column) {
    Expression expression;
    if (IsComputed(text)) {
        expression.flags = ExprFlags::kComputed;
    } else if (LooksLikeNumber(text)) {
        expression.flags = ExprFlags::kNumber;
    } else if (text.starts_with('"')) {
        expression.flags = ExprFlags::kString;
    }
    ExpressionParser(column, expression).Parse(text);
    const Step& last = expression.program.back();
    switch (last.kind) {
        case Step::Kind::Scalar: expression.result = FunctionOf(last.function).result; break;
        case Step::Kind::Aggregate:
            expression.result = FunctionOf(expression.aggregates[last.index].function).result;
            break;
        case Step::Kind::RowNumber: expression.result = ColumnType::Integer; break;
        case Step::Kind::Operand: {
            const Operand& operand = expression.operands[last.index];
            if (operand.kind == Operand::Kind::Attribute) expression.result = ColumnType::String;
            if (operand.kind == Operand::Kind::Fact) expression.result = FunctionOf(operand.fact).result;
            break;
        }
        case Step::Kind::Number:
        case Step::Kind::Text: break;
    }
    return expression;
}

}  // namespace Metrics::detail
