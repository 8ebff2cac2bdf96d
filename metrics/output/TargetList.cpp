#include "metrics/output/TargetList.h"

#include <algorithm>
#include <exception>

#include "metrics/output/OutputFile.h"

namespace Metrics::detail {

namespace {

bool OpenedBefore(const OutputTarget* a, const OutputTarget* b) {
    return a->number < b->number;
}

// Where contexts share a stream, each one's lines of a batch stay together.
bool HandsOverBefore(const OutputTarget* a, const OutputTarget* b) {
    if (a->audience->contextId != b->audience->contextId)
        return a->audience->contextId < b->audience->contextId;
    return OpenedBefore(a, b);
}

}  // namespace

template <class Action>
void TargetList::Try(OutputTarget& target, Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        Fail(target, error.what());
    } catch (...) {
        Fail(target, "unknown exception");
    }
}

void TargetList::Fail(OutputTarget& target, const char* reason) {
    if (target.failed) return;
    target.failed = true;
    const std::string destination = target.file != nullptr
                                        ? target.file->Name()
                                        : "context " + std::to_string(target.audience->contextId);
    problems_.push_back("failed to write to " + destination + ": " + reason);
}

void TargetList::CheckStream(OutputTarget& target) {
    if (target.stream == nullptr || *target.stream) return;
    const std::string reason = target.file != nullptr ? target.file->Failure() : std::string();
    Fail(target, reason.empty() ? "the stream failed" : reason.c_str());
}

OutputTarget& TargetList::Open(std::uint64_t contextId, OutputTarget target) {
    target.writer->Begin();
    const auto added = targets_.emplace(lastNumber_ + 1, std::move(target)).first;
    try {
        Audience& audience = AudienceFor(contextId);
        audience.targets.push_back(&added->second);
        added->second.audience = &audience;
    } catch (...) {
        targets_.erase(added);
        throw;
    }
    added->second.number = ++lastNumber_;
    CheckStream(added->second);
    return added->second;
}

Audience& TargetList::AudienceFor(std::uint64_t contextId) {
    return audiences_.try_emplace(contextId, Audience{contextId, {}}).first->second;
}

void TargetList::Write(OutputTarget& target, std::span<const MetricsEvent> events) {
    if (target.failed) return;
    Try(target, [&] {
        if (target.flushPlace == 0 && target.stream != nullptr) WantFlush(target);
        for (const MetricsEvent& event : events) target.writer->Write(event);
    });
}

void TargetList::WriteRows(Audience& audience, std::uint64_t root, std::span<const MetricsEvent> events) {
    for (OutputTarget* target : audience.targets) {
        Try(*target, [&] { target->writer->TurnTo(root); });
        Write(*target, events);
    }
}

void TargetList::EndTable(Audience& audience, std::uint64_t root) {
    for (OutputTarget* target : audience.targets) {
        if (target->failed) continue;
        Try(*target, [&] { target->writer->EndTable(root); });
    }
}

void TargetList::Interrupt(Audience& audience) {
    for (OutputTarget* target : audience.targets) {
        if (target->failed) continue;
        Try(*target, [&] { target->writer->Interrupt(); });
    }
}

void TargetList::WantFlush(OutputTarget& target) {
    toFlush_.push_back(&target);
    target.flushPlace = toFlush_.size();
}

void TargetList::ForgoFlush(OutputTarget& target) {
    if (target.flushPlace == 0) return;
    OutputTarget* const last = toFlush_.back();
    toFlush_[target.flushPlace - 1] = last;
    last->flushPlace = target.flushPlace;
    toFlush_.pop_back();
    target.flushPlace = 0;
}

void TargetList::Flush() {
    std::sort(toFlush_.begin(), toFlush_.end(), HandsOverBefore);
    for (OutputTarget* target : toFlush_) {
        target->flushPlace = 0;
        if (target->failed) continue;
        Try(*target, [&] { target->writer->Flush(); });
        CheckStream(*target);
    }
    toFlush_.clear();
}

void TargetList::Mark(Audience& audience) {
    for (OutputTarget* target : audience.targets) {
        if (target->marked) continue;
        marked_.push_back(target);
        target->marked = true;
    }
}

void TargetList::MarkAll() {
    for (auto& [contextId, audience] : audiences_) Mark(audience);
}

std::vector<ClosedTarget> TargetList::CloseMarked() {
    std::vector<ClosedTarget> closed;
    std::sort(marked_.begin(), marked_.end(), OpenedBefore);
    for (OutputTarget* target : marked_) closed.push_back(Close(*target));
    marked_.clear();
    return closed;
}

ClosedTarget TargetList::Close(OutputTarget& target) {
    ForgoFlush(target);  // End does the same
    if (!target.failed) {
        Try(target, [&] { target.writer->End(); });
        CheckStream(target);
        CloseFile(target);
    }
    Audience& audience = *target.audience;
    audience.targets.erase(std::find(audience.targets.begin(), audience.targets.end(), &target));
    ClosedTarget closed{audience.contextId, audience.targets.empty(), target.writer->TakeBuffer()};
    if (closed.wasLast) audiences_.erase(closed.contextId);
    targets_.erase(target.number);
    return closed;
}

void TargetList::CloseFile(OutputTarget& target) {
    if (target.file == nullptr || !target.owned) return;
    Try(target, [&] { target.file->Close(); });
    CheckStream(target);
}

}  // namespace Metrics::detail
