#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Metrics::detail {

class BringPool;

// What one element brings for the operands of one pattern node. Its fields are one value: a row that holds
// any of them uses them all.
struct Bring {
    // Lost: it was too long. A row that holds it uses up what else it holds and is not written.
    enum class FieldState : std::uint8_t { Unknown, Absent, Known, Lost };
    struct Field {
        FieldState state = FieldState::Unknown;
        std::string text;
        // While the element is open: the nearest of it and the matching elements around that has this
        // attribute.
        Bring* nearest = nullptr;
    };

    BringPool* pool = nullptr;
    std::uint32_t references = 0;
    std::uint32_t level = 0;  // of its element; a top element has 1
    bool used = false;        // a row that holds it was written or rejected
    bool isArriving = false;  // rows are made of what came before it
    std::vector<Field> fields;
};

// A counted reference; for one thread.
class BringRef {
  public:
    BringRef() = default;
    explicit BringRef(Bring* bring) : bring_(bring) { Take(); }
    BringRef(const BringRef& other) : bring_(other.bring_) { Take(); }
    BringRef(BringRef&& other) noexcept : bring_(std::exchange(other.bring_, nullptr)) {}
    BringRef& operator=(BringRef other) noexcept {
        std::swap(bring_, other.bring_);
        return *this;
    }
    ~BringRef() {
        if (bring_ != nullptr && --bring_->references == 0) Recycle(bring_);
    }

    Bring* get() const { return bring_; }
    Bring* operator->() const { return bring_; }
    explicit operator bool() const { return bring_ != nullptr; }

  private:
    void Take() {
        if (bring_ != nullptr) ++bring_->references;
    }
    static inline void Recycle(Bring* bring);

    Bring* bring_ = nullptr;
};

// Keeps what is done with for the next element, so that reading allocates nothing once it has warmed up.
// Must outlive every reference.
class BringPool {
  public:
    BringRef Take(std::uint32_t level, std::size_t fields) {
        if (free_.empty()) Grow();
        Bring* const bring = free_.back();
        if (bring->fields.size() != fields) bring->fields.resize(fields);
        free_.pop_back();
        bring->level = level;
        bring->used = bring->isArriving = false;
        return BringRef(bring);
    }

  private:
    friend class BringRef;
    void Grow();
    void Release(Bring* bring) {
        constexpr std::size_t kKeptCapacity = 4096;  // one huge value must not stay for ever
        for (Bring::Field& field : bring->fields) {
            field.state = Bring::FieldState::Unknown;
            field.nearest = nullptr;
            field.text.clear();
            if (field.text.capacity() > kKeptCapacity) field.text = std::string();
        }
        free_.push_back(bring);  // there is room: Grow() saw to it
    }

    std::vector<std::unique_ptr<Bring>> all_;
    std::vector<Bring*> free_;
};

inline void BringRef::Recycle(Bring* bring) {
    bring->pool->Release(bring);
}

}  // namespace Metrics::detail
