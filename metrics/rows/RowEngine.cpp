#include "metrics/rows/RowEngine.h"

#include <algorithm>

#include "metrics/RowDefinitionError.h"
#include "metrics/reader/XmlText.h"
#include "metrics/values/XmlName.h"

namespace Metrics::detail {

RowEngine::RowEngine(const CompiledRow& row, RowReceiver& receiver)
    : row_(row),
      receiver_(receiver),
      states_(row),
      open_(row.nodes.size()),
      found_(row.nodes.size()),
      gathers_(row.joints.size()) {
    frames_.push_back({states_.Root()});
    if (row.nodes[kRoot].isJoint) rootJoint_ = row.nodes[kRoot].joint;
    awaitsEnds_ = std::any_of(row.operands.begin(), row.operands.end(), [](const RowOperand& operand) {
        return operand.what.fact == Function::NodeEnd && operand.what.number > 0;
    });
}

// Names of markup that hold a group, which is seldom, are undone first.
template <bool isMarkup>
void RowEngine::Open(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                     std::uint64_t line) {
    const std::uint64_t digest = StreamingXml::Digest(name);
    if (isMarkup && StreamingXml::Holds('_', name, digest) && StreamingXml::HoldsPair('_', 'x', name))
        return OpenUndone(name, attributes, line);
    if (Depth() >= kMaxDepth)
        throw RowDefinitionError("Error: more than " + std::to_string(kMaxDepth) + " nested elements");
    const MatchState* const state = states_.Next(Innermost().state, name, digest);
    if (++depth_ == frames_.size()) frames_.emplace_back();
    Innermost() = {state, ++lastNumber_, line, names_.size(), nullptr};
    if (row_.usesNames) names_ += name;
    wantsText_ = state->wantsText;
    for (const int source : state->sources) OpenSource(source, attributes);
}

void RowEngine::OpenElement(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                            std::uint64_t line) {
    Open<true>(name, attributes, line);
}

void RowEngine::OpenPlain(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                          std::uint64_t line) {
    Open<false>(name, attributes, line);
}

void RowEngine::OpenUndone(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                           std::uint64_t line) {
    OpenPlain(UndoXmlName(name), attributes, line);
}

void RowEngine::Text(std::string_view piece) {
    std::string& text = *Innermost().text;
    if (text.empty()) {
        while (!piece.empty() && StreamingXml::IsBlank(piece.front())) piece.remove_prefix(1);
    }
    CheckSize(piece.size(), text);
    text += piece;
}

void RowEngine::PlainText(std::string_view text) {
    Frame& frame = Innermost();
    CheckSize(text.size(), *frame.text);
    *frame.text = text;
    frame.isPlain = true;
}

void RowEngine::CheckSize(std::size_t more, const std::string& text) const {
    if (more > kMaxValue - text.size())
        throw RowDefinitionError("Error: a value exceeds " + std::to_string(kMaxValue) + " bytes");
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
    if (brings && !pattern.needsEnd && IsDelivered(node)) Deliver(node, entries.back().bring);
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
            if (found) attribute->AppendValue(field.text);
            field.state = found ? Bring::FieldState::Known : Bring::FieldState::Absent;
            field.nearest = around.empty() ? nullptr : around.back().bring->fields[operand.field].nearest;
            if (found) field.nearest = &bring;
            brings |= found;
        } else if (operand.KnownAtOpen()) {
            AppendFact(operand.what, field.text);
            field.state = Bring::FieldState::Known;
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
    field.state = Bring::FieldState::Known;
}

bool RowEngine::CloseElement() {
    if (depth_ == 0) return false;
    const MatchState& state = *Innermost().state;
    if (Innermost().endAwaited) FillAwaitedEnds();
    if (!state.sources.empty()) CloseSources(state);
    CloseGathers(state);
    for (const int source : state.sources) {
        Entries& entries = EntriesOf(open_, source);
        if (Node(source).needsEnd && !BringsToOwnJoint(source)) Deliver(source, entries.back().bring);
        entries.pop_back();
    }
    if (Innermost().endAwaited) ConcludeParked();
    if (Innermost().foundBelow) ForgetFound();
    if (row_.usesNames) names_.resize(Innermost().nameStart);
    --depth_;
    wantsText_ = Innermost().state->wantsText;
    return true;
}

// The text is settled before the rows inside are closed: they may look it up.
void RowEngine::CloseSources(const MatchState& state) {
    for (const int source : state.sources) {
        if (!Node(source).needsEnd) continue;
        const BringRef& bring = EntriesOf(open_, source).back().bring;
        FillAtEnd(source, bring);
        if (Node(source).soughtAround) RememberText(source, bring);
        if (BringsToOwnJoint(source) && IsDelivered(source)) Deliver(source, bring);
    }
}

void RowEngine::RememberText(int node, const BringRef& bring) {
    const std::uint32_t around = Level() - 1;
    Entries& entries = EntriesOf(found_, node);
    // The element itself may still have an entry on top: what its own children brought.
    const auto place = std::find_if(entries.rbegin(), entries.rend(),
                                    [&](const Entry& entry) { return entry.level <= around; });
    if (place != entries.rend() && place->level == around) {
        place->bring = bring;
    } else {
        entries.insert(place.base(), {around, bring});
    }
    frames_[around].foundBelow = true;
}

void RowEngine::ForgetFound() {
    for (Entries& entries : found_) {
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
    return !Innermost().state->sources.empty();
}

}  // namespace Metrics::detail
