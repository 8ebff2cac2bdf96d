#include "tests/rows/RowOracle.h"

#include <algorithm>
#include <utility>

#include "tests/rows/OraclePattern.h"
#include "tests/rows/OracleRow.h"

namespace {

using namespace RowRules;

bool Matches(const Names& path, const Element* element) {
    for (auto name = path.rbegin(); name != path.rend(); ++name, element = element->parent)
        if (element->parent == nullptr || (*name != "*" && *name != element->name)) return false;
    return true;
}

class Oracle {
  public:
    explicit Oracle(const std::vector<Column>& columns) : columns_(columns), pattern_(columns) {}

    std::string Run(const Element& document) {
        document_ = &document;
        for (const auto& child : document.children) Visit(*child);
        CloseJoints(document);
        return lines_;
    }

  private:
    // Elements ------------------------------------------------------------------------------------------

    void Visit(const Element& element) {
        last_ = element.number;
        Bring(element, false, false);
        for (const auto& child : element.children) Visit(*child);
        facts_.Close(element, last_);
        RememberTexts(element);
        Bring(element, true, true);
        ConcludeParked(element);
        CloseJoints(element);
        Bring(element, true, false);
    }

    bool ComesAtClose(const Names& path) const {
        return std::any_of(pattern_.operands.begin(), pattern_.operands.end(), [&](const Operand& operand) {
            return operand.path == path && (operand.kind == Kind::Text || operand.kind == Kind::NodeEnd);
        });
    }
    bool BringsAnything(const Names& path, const Element& element) const {
        return std::any_of(pattern_.operands.begin(), pattern_.operands.end(), [&](const Operand& operand) {
            return operand.path == path &&
                   (operand.kind != Kind::Attribute || element.attributes.contains(Column::kAttribute));
        });
    }

    struct Arrival {
        Names path, joint, branch;
        Place& place;
        const Element* at;
    };

    // At the close what comes to joints of the element itself comes before these close, the rest after it.
    void Bring(const Element& element, bool atClose, bool toItself) {
        std::vector<Arrival> arrivals;
        for (const Names& path : pattern_.paths) {
            if (!Matches(path, &element) || ComesAtClose(path) != atClose || !BringsAnything(path, element) ||
                (path.empty() && pattern_.AnyNamed()) || (atClose && pattern_.IsJoint(path) != toItself))
                continue;
            Names joint = path;
            pattern_.JointAbove(joint);
            const Element* const at = Above(&element, path.size() - joint.size());
            arrivals.push_back({path, joint, Branch(joint, path), PlaceOf(at, joint), at});
        }
        arriving_ = &element;
        for (const Arrival& arrival : arrivals) {
            const Value& fresh = arrival.place.fresh[arrival.branch];
            if (fresh && !fresh->used) MakeRow(arrival.joint, arrival.at, true);
        }
        arriving_ = nullptr;
        for (const Arrival& arrival : arrivals) {
            const Value value = BroughtBy(element, arrival.path);
            arrival.place.fresh[arrival.branch] = value;
            arrival.place.freshPath[arrival.branch] = arrival.path;
            for (std::size_t i = 0; i < pattern_.operands.size(); ++i)
                if (pattern_.operands[i].path == arrival.path) arrival.place.last[i] = value;
        }
        for (const Arrival& arrival : arrivals) Offer(arrival.place, arrival.joint, arrival.branch);
    }

    void RememberTexts(const Element& element) {
        for (const Names& path : pattern_.paths) {
            if (!path.empty() && Matches(path, &element))
                texts_[{element.parent, path}].push_back(BroughtBy(element, path));
        }
    }

    Value BroughtBy(const Element& element, const Names& path) {
        Value& value = brought_[{&element, path}];
        if (!value) value = std::make_shared<Brought>(Brought{&element});
        return value;
    }
    Place& PlaceOf(const Element* element, const Names& joint) {
        Place& place = places_[{element, joint}];
        place.last.resize(pattern_.operands.size());
        return place;
    }

    // Rows ----------------------------------------------------------------------------------------------

    void MakeRow(const Names& joint, const Element* at, bool broughtAgain) {
        Place& place = PlaceOf(at, joint);
        Row row{joint, at, joint, joint, false, std::vector<Cell>(pattern_.operands.size())};
        for (auto& [branch, value] : place.fresh) {
            for (std::size_t i = 0; i < pattern_.operands.size() && value; ++i) {
                const bool isAbsent = pattern_.operands[i].kind == Kind::Attribute &&
                                      facts_.Text(pattern_.operands[i], *value->element).empty();
                if (pattern_.operands[i].path == place.freshPath[branch] &&
                    !(isAbsent && pattern_.operands[i].path.empty()))
                    row.cells[i] = {value, true};
            }
            value = nullptr;
        }
        if (!HoldsUnused(row)) return;
        if (Complete(row)) return Write(row);
        if (!broughtAgain) return GoUp(row);
        if (at == document_) return Conclude(row);
        place.waiting.push_back(row);
    }

    void CloseJoints(const Element& element) {
        for (const Names& joint : pattern_.joints) {
            if (!(joint.empty() || Matches(joint, &element)) || !places_.contains({&element, joint}))
                continue;
            Place& place = PlaceOf(&element, joint);
            while (!place.waiting.empty()) {
                Row row = place.waiting.front();
                place.waiting.pop_front();
                if (!HoldsUnused(row)) continue;
                if (Complete(row)) {
                    Write(row);
                } else {
                    GoUp(row);
                }
            }
            MakeRow(joint, &element, false);
        }
    }

    void GoUp(Row row) {
        const Names from = row.joint;
        Names joint = from;
        if (joint.empty()) return Conclude(row);
        joint.pop_back();
        if (!pattern_.JointAbove(joint)) return Conclude(row);
        row.at = Above(row.at, from.size() - joint.size());
        if (row.at == document_) return Conclude(row);
        row.joint = joint;
        row.cameFrom = Branch(joint, from);
        Place& place = PlaceOf(row.at, joint);
        for (const std::size_t i : pattern_.OperandsOf(row.cameFrom, joint))
            place.last[i] = row.cells[i].value;
        Offer(place, joint, row.cameFrom);
        if (!HoldsUnused(row)) return;
        if (Complete(row)) return Write(row);
        place.waiting.push_back(row);
    }

    void Offer(Place& place, const Names& joint, const Names& branch) {
        std::list<Row> still;
        for (Row& row : place.waiting) {
            if (!HoldsUnused(row)) continue;
            if (!row.outranked && HoldsNothingOf(row, joint, branch)) {
                for (const std::size_t i : pattern_.OperandsOf(branch, joint))
                    if (place.last[i]) row.cells[i] = {place.last[i], true};
                PreferAround(row);
                if (LacksNothing(row)) {
                    Write(row);
                    continue;
                }
            }
            still.push_back(row);
        }
        place.waiting = still;
    }

    void Conclude(Row& row) {
        const Element* until = nullptr;
        for (std::size_t i = 0; i < pattern_.operands.size(); ++i) {
            if (!pattern_.operands[i].required || Has(row, i)) continue;
            if (pattern_.operands[i].kind != Kind::NodeEnd || !row.cells[i].value) return;
            const Element* const end = Facts::EndOf(pattern_.operands[i], row.cells[i].value->element);
            if (until == nullptr || Facts::DepthOf(end) > Facts::DepthOf(until)) until = end;
        }
        if (until == nullptr) return Write(row);
        parked_[until].push_back(row);
    }

    void ConcludeParked(const Element& element) {
        for (Row& row : std::exchange(parked_[&element], {})) Conclude(row);
    }

    void Write(Row& row) {
        if (!HoldsUnused(row)) return;
        std::string line;
        bool passes = true, isFirst = true;
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            const std::size_t i = pattern_.operandOf[column];
            const Value& value = row.cells[i].value;
            const std::string text =
                value && Has(row, i) ? facts_.Text(pattern_.operands[i], *value->element) : "";
            if (columns_[column].isFilter) {
                passes &= !text.empty() && (text.back() - '0') % 2 == 1;
            } else {
                line += (std::exchange(isFirst, false) ? "" : ",") + text;
            }
        }
        if (passes) lines_ += line + '\n';
        for (const Cell& cell : row.cells)
            if (cell.value) cell.value->used = true;
    }

    // Look-up -------------------------------------------------------------------------------------------

    bool Complete(Row& row) {
        PreferAround(row);
        for (std::size_t i = 0; i < pattern_.operands.size(); ++i) {
            if (row.cells[i].Holds()) continue;
            const Names& path = pattern_.operands[i].path;
            if (!path.empty() && BeginsWith(row.origin, path)) {
                FindOnOwnPath(row, i);
            } else if (path.empty() || row.origin.empty() || path.front() != row.origin.front()) {
                FindAround(i, row.at, row.cells[i]);
            }
        }
        if (LacksNothing(row)) return true;
        row.outranked = IsOutranked(row, row.joint, row.at);
        if (!row.outranked) TakeFromOthers(row);
        return LacksNothing(row);
    }

    void FindOnOwnPath(Row& row, std::size_t i) {
        if (pattern_.operands[i].path.size() > row.joint.size()) return;  // it has closed
        const Element* const element = Above(row.at, row.joint.size() - pattern_.operands[i].path.size());
        const Value value = BroughtBy(*element, pattern_.operands[i].path);
        if (pattern_.operands[i].kind == Kind::NodeEnd ||
            facts_.IsKnown(pattern_.operands[i], value->element))
            row.cells[i] = {value};
    }

    bool FindAround(std::size_t i, const Element* from, Cell& cell) {
        const auto& [kind, path, above, required] = pattern_.operands[i];
        if (kind == Kind::Text && !path.empty()) {
            const Names prefix(path.begin(), path.end() - 1);
            for (; from != nullptr; from = from->parent) {
                if (!prefix.empty() && !Matches(prefix, from)) continue;
                for (auto value = texts_[{from, path}].rbegin(); value != texts_[{from, path}].rend();
                     ++value) {
                    if ((*value)->element == arriving_) continue;
                    cell = {*value};
                    return true;
                }
            }
            return false;
        }
        if (path.empty() && from == document_) return cell.settled = true;
        const Element* nearest = nullptr;
        for (const Element* at = from; at != document_; at = at->parent) {
            if (!Matches(path, at)) continue;
            if (nearest == nullptr) nearest = at;
            if (kind != Kind::Attribute) break;
            if (!at->attributes.contains(Column::kAttribute)) continue;
            cell = {BroughtBy(*at, path)};
            return true;
        }
        if (nearest == nullptr) return false;
        if (kind == Kind::Attribute) return cell.settled = true;
        const Value value = BroughtBy(*nearest, path);
        if (kind == Kind::Text && (nearest != from || !facts_.IsKnown(pattern_.operands[i], value->element)))
            return false;
        cell = {value};
        return true;
    }

    // The branches of the root whose values the row gathered from inside, where all of them can be had
    // around.
    std::vector<std::vector<std::size_t>> LabelsFromInside(const Row& row, const Element* at) {
        std::vector<std::vector<std::size_t>> labels;
        for (const Names& branch : pattern_.BranchesOf({})) {
            const auto operands = pattern_.OperandsOf(branch, {});
            bool own = false, around = false, here = branch.empty();
            for (const std::size_t i : operands) {
                Cell cell;
                own |= row.cells[i].own;
                here |= pattern_.operands[i].kind == Kind::Text && pattern_.operands[i].path.size() == 1;
                around |= FindAround(i, at, cell);
            }
            if (own && around && !here) labels.push_back(operands);
        }
        return labels;
    }

    void PreferAround(Row& row) {
        if (!row.joint.empty()) return;
        for (const auto& operands : LabelsFromInside(row, row.at)) {
            Row rest = row;
            for (const std::size_t i : operands) rest.cells[i] = {};
            if (!HoldsUnused(rest)) continue;
            row = rest;
            for (const std::size_t i : operands) FindAround(i, row.at, row.cells[i]);
        }
    }

    bool IsOutranked(const Row& row, const Names& joint, const Element* at) {
        return joint.empty() && !LabelsFromInside(row, at).empty();
    }

    void TakeFromOthers(Row& row) {
        Names joint = row.joint, from = row.cameFrom;
        const Element* at = row.at;
        for (bool isFirst = true;; isFirst = false) {
            if (places_.contains({at, joint})) {
                Place& place = PlaceOf(at, joint);
                if (!isFirst && (IsOutranked(row, joint, at) || AnyWaits(place))) return;
                const Row before = row;
                for (const Names& branch : pattern_.BranchesOf(joint)) {
                    const bool isItsOwn = branch == from && (!isFirst || from != joint);
                    if (isItsOwn || !HoldsNothingOf(before, joint, branch)) continue;
                    for (const std::size_t i : pattern_.OperandsOf(branch, joint)) {
                        const Value& last = place.last[i];
                        if (last && (pattern_.operands[i].kind == Kind::NodeEnd ||
                                     facts_.IsKnown(pattern_.operands[i], last->element)))
                            row.cells[i] = {last};
                    }
                }
            }
            const Names below = joint;
            if (joint.empty()) return;
            joint.pop_back();
            if (!pattern_.JointAbove(joint)) return;
            at = Above(at, below.size() - joint.size());
            from = Branch(joint, below);
        }
    }

    // What a row has ------------------------------------------------------------------------------------

    bool HoldsNothingOf(const Row& row, const Names& joint, const Names& branch) const {
        const auto operands = pattern_.OperandsOf(branch, joint);
        return std::none_of(operands.begin(), operands.end(),
                            [&](std::size_t i) { return row.cells[i].Holds(); });
    }
    bool Has(const Row& row, std::size_t i) const {
        return row.cells[i].settled ||
               (row.cells[i].value && facts_.IsKnown(pattern_.operands[i], row.cells[i].value->element));
    }
    bool LacksNothing(const Row& row) const {
        for (std::size_t i = 0; i < pattern_.operands.size(); ++i)
            if (!Has(row, i)) return false;
        return true;
    }

    const std::vector<Column>& columns_;
    const Pattern pattern_;
    Facts facts_;

    const Element* document_ = nullptr;
    const Element* arriving_ = nullptr;
    int last_ = 0;  // the number of the last element so far
    std::map<std::pair<const Element*, Names>, Value> brought_;
    std::map<std::pair<const Element*, Names>, std::vector<Value>> texts_;  // by parent
    std::map<std::pair<const Element*, Names>, Place> places_;
    std::map<const Element*, std::vector<Row>> parked_;
    std::string lines_;
};

}  // namespace

std::string RowsOf(const std::vector<Column>& columns, const Element& document) {
    return Oracle(columns).Run(document);
}
