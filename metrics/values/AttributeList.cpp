#include "metrics/values/AttributeList.h"

#include <algorithm>

namespace Metrics::detail {
namespace {

constexpr std::size_t kFew = 16;

}  // namespace

// One after the other among the first few, which are nearly always all.
inline AttributeList::Entry* AttributeList::Find(std::string_view key) {
    const std::size_t few = std::min(entries_.size(), kFew);
    for (std::size_t i = 0; i < few; ++i)
        if (entries_[i].key.size == key.size() && Key(i) == key) return &entries_[i];
    return byKey_.empty() ? nullptr : FindAmongMany(key);
}

void AttributeList::EndValue() {
    const Piece key{start_, keyEnd_ - start_};
    const Piece value{keyEnd_, text_.Size() - keyEnd_};
    Entry* const known = Find(View(key));
    if (known != nullptr) {
        known->value = value;
        inOrder_ = false;
    } else {
        if (entries_.size() >= kFew) byKey_.emplace(View(key), entries_.size());
        entries_.push_back({key, value});
    }
    start_ = text_.Size();
}

AttributeList::Entry* AttributeList::FindAmongMany(std::string_view key) {
    const auto place = byKey_.find(std::string(key));
    return place == byKey_.end() ? nullptr : &entries_[place->second];
}

void AttributeList::AppendTo(TextBuffer& out) const {
    if (inOrder_) return out.Append(text_.View());
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        out.Append(Key(i));
        out.Append(Value(i));
    }
}

void AttributeList::ClearAll() {
    text_.Clear();
    start_ = 0;
    entries_.clear();
    inOrder_ = true;
    if (!byKey_.empty()) byKey_.clear();
}

}  // namespace Metrics::detail
