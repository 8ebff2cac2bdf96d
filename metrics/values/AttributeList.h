#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "metrics/values/TextBuffer.h"

namespace Metrics::detail {

// The attributes of an element that is still to come, as texts in whatever form their user gives them. One
// that repeats a key gives its value to the first.
class AttributeList {
  public:
    // Adding one: append its key here, end it, append its value, end that.
    TextBuffer& Text() { return text_; }
    void EndKey() { keyEnd_ = text_.Size(); }
    void EndValue();

    bool IsEmpty() const { return entries_.empty(); }
    std::size_t Size() const { return entries_.size(); }
    std::string_view Key(std::size_t index) const { return View(entries_[index].key); }
    std::string_view Value(std::size_t index) const { return View(entries_[index].value); }
    // All keys and values one after the other.
    void AppendTo(TextBuffer& out) const;

    void Clear() {
        if (!entries_.empty()) ClearAll();
    }

  private:
    struct Piece {
        std::size_t start;
        std::size_t size;
    };
    struct Entry {
        Piece key;
        Piece value;
    };

    std::string_view View(Piece piece) const { return text_.View().substr(piece.start, piece.size); }
    Entry* Find(std::string_view key);
    Entry* FindAmongMany(std::string_view key);
    void ClearAll();

    TextBuffer text_;
    std::size_t start_ = 0;   // of the one that is being added
    std::size_t keyEnd_ = 0;  // likewise
    std::vector<Entry> entries_;
    bool inOrder_ = true;                                 // the text is just what AppendTo() gives
    std::unordered_map<std::string, std::size_t> byKey_;  // all but the first few, when there are many
};

}  // namespace Metrics::detail
