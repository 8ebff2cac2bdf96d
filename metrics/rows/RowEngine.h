#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/reader/XmlHandler.h"
#include "metrics/rows/Gather.h"
#include "metrics/rows/StateTable.h"

namespace Metrics::detail {

inline constexpr std::size_t kMaxDepth = 10000;             // of nested elements
inline constexpr std::size_t kMaxValue = 16 * 1024 * 1024;  // bytes of one wanted text
inline constexpr std::size_t kMaxWaitingRows = 10000;       // in one element

// Turns elements as they open and close into rows. Fed by the XML scanner or directly by a live output. It
// never looks back: memory goes with the depth of the input and the rows that wait, not with its length.
//
// Each element matches some pattern nodes (StateTable). For each that has operands it makes a Bring, which
// goes to the Gather of the joint above, in the element that this joint is bound to; rows are made of what
// has gathered there. Used from one thread; the receiver must not feed it.
class RowEngine final : public StreamingXml::XmlHandler {
  public:
    // Both must live as long.
    RowEngine(const CompiledRow& row, RowReceiver& receiver);

    // From markup.
    void OpenElement(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                     std::uint64_t line) override;
    void Text(std::string_view piece) override;
    bool CloseElement() override;
    bool LeavesOut() const override;

    // The same of what never was markup: names and texts that mean themselves.
    void OpenPlain(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                   std::uint64_t line);
    // All text of the innermost element; only while WantsText().
    void PlainText(std::string_view text);

    // Closes what is still open, the implicit root last. Then it is as new: the elements of another input may
    // follow.
    void Finish();

    std::size_t Depth() const { return depth_; }

  private:
    // An open element. The first frame is the implicit root, at level 0.
    struct Frame {
        const MatchState* state = nullptr;
        std::uint64_t number = 0;
        std::uint64_t line = 0;
        std::size_t nameStart = 0;
        std::string* text = nullptr;  // where its own text gathers: in the first bring that asks for it
        bool foundBelow = false;      // found_ has entries of this level
        bool endAwaited = false;      // endAwaiters_ and parked_ may have entries of this level
        bool isPlain = false;         // its text means itself
    };
    // An open element that matches a node, or one whose child brought a text.
    struct Entry {
        std::uint32_t level;
        BringRef bring;
    };
    using Entries = std::vector<Entry>;
    // A field that is the number of an enclosing element's end.
    struct EndAwaiter {
        BringRef bring;
        std::uint32_t field;
    };
    enum class Moment { BroughtAgain, Closing };

    Frame& Innermost() { return frames_[depth_]; }
    const Frame& Innermost() const { return frames_[depth_]; }
    std::uint32_t Level() const { return static_cast<std::uint32_t>(depth_); }
    const PatternNode& Node(int node) const { return row_.nodes[static_cast<std::size_t>(node)]; }
    const Joint& JointAt(int joint) const { return row_.joints[static_cast<std::size_t>(joint)]; }
    Entries& EntriesOf(std::vector<Entries>& all, int node) { return all[static_cast<std::size_t>(node)]; }

    // Elements (RowEngine.cpp)
    template <bool isMarkup>
    void Open(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
              std::uint64_t line);
    void OpenUndone(std::string_view name, std::span<const StreamingXml::XmlAttribute> attributes,
                    std::uint64_t line);
    void OpenSource(int node, std::span<const StreamingXml::XmlAttribute> attributes);
    bool FillAtOpen(int node, Bring& bring, std::span<const StreamingXml::XmlAttribute> attributes);
    void FillAtEnd(int node, const BringRef& bring);
    void CheckSize(std::size_t more, const std::string& text) const;
    void SettleText(Bring::Field& field);
    void CloseSources(const MatchState& state);
    void RememberText(int node, const BringRef& bring);
    void ForgetFound();
    void CloseGathers(const MatchState& state);
    bool IsKnown(const Bring& bring, std::uint32_t operand) const {
        return bring.fields[row_.operands[operand].field].state == Bring::FieldState::Known;
    }
    bool BringsToOwnJoint(int node) const { return Node(node).isJoint; }
    bool IsDelivered(int node) const { return node != kRoot || !row_.hasNamedPaths; }

    // Facts about the innermost element (NodeFacts.cpp)
    void AppendFact(const Operand& what, std::string& out) const;
    void AppendPath(std::string& out) const;
    void AppendIds(std::string& out) const;
    std::string_view NameAt(std::size_t level) const;

    // Facts about where enclosing elements end (NodeEnds.cpp)
    void FillNodeEnd(const RowOperand& operand, const BringRef& bring);
    void FillAwaitedEnds();
    void Park(Row& row);
    void ConcludeParked();

    // Rows (RowGathering.cpp)
    void Deliver(int node, const BringRef& bring);
    Gather& GatherAt(int joint, std::uint32_t level) {
        const auto& stack = gathers_[static_cast<std::size_t>(joint)];
        if (!stack.empty() && stack.back()->level == level) return *stack.back();
        Gather* const known = FindGather(joint, level);
        return known != nullptr ? *known : OpenGather(joint, level);
    }
    Gather& OpenGather(int joint, std::uint32_t level);
    Gather* FindGather(int joint, std::uint32_t level) const;
    void TakePending(Gather& gather, Row& row) const;
    void MakeRow(int joint, Gather& gather, Moment moment);
    void OfferToWaiting(int joint, Gather& gather, int branch);
    void Wait(int joint, Gather& gather, Row& row);  // takes the row
    void HandUp(int joint, Row& row);
    void Arrive(int joint, Gather& gather, Row& row, int branch);
    void CloseGather(int joint, std::uint32_t level);
    void Conclude(Row& row);
    void Write(Row& row);

    // What a row has (RowLookup.cpp)
    bool Has(const Row& row, std::size_t operand) const;
    bool LacksNothing(const Row& row) const;
    bool LacksRequired(const Row& row) const;
    static bool HoldsUnused(const Row& row, bool ownOnly);
    static bool HoldsOtherUnused(const Row& row, const Bring* than);
    bool Complete(int joint, const Gather& gather, Row& row);  // true when it lacks nothing
    void CompleteOperand(int joint, const Gather& gather, Row& row, std::size_t operand);
    bool LookInOwnPath(int joint, Row& row, std::size_t operand);
    bool LookAround(Row& row, std::size_t operand, bool replaces);
    bool LookInGather(int joint, const Gather& gather, Row& row, std::size_t operand, int except);
    void LookFurtherUp(int joint, Row& row, std::size_t operand);
    bool Take(Row& row, std::size_t operand, const BringRef& bring);
    static const Entry* Nearest(const Entries& entries, std::uint32_t level);

    const CompiledRow& row_;
    RowReceiver& receiver_;
    StateTable states_;
    BringPool pool_;  // before everything that refers to its brings

    std::vector<Frame> frames_;  // those beyond depth_ are spare
    std::size_t depth_ = 0;
    std::string names_;  // of the open elements, when a fact needs them
    std::uint64_t lastNumber_ = 0;

    std::vector<Entries> open_;   // by node: the open elements that match it
    std::vector<Entries> found_;  // by node: open elements with the last text that a child brought for it
    std::vector<std::vector<std::unique_ptr<Gather>>> gathers_;  // by joint, the innermost last
    std::vector<std::unique_ptr<Gather>> spareGathers_;
    int rootJoint_ = kNone;
    bool awaitsEnds_ = false;                          // a nodeend of an enclosing element is asked for
    std::vector<std::deque<EndAwaiter>> endAwaiters_;  // by level
    std::vector<std::deque<Row>> parked_;              // by level: rows that lack nothing else
    Row making_;                                       // done with once it is written or handed on
};

}  // namespace Metrics::detail
