#include "metrics/reader/XmlScanner.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "metrics/RowDefinitionError.h"
#include "metrics/reader/ByteSearch.h"
#include "metrics/reader/XmlCopy.h"
#include "metrics/reader/XmlText.h"

namespace StreamingXml {
namespace {

constexpr std::ptrdiff_t kLongestPlainTag = 1000;

// Characters that mean nothing but themselves in a tag.
constexpr std::array<bool, 256> kIsPlain = [] {
    std::array<bool, 256> plain{};
    plain.fill(true);
    for (const char c : {' ', '\t', '\r', '\n', '/', '=', '"', '\'', '!', '?', '>'})
        plain[static_cast<unsigned char>(c)] = false;
    return plain;
}();

std::string_view Piece(const char* at, const char* end) {
    return {at, static_cast<std::size_t>(end - at)};
}

const char* SkipPlain(const char* at, const char* end) {
    at += LettersAt(Piece(at, end));
    while (at != end && kIsPlain[static_cast<unsigned char>(*at)]) ++at;
    return at;
}

}  // namespace

void XmlScanner::Feed(std::string_view bytes) {
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    counted_ = at;
    tagStart_ = nullptr;
    try {
        while (at != end && !stopped_) at = Scan(at, end);
    } catch (...) {
        NoteTagPosition();
        throw;
    }
    NoteTagPosition();
    tagStart_ = nullptr;
    if (trackLines_) CountTo(end);
}

const char* XmlScanner::Scan(const char* at, const char* end) {
    switch (mode_) {
        case Mode::Text: return ScanText(at, end);
        case Mode::TagStart: return ScanTagStart(at);
        case Mode::Tag: return ScanTag(at, end);
        case Mode::Declaration: return ScanDeclaration(at);
        case Mode::Comment: return ScanUntil("-->", at, end);
        case Mode::Instruction: return ScanUntil("?>", at, end);
        case Mode::CData: return ScanCData(at, end);
        case Mode::DocType: return ScanDocType(at, end);
    }
    return end;
}

inline void XmlScanner::CheckInterrupt() {
    if (interrupt_ != nullptr && interrupt_->load(std::memory_order_relaxed)) stopped_ = true;
}

// Nearly all tags are as an XML writer makes them, and are whole: no need for the long way. Null when this is
// not one of them.
inline const char* XmlScanner::ScanPlainTag(const char* at, const char* end) {
    if (at == end || copy_ != nullptr) return nullptr;
    const char* const close = SkipPlain(*at == '/' ? at + 1 : at, end);
    if (close == end || close - at > kLongestPlainTag) return nullptr;
    if (*close != '>') return ScanPlainAttributes(at, close, end);
    if (*at != '/') {
        handler_.OpenElement(Piece(at, close), {}, giveLines_ ? tagPosition_.line : 0);
    } else if (!handler_.CloseElement()) {
        FailTag(Piece(at, close));
    }
    CheckInterrupt();
    return close + 1;
}

// The rest of a start tag whose name is followed by attributes, each behind one blank and in double quotes,
// by the slash of an empty element, or by both.
const char* XmlScanner::ScanPlainAttributes(const char* at, const char* close, const char* end) {
    if (*at == '/' || close == at) return nullptr;
    tag_.name = Piece(at, close);
    tag_.attributes.clear();
    while (*close == ' ') {
        const char* const equals = SkipPlain(close + 1, end);
        if (end - equals < 3 || equals[0] != '=' || equals[1] != '"') return nullptr;
        const char* const quote = FindNear('"', equals + 2, end);
        if (end - quote < 3) return nullptr;
        tag_.attributes.push_back({Piece(close + 1, equals), Piece(equals + 2, quote)});
        close = quote + 1;
    }
    const bool isEmpty = *close == '/';
    if (isEmpty) ++close;
    if (close == end || *close != '>' || close - at > kLongestPlainTag) return nullptr;
    handler_.OpenElement(tag_.name, tag_.attributes, giveLines_ ? tagPosition_.line : 0);
    if (isEmpty) handler_.CloseElement();
    CheckInterrupt();
    return close + 1;
}

const char* XmlScanner::ScanText(const char* at, const char* end) {
    for (;;) {
        const char* const open = FindNear('<', at, end);
        if (open != at) GiveText(Piece(at, open));
        if (open == end) return end;
        tagStart_ = open;
        if (giveLines_) NoteTagPosition();
        const char* const behind = ScanPlainTag(open + 1, end);
        if (behind == nullptr) {
            mode_ = Mode::TagStart;
            buffer_.clear();
            quote_ = last_ = '\0';
            return open + 1;
        }
        at = behind;
        if (stopped_) return at;
    }
}

const char* XmlScanner::ScanTagStart(const char* at) {
    mode_ = Mode::Tag;
    if (*at == '!') mode_ = Mode::Declaration;
    if (*at != '?') return at;
    buffer_ = "?";
    EnterMarkup(Mode::Instruction);
    tail_[1] = '?';  // "<?>" is finished
    return at + 1;
}

// The bytes are looked at once, however often the tag is interrupted: quote_ and last_ say where it stands.
const char* XmlScanner::FindTagEnd(const char* at, const char* end) {
    for (; at != end; ++at) {
        const char c = *at;
        if (quote_ != '\0') {
            at = Find(quote_, at, end);
            last_ = quote_;
            if (at == end) return end;
            quote_ = '\0';
        } else if (c == '>') {
            return at;
        } else if ((c == '"' || c == '\'') && last_ == '=') {
            quote_ = c;
        } else if (!IsBlank(c)) {
            while (at + 1 != end && kIsPlain[static_cast<unsigned char>(at[1])]) ++at;
            last_ = *at;
        }
    }
    return end;
}

const char* XmlScanner::ScanTag(const char* at, const char* end) {
    const char* const close = FindTagEnd(at, end);
    const std::size_t length = buffer_.size() + static_cast<std::size_t>(close - at);
    if (length + (close == end ? 1 : 2) > kCapacity) {
        throw Metrics::RowDefinitionError("Error: either input is not an XML file or an XML tag exceeds " +
                                          std::to_string(kCapacity) + " characters.");
    }
    if (close == end || !buffer_.empty()) buffer_.append(at, close);
    if (close == end) return end;
    mode_ = Mode::Text;
    HandleTag(buffer_.empty() ? Piece(at, close) : std::string_view(buffer_));
    buffer_.clear();
    return close + 1;
}

void XmlScanner::HandleTag(std::string_view text) {
    if (!tag_.Parse(text)) FailTag(text);
    const bool closes = tag_.kind != XmlTag::Kind::Start;
    if (tag_.kind != XmlTag::Kind::End)
        handler_.OpenElement(tag_.name, tag_.attributes, giveLines_ ? tagPosition_.line : 0);
    if (copy_ != nullptr) copy_->Tag(text, tag_.kind, handler_.LeavesOut());
    if (closes && !handler_.CloseElement()) FailTag(text);
    CheckInterrupt();
}

void XmlScanner::GiveText(std::string_view piece) {
    if (handler_.WantsText()) handler_.Text(piece);
    if (copy_ != nullptr) copy_->Text(piece);
}

// A tag that began in an earlier piece has its position already.
void XmlScanner::NoteTagPosition() {
    if (!trackLines_ || tagStart_ == nullptr) return;
    CountTo(tagStart_);
    tagPosition_ = lines_.Here();
}

void XmlScanner::CountTo(const char* at) {
    if (at > counted_) lines_.Count(Piece(counted_, at));
    counted_ = std::max(counted_, at);
}

void XmlScanner::FailTag(std::string_view text) const {
    throw Metrics::RowDefinitionError("Error: invalid XML tag: " + std::string(text));
}

void XmlScanner::End() const {
    if (mode_ == Mode::Text || stopped_) return;
    const std::string_view unfinished = TrimBlanks(buffer_);
    // A quote that nothing closes has swallowed what follows: the tag ended at the first '>' after all.
    FailTag(quote_ == '\0' ? unfinished : unfinished.substr(0, unfinished.find('>')));
}

}  // namespace StreamingXml
