#include "metrics/rows/Numbers.h"
#include "metrics/rows/RowEngine.h"

namespace Metrics::detail {
namespace {

// A name that could be taken for more than one stands in quotes.
void AppendName(std::string& out, std::string_view name) {
    if (name.find_first_of(".\"") == std::string_view::npos) {
        out += name;
        return;
    }
    out += '"';
    for (const char c : name) out.append(c == '"' ? 2 : 1, c);
    out += '"';
}

}  // namespace

std::string_view RowEngine::NameAt(std::size_t level) const {
    const std::size_t start = frames_[level].nameStart;
    const std::size_t end = level < depth_ ? frames_[level + 1].nameStart : names_.size();
    return std::string_view(names_).substr(start, end - start);
}

void RowEngine::AppendPath(std::string& out) const {
    for (std::size_t level = 1; level <= depth_; ++level) {
        if (level > 1) out += '.';
        AppendName(out, NameAt(level));
    }
}

void RowEngine::AppendIds(std::string& out) const {
    for (std::size_t level = 1; level <= depth_; ++level) {
        if (level > 1) out += '.';
        AppendInteger(out, static_cast<std::int64_t>(frames_[level].number));
    }
}

void RowEngine::AppendFact(const Operand& what, std::string& out) const {
    // The implicit root, which stands for everything above the top, has number 0 and no name.
    const std::size_t level = Depth() - std::min<std::size_t>(what.number, Depth());
    const auto number = [&](std::uint64_t value) { AppendInteger(out, static_cast<std::int64_t>(value)); };
    switch (what.fact) {
        case Function::Path:
        case Function::PivotPath:
        case Function::Scopes: return AppendPath(out);
        case Function::Id: return AppendIds(out);
        case Function::Depth: return number(Depth());
        case Function::LineNumber: return number(Innermost().line);
        case Function::NodeNumber: return number(frames_[level].number);
        case Function::NodeName: out += NameAt(level); return;
        default: return;
    }
}

}  // namespace Metrics::detail
