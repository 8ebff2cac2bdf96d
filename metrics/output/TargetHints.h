#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "metrics/output/Notices.h"

namespace Metrics::detail {

// Why targets of an output are going to stay empty without an error. Each reason is logged once in the life
// of a manager. Used under the output's lock.
class TargetHints {
  public:
    // Where hints go, to be told later.
    explicit TargetHints(std::vector<Notice>& notices) : notices_(notices) {}

    void OpenedTooLate(const std::string& destination, bool afterError);
    void TableWithoutDefinition(const std::string& destination);
    // A row definition was set, which tables that are open don't get.
    void DefinitionSet();
    void NoFileNames();
    void ContextZero();
    void NoRoot(std::uint64_t contextId);

    // A target for a context that should have begun, and of which nothing has arrived.
    void Await(std::uint64_t contextId) { awaited_.push_back({contextId, kCyclesToWait}); }
    // After a cycle, or when none follows. `stateOf` tells what is known of a context by now.
    enum class Arrival { Nothing, Arrived, NoRoot };
    template <class StateOf>
    void CheckAwaited(bool last, StateOf stateOf) {
        std::erase_if(awaited_, [&](Awaited& one) { return IsDecided(one, last, stateOf(one.contextId)); });
    }

  private:
    // The cycle in which the target opened may have begun before that; the next one has all that was posted.
    static constexpr int kCyclesToWait = 2;
    struct Awaited {
        std::uint64_t contextId;
        int cycles;
    };

    bool IsDecided(Awaited& one, bool last, Arrival arrival);
    void Add(Core::Hint hint, std::string text);

    std::vector<Notice>& notices_;
    std::vector<Awaited> awaited_;
    bool hasUndefinedTable_ = false;
};

}  // namespace Metrics::detail
