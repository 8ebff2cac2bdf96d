#pragma once

#include <algorithm>
#include <atomic>
#include <iostream>
#include <mutex>
#include <vector>

#include "metrics/MetricsEvent.h"
#include "metrics/Scope.h"

namespace Metrics::Testing {

/// The marks of one thread: numbers 1, 2, 3 ..., posted by that thread and received on workers.
struct Account {
    std::uint64_t posted = 0;
    std::vector<std::uint64_t> unsure;  // posted while the manager was not surely running: may be dropped
    std::uint64_t last = 0;             // received
    std::vector<std::uint64_t> missing;
    bool wrongOrder = false;
};

/// What was posted and what arrived, for a manager that is started and stopped while threads post.
class Ledger {
  public:
    explicit Ledger(std::size_t threads) : accounts_(threads) {}

    /// From one call to the other every mark must arrive. By one thread.
    void Started() { ++phase_; }
    void BeforeShutdown() { ++phase_; }

    /// Posts the next mark of thread `index`, which alone calls this with that index.
    void Post(std::size_t index, Scope& scope) {
        Account& account = accounts_[index];
        const std::uint64_t number = account.posted + 1;
        const unsigned before = phase_;
        if (!scope.Emit(FourCC("mark"), static_cast<std::int64_t>(number << 8 | index))) return;
        account.posted = number;
        if (phase_ != before || before % 2 != 0) account.unsure.push_back(number);
    }

    /// A subscriber's callback.
    void Receive(const std::vector<MetricsEvent>& batch) {
        const std::lock_guard lock(mutex_);
        for (const MetricsEvent& event : batch) {
            if (event.Type() == MetricsEventType::ScopeValue &&
                event.param1 == MetricsValue(FourCC("mark"))) {
                ReceiveMark(event.param2.AsUInt64());
            }
        }
    }

    /// Excuses what is missing so far, though not a wrong order.
    void Forgive() {
        const std::lock_guard lock(mutex_);
        forgiven_ = true;
    }

    std::uint64_t Received() const {
        const std::lock_guard lock(mutex_);
        return received_;
    }

    /// At the end, when nobody posts any more and everything has been delivered: true if each mark arrived
    /// once and in order, and no mark is missing that was not uncertain.
    bool Balances() {
        bool good = true;
        for (Account& account : accounts_) {
            for (std::uint64_t lost = account.last + 1; lost <= account.posted; ++lost)
                account.missing.push_back(lost);
            const bool excused = forgiven_ || std::includes(account.unsure.begin(), account.unsure.end(),
                                                            account.missing.begin(), account.missing.end());
            const bool known = account.last <= account.posted;
            std::cout << "  thread " << &account - accounts_.data() << ": posted " << account.posted
                      << ", uncertain " << account.unsure.size() << ", missing " << account.missing.size()
                      << (account.wrongOrder ? ", OUT OF ORDER" : "") << (excused ? "" : ", LOST")
                      << (known ? "" : ", NEVER POSTED") << '\n';
            good = good && excused && known && !account.wrongOrder;
        }
        return good;
    }

  private:
    void ReceiveMark(std::uint64_t mark) {
        Account& account = accounts_[mark & 0xFF];
        const std::uint64_t number = mark >> 8;
        if (number <= account.last) {
            account.wrongOrder = true;
            return;
        }
        for (std::uint64_t lost = account.last + 1; lost < number; ++lost) account.missing.push_back(lost);
        account.last = number;
        ++received_;
    }

    std::vector<Account> accounts_;
    std::atomic<unsigned> phase_{1};  // odd while the manager may not run
    mutable std::mutex mutex_;
    std::uint64_t received_ = 0;
    bool forgiven_ = false;
};

}  // namespace Metrics::Testing
