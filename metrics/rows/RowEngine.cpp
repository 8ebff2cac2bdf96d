#include "metrics/rows/RowEngine.h"

#include <algorithm>
#include <utility>

#include "metrics/reader/XmlText.h"

namespace Metrics::detail {

RowEngine::RowEngine(const CompiledRow& row, RowReceiver& receiver, RowNotices& notices,
                     const RowLimits& limits)
    : row_(row),
      receiver_(receiver),
      notices_(notices),
      limits_(limits),
      states_(row),
      open_(row.nodes.size()),
      found_(row.nodes.size()),
      gathers_(row.joints.size()) {
    frames_.push_back({states_.Root()});
    if (row.nodes[kRoot].isJoint) rootJoint_ = row.nodes[kRoot].joint;
    awaitsEnds_ = std::any_of(row.operands.begin(), row.operands.end(), [](const RowOperand& operand) {
        return operand.what.fact == Function::NodeEnd;
    });
}

void RowEngine::OpenElement(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                            std::uint64_t line) {
    OpenPlain(StreamingXml::UndoName(name, undoneName_), attributes, line);
}

void RowEngine::OpenPlain(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                          std::uint64_t line) {
    if (Depth() >= limits_.depth) return SkipElement(name);
    const MatchState* const state = states_.Next(Innermost().state, name);
    if (++depth_ == frames_.size()) frames_.emplace_back();
    Innermost() = {state, ++lastNumber_, line, names_.size()};
    if (row_.usesNames) names_ += name;
    wantsText_ = state->wantsText;
    for (const int source : state->sources) OpenSource(source, attributes);
    if (!arrivals_.empty()) DeliverArrivals(arrivals_);
}

// It has its number, so that those of all others stay what they are.
void RowEngine::SkipElement(std::string_view name) {
    ++lastNumber_;
    ++skipped_;
    wantsText_ = false;
    notices_.Add(RowLimit::Depth, lastNumber_, [&] {
        return "more than " + std::to_string(limits_.depth) + " nested elements: element " +
               std::to_string(lastNumber_) + " (" + std::string(name) +
               ") is left out with all that is in it";
    });
}

void RowEngine::Text(std::string_view piece) {
    if (Innermost().textLost) return;
    std::string& text = *Innermost().text;
    if (text.empty()) {
        while (!piece.empty() && StreamingXml::IsBlank(piece.front())) piece.remove_prefix(1);
    }
    if (piece.size() <= limits_.valueSize - text.size()) {
        text += piece;
    } else {
        LoseText();
    }
}

void RowEngine::LoseText() {
    Innermost().textLost = true;
    *Innermost().text = std::string();
    const auto& sources = Innermost().state->sources;
    NoteLostValue(*std::find_if(sources.begin(), sources.end(),
                                [&](int source) { return Node(source).textField != kNone; }));
}

void RowEngine::LoseValue(Bring::Field& field, int node) {
    field.state = Bring::FieldState::Lost;
    field.text = std::string();
    NoteLostValue(node);
}

void RowEngine::NoteLostValue(int node) {
    anyLost_ = true;
    notices_.Add(RowLimit::ValueSize, Innermost().number, [&] {
        return "a value exceeds " + std::to_string(limits_.valueSize) + " bytes: rows that hold it, from " +
               Describe(Innermost(), node) + ", are left out";
    });
}

std::string RowEngine::Describe(const Frame& frame, int node) const {
    const PathName& name = Node(node).name;
    return "element " + std::to_string(frame.number) + (name.name.empty() ? "" : " (" + name.name + ")");
}

void RowEngine::PlainText(std::string_view text) {
    Innermost().isPlain = true;
    if (text.size() > limits_.valueSize) return LoseText();
    *Innermost().text = text;
}

void RowEngine::OpenSource(int node, std::span<const StreamingXml::XmlAttribute> attributes) {
    const PatternNode& pattern = Node(node);
    BringRef bring = pool_.Take(Level(), pattern.operands.size());
    if (pattern.textField != kNone && Innermost().text == nullptr)
        Innermost().text = &bring->fields[static_cast<std::size_t>(pattern.textField)].text;
    const bool brings = pattern.knowsAtOpen && FillAtOpen(node, *bring.get(), attributes);
    Entries& entries = EntriesOf(open_, node);
    entries.push_back({Level(), std::move(bring)});
    // What is not whole before the element closes comes then.
    if (brings && !pattern.needsEnd && IsDelivered(node))
        arrivals_.push_back(ArrivalOf(node, entries.back().bring));
}

// True when there is anything to bring. A missing attribute beside others is an empty one.
bool RowEngine::FillAtOpen(int node, Bring& bring, std::span<const StreamingXml::XmlAttribute> attributes) {
    const Entries& around = EntriesOf(open_, node);
    bool brings = false;
    for (const std::uint32_t index : Node(node).operands) {
        const RowOperand& operand = row_.operands[index];
        Bring::Field& field = bring.fields[operand.field];
        if (operand.what.kind == Operand::Kind::Attribute) {
            const auto attribute = std::find_if(attributes.begin(), attributes.end(), [&](const auto& given) {
                return given.IsNamed(operand.what.attribute);
            });
            const bool found = attribute != attributes.end();
            field.state = found ? Bring::FieldState::Known : Bring::FieldState::Absent;
            if (found && attribute->value.size() <= limits_.valueSize) {
                attribute->AppendValue(field.text);
            } else if (found) {
                LoseValue(field, node);
            }
            field.nearest = around.empty() ? nullptr : around.back().bring->fields[operand.field].nearest;
            if (found) field.nearest = &bring;
            brings |= found;
        } else if (operand.KnownAtOpen()) {
            AppendFact(operand.what, field.text);
            field.state = Bring::FieldState::Known;
            if (field.text.size() > limits_.valueSize) LoseValue(field, node);
            brings = true;
        }
    }
    return brings;
}

void RowEngine::FillAtEnd(int node, const BringRef& bring) {
    for (const std::uint32_t index : Node(node).operands) {
        const RowOperand& operand = row_.operands[index];
        if (operand.KnownAtOpen()) continue;
        if (operand.what.kind == Operand::Kind::Fact) {
            FillNodeEnd(operand, bring);
        } else {
            SettleText(bring->fields[operand.field]);
        }
    }
}

// The field in which the text has gathered comes first; the others copy it.
void RowEngine::SettleText(Bring::Field& field) {
    std::string& text = *Innermost().text;
    if (&field.text != &text) {
        field.text = text;
    } else if (!Innermost().isPlain) {
        while (!text.empty() && StreamingXml::IsBlank(text.back())) text.pop_back();
        StreamingXml::Unescape(text);
    }
    field.state = Innermost().textLost ? Bring::FieldState::Lost : Bring::FieldState::Known;
}

bool RowEngine::CloseElement() {
    if (skipped_ > 0) return CloseSkipped();
    if (depth_ == 0) return false;
    const MatchState& state = *Innermost().state;
    if (Innermost().endAwaited) FillAwaitedEnds();
    if (!state.sources.empty()) CloseSources(state);
    if (Innermost().endAwaited) ConcludeParked();
    CloseGathers(state);
    if (!state.sources.empty()) LeaveSources(state);
    if (Innermost().foundBelow) ForgetFound();
    if (row_.usesNames) names_.resize(Innermost().nameStart);
    --depth_;
    wantsText_ = Innermost().state->wantsText;
    return true;
}

bool RowEngine::CloseSkipped() {
    --skipped_;
    wantsText_ = skipped_ == 0 && Innermost().state->wantsText;
    return true;
}

// The text is settled before the rows inside are closed: they may look it up.
void RowEngine::CloseSources(const MatchState& state) {
    for (const int source : state.sources) {
        if (!Node(source).needsEnd) continue;
        const BringRef& bring = EntriesOf(open_, source).back().bring;
        FillAtEnd(source, bring);
        if (Node(source).soughtAround) RememberText(source, bring);
        if (BringsToOwnJoint(source) && IsDelivered(source)) arrivals_.push_back(ArrivalOf(source, bring));
    }
    if (!arrivals_.empty()) DeliverArrivals(arrivals_);
}

void RowEngine::LeaveSources(const MatchState& state) {
    for (const int source : state.sources) {
        if (!Node(source).needsEnd || BringsToOwnJoint(source)) continue;
        const Arrival arrival = ArrivalOf(source, EntriesOf(open_, source).back().bring);
        if (state.sources.size() == 1) {
            DeliverArrivals({&arrival, 1});
        } else {
            arrivals_.push_back(arrival);
        }
    }
    if (!arrivals_.empty()) DeliverArrivals(arrivals_);
    for (const int source : state.sources) EntriesOf(open_, source).pop_back();
}

void RowEngine::RememberText(int node, const BringRef& bring) {
    const std::uint32_t around = Level() - 1;
    auto& entries = found_[static_cast<std::size_t>(node)];
    // The element itself may still have an entry on top: what its own children brought.
    const auto place = std::find_if(entries.rbegin(), entries.rend(),
                                    [&](const Found& entry) { return entry.level <= around; });
    if (place != entries.rend() && place->level == around) {
        place->before = std::exchange(place->bring, bring);
    } else {
        entries.insert(place.base(), {around, bring, {}});
    }
    frames_[around].foundBelow = true;
}

void RowEngine::ForgetFound() {
    for (auto& entries : found_) {
        while (!entries.empty() && entries.back().level >= Level()) entries.pop_back();
    }
}

void RowEngine::CloseGathers(const MatchState& state) {
    for (const int joint : state.joints) CloseGather(joint, Level());
    if (rootJoint_ != kNone) CloseGather(rootJoint_, Level());
}

void RowEngine::Finish() {
    while (CloseElement()) {
    }
    if (rootJoint_ != kNone) CloseGather(rootJoint_, 0);
    if (Innermost().foundBelow) ForgetFound();
    Innermost().foundBelow = false;
    lastNumber_ = 0;
}

bool RowEngine::LeavesOut() const {
    return skipped_ == 0 && !Innermost().state->sources.empty();
}

}  // namespace Metrics::detail
