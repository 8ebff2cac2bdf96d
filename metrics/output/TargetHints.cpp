#include "metrics/output/TargetHints.h"

namespace Metrics::detail {

void TargetHints::Add(Core::Hint hint, std::string text) {
    notices_.push_back({Notice::Kind::Hint, "MetricsOutput: " + std::move(text), hint});
}

void TargetHints::OpenedTooLate(const std::string& destination, bool afterError) {
    Add(Core::ClosedOutput, destination + " is not written: the output " +
                                (afterError ? "has stopped after an error" : "is closed"));
}

void TargetHints::TableWithoutDefinition(const std::string& destination) {
    hasUndefinedTable_ = true;
    Add(Core::NoRowDefinition,
        destination + " stays empty: no row definition was set before it was opened (SetRowDefinition)");
}

void TargetHints::DefinitionSet() {
    if (!hasUndefinedTable_) return;
    Add(Core::LateRowDefinition,
        "the row definition was set after a table was opened, which stays empty: set it before");
}

void TargetHints::NoFileNames() {
    Add(Core::NoFileNames,
        "PerContext has no pattern for its files (SetWildcardedOutputFile), so none is written");
}

void TargetHints::ContextZero() {
    Add(Core::ContextZero,
        "a target for context 0 stays empty in this mode: there is no such root (contexts have id 0 while "
        "the "
        "manager is not collecting)");
}

void TargetHints::NoRoot(std::uint64_t contextId) {
    Add(Core::NoSuchRoot,
        "context " + std::to_string(contextId) +
            " is not a root, so nothing is written for it; it is part of its root's output");
}

bool TargetHints::IsDecided(Awaited& one, bool last, Arrival arrival) {
    if (arrival == Arrival::NoRoot) NoRoot(one.contextId);
    if (arrival != Arrival::Nothing) return true;
    if (--one.cycles > 0 && !last) return false;
    Add(Core::UnseenContext, "a target for context " + std::to_string(one.contextId) +
                                 " stays empty: the context has ended, is no root, or began before the "
                                 "output did");
    return true;
}

}  // namespace Metrics::detail
