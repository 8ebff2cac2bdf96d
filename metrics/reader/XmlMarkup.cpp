// What the scanner reads past: comments, processing instructions, CDATA and document types. None of it is
// limited in length, and a piece may end anywhere in it.
#include <algorithm>
#include <cstring>

#include "metrics/reader/ByteSearch.h"
#include "metrics/reader/XmlCopy.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/reader/XmlText.h"

namespace StreamingXml {
namespace {

constexpr std::string_view kComment = "!--";
constexpr std::string_view kCData = "![CDATA[";
constexpr char kInComment = '-';  // in quote_, inside a document type

}  // namespace

// What "<!" begins shows after at most eight characters.
const char* XmlScanner::ScanDeclaration(const char* at) {
    buffer_ += *at;
    if (buffer_ == kComment) {
        EnterMarkup(Mode::Comment);
    } else if (buffer_ == kCData) {
        EnterMarkup(Mode::CData);
    } else if (!kComment.starts_with(buffer_) && !kCData.starts_with(buffer_)) {
        buffer_.pop_back();
        EnterMarkup(Mode::DocType);
        return at;
    }
    return at + 1;
}

void XmlScanner::EnterMarkup(Mode mode) {
    mode_ = mode;
    brackets_ = 0;
    tail_[0] = tail_[1] = '\0';
    if (copy_ != nullptr) copy_->Text("<" + buffer_);
}

char XmlScanner::Before(const char* at, const char* start, std::ptrdiff_t back) const {
    return at - start >= back ? at[-back] : tail_[2 - (back - (at - start))];
}

void XmlScanner::Remember(const char* at, const char* end) {
    if (at == end) return;
    tail_[0] = Before(end, at, 2);
    tail_[1] = end[-1];
}

void XmlScanner::CopySkipped(const char* at, const char* end) {
    if (copy_ != nullptr) copy_->Text({at, static_cast<std::size_t>(end - at)});
}

const char* XmlScanner::ScanUntil(std::string_view terminator, const char* start, const char* end) {
    for (const char* at = start;; ++at) {
        at = Find('>', at, end);
        if (at == end) break;
        const bool two = terminator.size() < 3 || Before(at, start, 2) == terminator[0];
        if (!two || Before(at, start, 1) != terminator[terminator.size() - 2]) continue;
        mode_ = Mode::Text;
        CopySkipped(start, at + 1);
        return at + 1;
    }
    CopySkipped(start, end);
    Remember(start, end);
    return end;
}

// A ']' is held back until it is known whether "]]>" comes of it.
const char* XmlScanner::ScanCData(const char* at, const char* end) {
    if (brackets_ == 0) {
        const char* const bracket = Find(']', at, end);
        if (bracket != at) GiveLiteral({at, static_cast<std::size_t>(bracket - at)});
        if (bracket == end) return end;
        brackets_ = 1;
        return bracket + 1;
    }
    if (*at == ']') {
        if (brackets_ == 2) GiveLiteral("]");
        brackets_ = 2;
        return at + 1;
    }
    if (*at == '>' && brackets_ == 2) {
        mode_ = Mode::Text;
        if (copy_ != nullptr) copy_->Text("]]>");
        return at + 1;
    }
    GiveLiteral(brackets_ == 2 ? "]]" : "]");
    brackets_ = 0;
    return at;
}

void XmlScanner::GiveLiteral(std::string_view piece) {
    if (copy_ != nullptr) copy_->Text(piece);
    if (!handler_.WantsText()) return;
    literal_.clear();
    AppendEscaped(literal_, piece);
    handler_.Text(literal_);
}

// Ends at the '>' outside quotes, comments and the internal subset's brackets.
const char* XmlScanner::ScanDocType(const char* start, const char* end) {
    const char* at = start;
    for (; at != end && mode_ == Mode::DocType; ++at) {
        const char c = *at;
        const bool dashes = Before(at, start, 1) == '-' && Before(at, start, 2) == '-';
        if (quote_ == kInComment) {
            if (c == '>' && dashes) quote_ = '\0';
        } else if (quote_ != '\0') {
            if (c == quote_) quote_ = '\0';
        } else if (c == '-' && Before(at, start, 1) == '-' && Before(at, start, 2) == '!') {
            quote_ = kInComment;
        } else if (c == '"' || c == '\'') {
            quote_ = c;
        } else if (c == '[' || c == ']') {
            brackets_ += c == '[' ? 1 : -1;
        } else if (c == '>' && brackets_ <= 0) {
            mode_ = Mode::Text;
        }
    }
    CopySkipped(start, at);
    Remember(start, at);
    quote_ = mode_ == Mode::Text ? '\0' : quote_;
    return at;
}

}  // namespace StreamingXml
