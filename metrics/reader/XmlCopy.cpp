#include "metrics/reader/XmlCopy.h"

#include "metrics/reader/XmlText.h"

namespace StreamingXml {
namespace {
constexpr std::size_t kBlock = 16384;
}

void XmlCopy::Text(std::string_view piece) {
    if (!Hidden()) Put(piece);
}

void XmlCopy::Tag(std::string_view text, XmlTag::Kind kind, bool leftOut) {
    const bool opens = kind != XmlTag::Kind::End;
    if (opens && leftOut && leftOutDepth_ == 0) leftOutDepth_ = depth_ + 1;
    const bool hidden = Hidden();
    if (!opens && depth_ > 0) --depth_;
    if (!hidden) {
        Put("<");
        Put(text);
        Put(">");
    }
    if (kind == XmlTag::Kind::Start) ++depth_;
    const bool closed = kind != XmlTag::Kind::Start;
    if (closed && depth_ < leftOutDepth_) leftOutDepth_ = 0;
}

void XmlCopy::Put(std::string_view piece) {
    if (layout_.reindent) {
        PutIndented(piece);
    } else {
        block_ += piece;
    }
    if (block_.size() >= kBlock) Flush();
}

void XmlCopy::PutIndented(std::string_view piece) {
    for (const char c : piece) {
        if (c == '\n') {
            atLineStart_ = true;
        } else if (atLineStart_) {
            if (IsBlank(c)) continue;
            block_.append(2 * depth_, ' ');
            atLineStart_ = false;
        }
        block_ += c;
    }
}

void XmlCopy::Flush() {
    out_.write(block_.data(), static_cast<std::streamsize>(block_.size()));
    block_.clear();
}

}  // namespace StreamingXml
