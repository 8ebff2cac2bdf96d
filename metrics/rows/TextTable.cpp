#include "metrics/rows/TextTable.h"

#include <ostream>

#include "metrics/values/ValueText.h"

namespace Metrics::detail {
namespace {

constexpr std::size_t kBlock = 16384;            // there may be ten thousand tables
constexpr std::size_t kLongestPlainName = 1024;  // well below what a tag may have

CompiledRow Compiled(const std::vector<std::string>& columns) {
    CompiledRow row;
    CompileRow(columns, row);
    return row;
}

}  // namespace

TextTable::TextTable(std::ostream& out, char separator, const std::vector<std::string>& columns)
    : out_(out),
      separator_(separator),
      row_(Compiled(columns)),
      reader_(row_, [this] { AppendCurrentRow(); }),
      scanner_(reader_.Engine()) {
    if (row_.usesLines) scanner_.GiveLines();
}

std::vector<StreamingXml::XmlColumnInfo> TextTable::Columns() const {
    return ListColumns(row_, row_.IsSummary());
}

void TextTable::Begin() {
    if (row_.IsSummary()) return;
    AppendHeader(lines_, Columns(), separator_);
    Flush();
}

void TextTable::Write(const MetricsEvent& event) {
    if (ended_) return;
    try {
        switch (event.Type()) {
            case MetricsEventType::ScopeOpen: return OpenScope(event);
            case MetricsEventType::ScopeClose:
                attributes_.Clear();
                if (openScopes_ > 0) CloseScope(NameOf(event));
                return;
            case MetricsEventType::ScopeValue: return WriteValue(NameOf(event), event.param2);
            case MetricsEventType::NameValue: return AddAttribute(event);
            case MetricsEventType::DemuxSynthesized: return ForceClose(event);
            default: return;
        }
    } catch (...) {
        ended_ = true;
        Flush();  // the rows before it count
        throw;
    }
}

void TextTable::End() {
    if (ended_) return;
    ended_ = true;
    if (row_.IsSummary()) AppendHeader(lines_, Columns(), separator_);
    reader_.Finish();
    Flush();
    scanner_.End();
}

std::string_view TextTable::NameOf(const MetricsEvent& event) {
    name_.Clear();
    AppendText(name_, event.param1, 0, times_);
    return name_.View();
}

// Whether the name, as a tag, is read as that name. Only while no odd name has left the scanner inside a tag.
bool TextTable::IsPlain(std::string_view name) const {
    if (!scanner_.InText() || name.size() > kLongestPlainName) return false;
    if (name.starts_with('!') || name.starts_with('?')) return false;
    return name.find_first_of(" \t\r\n<>/=\"'") == name.npos;
}

void TextTable::OpenScope(const MetricsEvent& event) {
    const std::string_view name = NameOf(event);
    Indent();
    if (openScopes_ == scopes_.size()) scopes_.emplace_back();
    scopes_[openScopes_++] = name;
    if (attributes_.Size() == 0 && IsPlain(name)) {
        reader_.Engine().OpenElement(name, {}, Line());
    } else {
        markup_ = "<";
        markup_ += name;
        markup_ += attributes_.View();
        markup_ += '>';
        FeedMarkup();
    }
    EndLine();
    attributes_.Clear();
}

void TextTable::CloseScope(std::string_view name) {
    --openScopes_;
    Indent();
    if (IsPlain(name) && reader_.Engine().Depth() > 0) {
        reader_.Engine().CloseElement();
    } else {
        markup_ = "</";
        markup_ += name;
        markup_ += '>';
        FeedMarkup();
    }
    EndLine();
}

void TextTable::WriteValue(std::string_view name, const MetricsValue& value) {
    RowEngine& engine = reader_.Engine();
    Indent();
    if (IsPlain(name)) {
        engine.OpenElement(name, {}, Line());
        if (engine.WantsText()) {
            text_.Clear();
            AppendText(text_, value, MetricsValue::XmlEscape, times_);
            engine.Text(text_.View());
        }
        engine.CloseElement();
    } else {
        text_.Clear();
        AppendText(text_, value, MetricsValue::XmlEscape, times_);
        markup_ = "<";
        markup_ += name;
        markup_ += '>';
        markup_ += text_.View();
        markup_ += "</";
        markup_ += name;
        markup_ += '>';
        FeedMarkup();
    }
    EndLine();
}

void TextTable::AddAttribute(const MetricsEvent& event) {
    attributes_.Append(' ');
    AppendText(attributes_, event.param1, 0, times_);
    attributes_.Append('=');
    AppendText(attributes_, event.param2, MetricsValue::XmlEscape | MetricsValue::AlwaysQuote, times_);
}

void TextTable::ForceClose(const MetricsEvent& event) {
    attributes_.Clear();
    const auto depth = static_cast<std::int32_t>(event.param1.AsInt64());
    if (depth <= 0) return;
    WriteValue("ForceCloseContextDepth", depth);
    for (std::int32_t closed = 0; closed < depth && openScopes_ > 0; ++closed)
        CloseScope(scopes_[openScopes_ - 1]);
}

// The blanks and line ends of the XML are text of whatever is open, should a column want that.
void TextTable::Indent() {
    if (!scanner_.InText() || reader_.Engine().WantsText()) {
        markup_.assign(2 * openScopes_, ' ');
        FeedMarkup();
    }
}

void TextTable::EndLine() {
    if (!scanner_.InText() || reader_.Engine().WantsText()) {
        markup_ = "\n";
        FeedMarkup();
    } else if (row_.usesLines) {
        scanner_.Lines().SkipLines(1);
    }
}

void TextTable::FeedMarkup() {
    scanner_.Feed(markup_);
}

std::uint64_t TextTable::Line() {
    return row_.usesLines ? scanner_.Lines().Here().line : 0;
}

void TextTable::AppendCurrentRow() {
    reader_.AppendCurrent(lines_, separator_, true);
    if (lines_.size() >= kBlock) WriteLines();
}

void TextTable::WriteLines() {
    out_.write(lines_.data(), static_cast<std::streamsize>(lines_.size()));
    lines_.clear();
}

void TextTable::Flush() {
    if (lines_.empty()) return;
    WriteLines();
    out_.flush();
}

}  // namespace Metrics::detail
