#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/output/EventMaking.h"

namespace Metrics::Testing {

// Trees of contexts grown at random, and their events in two orders: as threads may post them, and as they
// are to come out. Each context does its steps in order; a child may run at any time once it has been
// created, also after its parent has closed.
class RandomForest {
  public:
    RandomForest(std::uint32_t seed, int contexts) : random_(seed), budget_(contexts) {
        while (budget_ > 0) Grow(0, nullptr);
    }

    const std::vector<std::uint64_t>& Roots() const { return roots_; }

    // One of the orders in which threads can post everything.
    std::vector<MetricsEvent> Arrival() {
        std::vector<MetricsEvent> events;
        std::vector<std::uint64_t> running;
        std::map<std::uint64_t, std::size_t> position;
        std::deque<std::uint64_t> outside(rootsOutside_.begin(), rootsOutside_.end());
        while (!running.empty() || !outside.empty()) {
            if (!outside.empty() && (running.empty() || Pick(8) == 0)) {
                events.push_back(Create(0, outside.front()));
                running.push_back(outside.front());
                outside.pop_front();
                continue;
            }
            const std::size_t index = Pick(running.size());
            const std::uint64_t id = running[index];
            const Step& step = steps_.at(id)[position[id]++];
            events.push_back(step.event);
            if (position[id] == steps_.at(id).size())
                running.erase(running.begin() + static_cast<long>(index));
            if (step.begins != 0) running.push_back(step.begins);
        }
        return events;
    }

    // The tree of one root, walked in order.
    std::vector<std::string> Walk(std::uint64_t root) const {
        std::vector<std::string> briefs;
        WalkInto(root, briefs);
        return briefs;
    }

  private:
    struct Step {
        MetricsEvent event;
        std::uint64_t begins = 0;  // a context that may run from here on
        bool nested = false;       // and whose output stands here
    };

    std::size_t Pick(std::size_t below) { return random_() % below; }

    std::uint64_t Grow(std::uint64_t parent, std::vector<Step>* inside) {
        const std::uint64_t id = ++lastId_;
        --budget_;
        if (parent == 0) {
            roots_.push_back(id);
            if (inside == nullptr) rootsOutside_.push_back(id);
        }
        std::vector<Step> steps;
        steps.push_back({Construct(parent, id)});
        for (std::size_t left = Pick(12); left != 0; --left) AddStep(id, steps);
        steps.push_back({Close(id)});
        steps_[id] = std::move(steps);
        return id;
    }

    void AddStep(std::uint64_t id, std::vector<Step>& steps) {
        const std::size_t choice = Pick(8);
        if (choice < 2 && budget_ > 0) {
            const std::uint64_t child = Grow(id, &steps);
            steps.push_back({Create(id, child), child, true});
        } else if (choice == 2 && budget_ > 0) {
            const std::uint64_t root = Grow(0, &steps);
            steps.push_back({CreateRootIn(id, root), root, false});
        } else if (choice == 3) {
            steps.push_back({OpenScope(id, "s")});
            steps.push_back({CloseScope(id, "s")});
        } else {
            steps.push_back({Value(id, "v", ++lastValue_)});
        }
    }

    void WalkInto(std::uint64_t id, std::vector<std::string>& briefs) const {
        for (const Step& step : steps_.at(id)) {
            briefs.push_back(Brief(step.event));
            if (step.nested) WalkInto(step.begins, briefs);
        }
    }

    std::mt19937 random_;
    int budget_;
    std::uint64_t lastId_ = 0;
    std::int64_t lastValue_ = 0;
    std::vector<std::uint64_t> roots_;
    std::vector<std::uint64_t> rootsOutside_;  // created where no context is current
    std::map<std::uint64_t, std::vector<Step>> steps_;
};

}  // namespace Metrics::Testing
