#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "metrics/rows/Expression.h"

namespace Metrics::detail {

// Turns the text of one column into a postfix program, by precedence climbing. Lives for one parse.
class ExpressionParser {
  public:
    ExpressionParser(std::string_view column, Expression& out) : column_(column), out_(out) {}

    // The text must be one whole expression; the program gets its steps.
    void Parse(std::string_view text);

  private:
    struct Cursor {
        std::string_view text;
        std::size_t at = 0;

        bool AtEnd() const { return at >= text.size(); }
        bool At(std::string_view what) const { return text.substr(at).starts_with(what); }
        void SkipBlanks();
    };
    struct Call {
        std::string_view name;
        std::string_view text;  // with name and parentheses
        std::vector<std::string_view> arguments;
        const FunctionEntry* entry = nullptr;
    };
    class Nesting;

    void ParseBinary(Cursor& cursor, int weakest);
    void ParseUnary(Cursor& cursor);
    void ParsePrimary(Cursor& cursor);
    std::string_view ReadOperand(Cursor& cursor) const;
    void ParseSingle(std::string_view text);

    Call ReadCall(Cursor& cursor, std::size_t nameAt, std::string_view name) const;
    void CheckArity(const Call& call) const;
    void ParseCall(Call call);
    void ParseArguments(const Call& call);
    void ParseAggregate(const Call& call, Function function);
    void ParseNodeFunction(const Call& call);
    void AddAttribute(std::string_view path, std::string_view name);
    std::vector<PathName> PathArgument(std::string_view text) const;

    void Emit(Step step) { target_->push_back(step); }
    void EmitNumber(double number, std::string_view text);
    void EmitText(std::string_view text);
    void EmitOperand(Operand operand);
    [[noreturn]] void FailSyntax() const;

    std::string_view column_;
    Expression& out_;
    Program* target_ = &out_.program;
    bool inAggregate_ = false;
    int depth_ = 0;
};

}  // namespace Metrics::detail
