#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "metrics/reader/LineCounter.h"
#include "metrics/reader/XmlHandler.h"
#include "metrics/reader/XmlTag.h"

namespace StreamingXml {

class XmlCopy;

// Finds the tags and the text of XML that arrives in pieces of any size, without building anything: the time
// is linear in the bytes however they are cut, and no more than one unfinished tag is kept. Throws
// Metrics::RowDefinitionError for what cannot be read, and is then of no further use.
class XmlScanner {
  public:
    static constexpr std::size_t kCapacity = 65536;  // of one tag, its brackets included

    explicit XmlScanner(XmlHandler& handler) : handler_(handler) {}

    void Feed(std::string_view bytes);
    // Nothing follows. Throws when the input ends inside a tag.
    void End() const;

    // What is fed from now on is ignored.
    void Stop() { stopped_ = true; }
    bool Stopped() const { return stopped_; }

    // Passes lines to the handler. Costs a look at every byte, so only on demand.
    void GiveLines() { giveLines_ = trackLines_ = true; }
    // Counts lines for TagPosition() only, which is cheaper.
    void TrackLines() { trackLines_ = true; }
    LineCounter& Lines() { return lines_; }
    // Of the last tag; meaningful inside the handler's calls and after an error, when lines are tracked.
    Position TagPosition() {
        NoteTagPosition();
        return tagPosition_;
    }

    // What is read is also given to `copy`, which must live as long.
    void SetCopy(XmlCopy* copy) { copy_ = copy; }
    // After each tag, input stops when the flag is up.
    void SetInterrupt(const std::atomic<bool>* flag) { interrupt_ = flag; }

  private:
    enum class Mode { Text, TagStart, Tag, Declaration, Comment, Instruction, CData, DocType };

    const char* Scan(const char* at, const char* end);
    const char* ScanText(const char* at, const char* end);
    const char* ScanPlainTag(const char* at, const char* end);
    const char* ScanPlainAttributes(const char* at, const char* close, const char* end);
    const char* ScanTagStart(const char* at);
    const char* ScanTag(const char* at, const char* end);
    const char* ScanDeclaration(const char* at);
    const char* ScanUntil(std::string_view terminator, const char* at, const char* end);
    const char* ScanCData(const char* at, const char* end);
    const char* ScanDocType(const char* at, const char* end);
    const char* FindTagEnd(const char* at, const char* end);
    void EnterMarkup(Mode mode);

    void HandleTag(std::string_view text);
    void CheckInterrupt();
    void GiveText(std::string_view piece);
    void GiveLiteral(std::string_view piece);
    void CopySkipped(const char* at, const char* end);
    void Remember(const char* at, const char* end);
    char Before(const char* at, const char* start, std::ptrdiff_t back) const;
    void NoteTagPosition();
    void CountTo(const char* at);
    [[noreturn]] void FailTag(std::string_view text) const;

    XmlHandler& handler_;
    XmlCopy* copy_ = nullptr;
    const std::atomic<bool>* interrupt_ = nullptr;
    Mode mode_ = Mode::Text;
    bool stopped_ = false;
    bool giveLines_ = false;
    bool trackLines_ = false;

    std::string buffer_;  // what has come of an unfinished tag, without its '<'
    char quote_ = '\0';   // inside an attribute value: the quote that ends it
    char last_ = '\0';    // the last character of the tag that was no blank
    int brackets_ = 0;    // CDATA: ']' held back; document type: '[' open
    char tail_[2] = {};   // the last bytes that were skipped
    XmlTag tag_;
    std::string literal_;

    LineCounter lines_;
    Position tagPosition_;
    const char* tagStart_ = nullptr;  // in the piece at hand; null when the tag began in an earlier one
    const char* counted_ = nullptr;   // in the piece at hand: up to here lines are counted
};

}  // namespace StreamingXml
