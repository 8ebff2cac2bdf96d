#include "metrics/values/AttributeList.h"

#include <algorithm>

namespace Metrics::detail {
namespace {

constexpr std::size_t kFew = 16;

}  // namespace

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

// One after the other among the first few, which are nearly always all.
AttributeList::Entry* AttributeList::Find(std::string_view key) {
    const auto few = entries_.begin() + static_cast<std::ptrdiff_t>(std::min(entries_.size(), kFew));
    const auto found =
        std::find_if(entries_.begin(), few, [&](const Entry& entry) { return View(entry.key) == key; });
    if (found != few) return &*found;
    if (byKey_.empty()) return nullptr;
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

void AttributeList::Clear() {
    text_.Clear();
    start_ = 0;
    entries_.clear();
    inOrder_ = true;
    if (!byKey_.empty()) byKey_.clear();
}

}  // namespace Metrics::detail
