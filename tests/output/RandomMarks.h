#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "tests/output/OutputFixture.h"

namespace Metrics::Testing {

// What marks meant: an element, a value, or the place of a child context among them (without a name).
struct Mark {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::string value;
    std::deque<Mark> inside;
    bool isElement = false;
};

inline std::string Quoted(const std::map<std::string, std::string>& attributes) {
    std::string text;
    for (const auto& [key, value] : attributes) text += " " + key + "=\"" + value + "\"";
    return text;
}

inline void AppendXml(std::string& text, const Mark& mark, std::size_t depth) {
    const std::string indent(2 * depth, ' ');
    if (mark.isElement) {
        text += indent + "<" + mark.name + Quoted(mark.attributes) + ">\n";
        for (const Mark& one : mark.inside) AppendXml(text, one, depth + 1);
        text += indent + "</" + mark.name + ">\n";
    } else if (mark.name.empty()) {
        for (const Mark& one : mark.inside) AppendXml(text, one, depth);
    } else {
        text += indent + "<" + mark.name + ">" + mark.value + "</" + mark.name + ">\n";
    }
}

// Contexts that do this and that by turns at random, closing scopes and one another in any order; the events
// of it as they arrive, and, plainly kept beside them, what they mean.
class RandomMarks {
  public:
    // `lateRoots`: roots, too, may run before their creation is posted.
    RandomMarks(std::uint32_t seed, int contexts, int steps, bool lateRoots = false)
        : random_(seed), lateRoots_(lateRoots) {
        CreateContext(nullptr);
        while (steps > 0 || !running_.empty()) {
            if (running_.empty() || (contexts > 0 && Pick(12) == 0)) {
                --contexts;
                CreateContext(nullptr);
            }
            Step(*running_[Pick(running_.size())], contexts, --steps);
        }
    }

    struct Event {
        MetricsEvent event;
        std::uint64_t endedRoot;  // that ends with this event, or 0
    };
    const std::vector<Event>& Events() const { return events_; }
    std::vector<MetricsEvent> Arrival() const {
        std::vector<MetricsEvent> events;
        for (const Event& one : events_) events.push_back(one.event);
        return events;
    }
    // What each context did up to its end.
    std::map<std::uint64_t, std::vector<MetricsEvent>> Steps() const {
        std::map<std::uint64_t, std::vector<MetricsEvent>> steps;
        for (const auto& [event, endedRoot] : events_) {
            auto& own = steps[event.contextId.AsUInt64()];
            if (own.empty() || own.back().Type() != MetricsEventType::ContextClose) own.push_back(event);
        }
        return steps;
    }
    std::vector<std::uint64_t> Roots() const {
        std::vector<std::uint64_t> ids;
        for (const auto& [id, root] : roots_) ids.push_back(id);
        return ids;
    }
    const Mark& Of(std::uint64_t root) const { return roots_.at(root); }
    std::string Xml(std::uint64_t root) const {
        std::string text;
        AppendXml(text, Of(root), 0);
        return text;
    }

  private:
    struct Actor {
        std::uint64_t id;
        std::uint64_t root;
        std::uint64_t parent;
        Mark* place;  // of it
        std::vector<std::pair<std::uint32_t, Mark*>> open;
        std::vector<std::uint32_t> ended;   // scopes
        std::deque<MetricsEvent> unposted;  // other contexts may come between
        bool isConstructed = false;
        Mark* Innermost() const { return open.empty() ? place : open.back().second; }
    };

    std::size_t Pick(std::size_t below) { return random_() % below; }

    void Post(std::uint64_t context, MetricsEventType type, MetricsValue first, MetricsValue second,
              std::uint32_t sequence = 0) {
        events_.push_back({MetricsEvent(Opaque64(MetricsEvent::PackHeader(type, 7, sequence)), context,
                                        MetricsDateTime(kNoon), std::move(first), std::move(second)),
                           0});
    }

    // A root may begin where another one's context is current. What is created may run before that is known.
    void CreateContext(Actor* parent) {
        const std::uint64_t id = ++lastId_;
        Actor* const current =
            parent != nullptr || running_.empty() ? parent : running_[Pick(running_.size())].get();
        Mark* const place = parent != nullptr ? &parent->Innermost()->inside.emplace_back() : &roots_[id];
        const std::uint64_t parentId = parent != nullptr ? parent->id : 0;
        const std::uint64_t root = parent != nullptr ? parent->root : id;
        running_.push_back(std::make_unique<Actor>(Actor{id, root, parentId, place, {}, {}, {}}));
        ++open_[root];
        Post(current != nullptr ? current->id : 0, MetricsEventType::ContextCreate, parentId, id);
        if (current == nullptr || (parent == nullptr && !lateRoots_) || Pick(4) != 0) return;
        current->unposted.push_back(events_.back().event);
        events_.pop_back();
    }

    void Step(Actor& actor, int& contexts, int steps) {
        if (!actor.isConstructed) {
            actor.isConstructed = true;
            return Post(actor.id, MetricsEventType::ContextConstruct, actor.parent, actor.id);
        }
        if (!actor.unposted.empty()) {
            events_.push_back({std::move(actor.unposted.front()), 0});
            return actor.unposted.pop_front();
        }
        const std::size_t choice = steps > 0 ? Pick(20) : 19;
        if (choice < 5) return OpenScopeOf(actor);
        if (choice < 9) return CloseScopeOf(actor);
        if (choice < 10 && contexts > 0) {
            --contexts;
            return CreateContext(&actor);
        }
        if (choice < 18) return AddValue(actor);
        if (choice == 19 && (steps <= 0 || Pick(3) == 0)) CloseContext(actor);
    }

    void OpenScopeOf(Actor& actor) {
        const std::uint32_t number = ++lastNumber_;
        Mark& mark = actor.Innermost()->inside.emplace_back();
        mark.isElement = true;
        mark.name = "s" + std::to_string(number % 5);
        mark.attributes["id"] = std::to_string(number);
        if (Pick(4) == 0) mark.attributes["part"] = "mine";
        for (const auto& [key, value] : mark.attributes)
            Post(actor.id, MetricsEventType::NameValue, key, value);
        Post(actor.id, MetricsEventType::ScopeOpen, mark.name, 0, number);
        for (auto event = events_.end() - static_cast<long>(mark.attributes.size()); event != events_.end();
             ++event)
            actor.unposted.push_back(event->event);
        events_.resize(events_.size() - actor.unposted.size());
        actor.open.emplace_back(number, &mark);
    }

    // Mostly the innermost; sometimes one further out, or one that is closed already.
    void CloseScopeOf(Actor& actor) {
        if (actor.open.empty() || Pick(12) == 0) {
            if (!actor.ended.empty()) PostClose(actor, actor.ended[Pick(actor.ended.size())]);
            return;
        }
        const std::size_t at = Pick(8) == 0 ? Pick(actor.open.size()) : actor.open.size() - 1;
        PostClose(actor, actor.open[at].first);
        while (actor.open.size() > at) {
            actor.ended.push_back(actor.open.back().first);
            actor.open.pop_back();
        }
    }
    void PostClose(Actor& actor, std::uint32_t number) {
        Post(actor.id, MetricsEventType::ScopeClose, "s" + std::to_string(number % 5), 0, number);
    }

    void AddValue(Actor& actor) {
        Mark& mark = actor.Innermost()->inside.emplace_back();
        mark.name = "v";
        mark.value = std::to_string(++lastValue_) + std::string(Pick(4) == 0 ? Pick(200) : 0, 'x');
        Post(actor.id, MetricsEventType::ScopeValue, mark.name, mark.value);
    }

    // Its scopes may be open, and its children; a mark of it that comes later is left out.
    void CloseContext(Actor& actor) {
        Post(actor.id, MetricsEventType::ContextClose, 0, 0);
        if (--open_[actor.root] == 0) events_.back().endedRoot = actor.root;
        if (Pick(4) == 0 && !actor.open.empty()) PostClose(actor, actor.open.back().first);
        std::erase_if(running_, [&](const auto& one) { return one.get() == &actor; });
    }

    std::mt19937 random_;
    const bool lateRoots_;
    std::uint64_t lastId_ = 0;
    std::uint32_t lastNumber_ = 0;
    std::int64_t lastValue_ = 0;
    std::vector<std::unique_ptr<Actor>> running_;
    std::map<std::uint64_t, int> open_;  // contexts of each root
    std::map<std::uint64_t, Mark> roots_;
    std::vector<Event> events_;
};

}  // namespace Metrics::Testing
