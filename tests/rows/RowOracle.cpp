#include "tests/rows/RowOracle.h"

#include <algorithm>
#include <list>
#include <set>
#include <tuple>

namespace {

using Kind = Column::Kind;
using Names = std::vector<std::string>;

// What an element brings for the operands of one path.
struct Brought {
    const Element* element;
    bool used = false;
};
using Value = std::shared_ptr<Brought>;

struct Cell {
    Value value;
    bool own = false;
    bool settled = false;  // an attribute that is nowhere to be had

    bool Holds() const { return value != nullptr || settled; }
};

struct Operand {
    Kind kind;
    Names path;
    int above;
    bool required;
};

struct Row {
    Names origin;  // the path of the joint where it was made
    const Element* at = nullptr;
    Names joint;     // where it is now
    Names cameFrom;  // the branch that handed it up; the joint's own path when none did
    bool outranked = false;
    std::vector<Cell> cells;
};

// What an element that a joint is bound to has gathered. Branches are known by their paths.
struct Place {
    std::map<Names, Value> fresh;  // by branch, the last while no row has been made of it
    std::map<Names, Names> freshPath;
    std::vector<Value> last;  // by operand
    std::list<Row> waiting;
};

bool BeginsWith(const Names& path, const Names& beginning) {
    return path.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), path.begin());
}

bool Contains(const std::vector<Names>& all, const Names& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

const Element* Above(const Element* element, std::size_t levels) {
    for (; levels > 0 && element != nullptr; --levels) element = element->parent;
    return element;
}

bool Matches(const Names& path, const Element* element) {
    for (auto name = path.rbegin(); name != path.rend(); ++name, element = element->parent)
        if (element->parent == nullptr || (*name != "*" && *name != element->name)) return false;
    return true;
}

class Oracle {
  public:
    explicit Oracle(const std::vector<Column>& columns) : columns_(columns) {
        for (const Column& column : columns) AddOperand(column);
        FindJoints();
    }

    std::string Run(const Element& document) {
        document_ = &document;
        for (const auto& child : document.children) Visit(*child);
        CloseJoints(document);
        return lines_;
    }

  private:
    void AddOperand(const Column& column) {
        const bool required = !column.isOptional && column.kind != Kind::Attribute;
        for (std::size_t i = 0; i < operands_.size(); ++i) {
            Operand& known = operands_[i];
            if (std::tie(known.kind, known.path, known.above) !=
                std::tie(column.kind, column.path, column.above))
                continue;
            known.required |= required;
            return operandOf_.push_back(i);
        }
        operandOf_.push_back(operands_.size());
        operands_.push_back({column.kind, column.path, column.above, required});
    }

    void FindJoints() {
        for (const Operand& operand : operands_) {
            for (std::size_t size = 0; size <= operand.path.size(); ++size) {
                const Names path(operand.path.begin(),
                                 operand.path.begin() + static_cast<std::ptrdiff_t>(size));
                if (!Contains(paths_, path)) paths_.push_back(path);
            }
        }
        for (const Names& path : paths_)
            if (BranchesOf(path).size() >= 2) joints_.push_back(path);
        if (joints_.empty()) joints_.push_back(operands_.front().path);
        std::stable_sort(joints_.begin(), joints_.end(),
                         [](const Names& a, const Names& b) { return a.size() > b.size(); });
    }

    // In the order in which the definition mentions them.
    std::vector<Names> BranchesOf(const Names& joint) const {
        std::vector<Names> branches;
        for (const Operand& operand : operands_) {
            const Names branch = Branch(joint, operand.path);
            if (BeginsWith(operand.path, joint) && !Contains(branches, branch)) branches.push_back(branch);
        }
        return branches;
    }
    // Itself when the path ends there.
    static Names Branch(const Names& joint, const Names& path) {
        return Names(path.begin(),
                     path.begin() + static_cast<std::ptrdiff_t>(std::min(path.size(), joint.size() + 1)));
    }
    bool IsJoint(const Names& path) const { return Contains(joints_, path); }
    // The next joint above the path, or the path's own; false when there is none.
    bool JointAbove(Names& path) const {
        while (!IsJoint(path)) {
            if (path.empty()) return false;
            path.pop_back();
        }
        return true;
    }
    std::vector<std::size_t> OperandsOf(const Names& branch, const Names& joint) const {
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i < operands_.size(); ++i)
            if (BeginsWith(operands_[i].path, joint) && Branch(joint, operands_[i].path) == branch)
                found.push_back(i);
        return found;
    }
    bool AnyNamed() const {
        return std::any_of(operands_.begin(), operands_.end(), [](const auto& o) { return !o.path.empty(); });
    }

    // Elements ------------------------------------------------------------------------------------------

    void Visit(const Element& element) {
        last_ = element.number;
        Bring(element, false, false);
        for (const auto& child : element.children) Visit(*child);
        closing_.insert(&element);
        ends_[&element] = last_;
        RememberTexts(element);
        Bring(element, true, true);
        ConcludeParked(element);
        CloseJoints(element);
        Bring(element, true, false);
    }

    bool ComesAtClose(const Names& path) const {
        return std::any_of(operands_.begin(), operands_.end(), [&](const Operand& operand) {
            return operand.path == path && (operand.kind == Kind::Text || operand.kind == Kind::NodeEnd);
        });
    }
    bool BringsAnything(const Names& path, const Element& element) const {
        return std::any_of(operands_.begin(), operands_.end(), [&](const Operand& operand) {
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
        for (const Names& path : paths_) {
            if (!Matches(path, &element) || ComesAtClose(path) != atClose || !BringsAnything(path, element) ||
                (path.empty() && AnyNamed()) || (atClose && IsJoint(path) != toItself))
                continue;
            Names joint = path;
            JointAbove(joint);
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
            for (std::size_t i = 0; i < operands_.size(); ++i)
                if (operands_[i].path == arrival.path) arrival.place.last[i] = value;
        }
        for (const Arrival& arrival : arrivals) Offer(arrival.place, arrival.joint, arrival.branch);
    }

    void RememberTexts(const Element& element) {
        for (const Names& path : paths_) {
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
        place.last.resize(operands_.size());
        return place;
    }

    // Rows ----------------------------------------------------------------------------------------------

    void MakeRow(const Names& joint, const Element* at, bool broughtAgain) {
        Place& place = PlaceOf(at, joint);
        Row row{joint, at, joint, joint, false, std::vector<Cell>(operands_.size())};
        for (auto& [branch, value] : place.fresh) {
            for (std::size_t i = 0; i < operands_.size() && value; ++i) {
                const bool isAbsent = operands_[i].kind == Kind::Attribute && Text(i, value).empty();
                if (operands_[i].path == place.freshPath[branch] && !(isAbsent && operands_[i].path.empty()))
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
        for (const Names& joint : joints_) {
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
        if (!JointAbove(joint)) return Conclude(row);
        row.at = Above(row.at, from.size() - joint.size());
        if (row.at == document_) return Conclude(row);
        row.joint = joint;
        row.cameFrom = Branch(joint, from);
        Place& place = PlaceOf(row.at, joint);
        for (const std::size_t i : OperandsOf(row.cameFrom, joint)) place.last[i] = row.cells[i].value;
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
                for (const std::size_t i : OperandsOf(branch, joint))
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
        for (std::size_t i = 0; i < operands_.size(); ++i) {
            if (!operands_[i].required || Has(row, i)) continue;
            if (operands_[i].kind != Kind::NodeEnd || !row.cells[i].value) return;
            const Element* const end = EndOf(i, row.cells[i].value->element);
            if (until == nullptr || DepthOf(end) > DepthOf(until)) until = end;
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
            const std::size_t i = operandOf_[column];
            const Value& value = row.cells[i].value;
            const std::string text = value && Has(row, i) ? Text(i, value) : "";
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
        for (std::size_t i = 0; i < operands_.size(); ++i) {
            if (row.cells[i].Holds()) continue;
            const Names& path = operands_[i].path;
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
        if (operands_[i].path.size() > row.joint.size()) return;  // it has closed
        const Element* const element = Above(row.at, row.joint.size() - operands_[i].path.size());
        const Value value = BroughtBy(*element, operands_[i].path);
        if (operands_[i].kind == Kind::NodeEnd || IsKnown(i, value)) row.cells[i] = {value};
    }

    bool FindAround(std::size_t i, const Element* from, Cell& cell) {
        const auto& [kind, path, above, required] = operands_[i];
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
        if (kind == Kind::Text && (nearest != from || !IsKnown(i, value))) return false;
        cell = {value};
        return true;
    }

    // The branches of the root whose values the row gathered from inside, where all of them can be had
    // around.
    std::vector<std::vector<std::size_t>> LabelsFromInside(const Row& row, const Element* at) {
        std::vector<std::vector<std::size_t>> labels;
        for (const Names& branch : BranchesOf({})) {
            const auto operands = OperandsOf(branch, {});
            bool own = false, around = false, here = branch.empty();
            for (const std::size_t i : operands) {
                Cell cell;
                own |= row.cells[i].own;
                here |= operands_[i].kind == Kind::Text && operands_[i].path.size() == 1;
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
                for (const Names& branch : BranchesOf(joint)) {
                    const bool isItsOwn = branch == from && (!isFirst || from != joint);
                    if (isItsOwn || !HoldsNothingOf(before, joint, branch)) continue;
                    for (const std::size_t i : OperandsOf(branch, joint)) {
                        const Value& last = place.last[i];
                        if (last && (operands_[i].kind == Kind::NodeEnd || IsKnown(i, last)))
                            row.cells[i] = {last};
                    }
                }
            }
            const Names below = joint;
            if (joint.empty()) return;
            joint.pop_back();
            if (!JointAbove(joint)) return;
            at = Above(at, below.size() - joint.size());
            from = Branch(joint, below);
        }
    }

    static bool AnyWaits(const Place& place) {
        return std::any_of(place.waiting.begin(), place.waiting.end(), HoldsUnused);
    }

    // What a row has ------------------------------------------------------------------------------------

    static bool HoldsUnused(const Row& row) {
        return std::any_of(row.cells.begin(), row.cells.end(),
                           [](const Cell& cell) { return cell.own && cell.value && !cell.value->used; });
    }
    bool HoldsNothingOf(const Row& row, const Names& joint, const Names& branch) const {
        const auto operands = OperandsOf(branch, joint);
        return std::none_of(operands.begin(), operands.end(),
                            [&](std::size_t i) { return row.cells[i].Holds(); });
    }
    bool Has(const Row& row, std::size_t i) const {
        return row.cells[i].settled || (row.cells[i].value && IsKnown(i, row.cells[i].value));
    }
    bool LacksNothing(const Row& row) const {
        for (std::size_t i = 0; i < operands_.size(); ++i)
            if (!Has(row, i)) return false;
        return true;
    }

    static std::size_t DepthOf(const Element* element) {
        return element->parent == nullptr ? 0 : 1 + DepthOf(element->parent);
    }
    // With which element's close the value is known.
    const Element* EndOf(std::size_t i, const Element* element) const {
        const auto above = static_cast<std::size_t>(operands_[i].above);
        return above < DepthOf(element) ? Above(element, above) : element;
    }
    bool IsKnown(std::size_t i, const Value& value) const {
        if (operands_[i].kind == Kind::Text) return closing_.contains(value->element);
        return operands_[i].kind != Kind::NodeEnd || closing_.contains(EndOf(i, value->element));
    }
    std::string Text(std::size_t i, const Value& value) const {
        const Element& element = *value->element;
        switch (operands_[i].kind) {
            case Kind::Text: return element.text;
            case Kind::NodeNumber: return std::to_string(element.number);
            case Kind::Attribute: {
                const auto found = element.attributes.find(Column::kAttribute);
                return found == element.attributes.end() ? "" : found->second;
            }
            case Kind::NodeEnd: {
                const bool isAbove = static_cast<std::size_t>(operands_[i].above) < DepthOf(&element);
                return isAbove ? std::to_string(ends_.at(EndOf(i, &element))) : "0";
            }
        }
        return {};
    }

    const std::vector<Column>& columns_;
    std::vector<Operand> operands_;
    std::vector<std::size_t> operandOf_;  // by column
    std::vector<Names> paths_;            // all beginnings of paths
    std::vector<Names> joints_;           // the deepest first

    const Element* document_ = nullptr;
    const Element* arriving_ = nullptr;
    int last_ = 0;  // the number of the last element so far
    std::set<const Element*> closing_;
    std::map<const Element*, int> ends_;
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
