#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace Metrics::detail {

// A tree of texts, each kept once below its parent: so the many ends of a long path take no more room than
// the path. With each text stands a note that does not tell it from others.
class GroupKeys {
  public:
    static constexpr std::uint32_t kNone = UINT32_MAX;
    // What one takes besides its texts, about.
    static constexpr std::size_t kOverhead = 48;

    // kNone when there is none.
    std::uint32_t Find(std::uint32_t parent, std::string_view key) const;
    // Of a key that was not found.
    std::uint32_t Add(std::uint32_t parent, std::string_view key, std::string_view note);

    std::size_t Size() const { return nodes_.size(); }
    std::uint32_t ParentOf(std::uint32_t node) const { return nodes_[node].parent; }
    std::string_view KeyOf(std::uint32_t node) const {
        return nodes_[node].text.substr(0, nodes_[node].keySize);
    }
    std::string_view NoteOf(std::uint32_t node) const {
        return nodes_[node].text.substr(nodes_[node].keySize);
    }

  private:
    struct Node {
        std::string_view text;  // the key, then the note
        std::size_t keySize;
        std::uint32_t parent;
        std::uint32_t hash;
    };

    std::size_t PlaceFor(std::uint32_t hash) const { return hash & (slots_.size() - 1); }
    void Grow();
    char* Allocate(std::size_t size);

    std::vector<Node> nodes_;
    std::vector<std::uint32_t> slots_ = std::vector<std::uint32_t>(16, kNone);  // open addressing, half full
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* free_ = nullptr;  // in the last block
    std::size_t freeSize_ = 0;
};

}  // namespace Metrics::detail
