#include "metrics/bits/BitsTable.h"

#include <atomic>
#include <exception>

#include "metrics/base/OnePerProcess.h"

namespace Metrics::detail {

namespace {

struct BuiltIn {
    const char* mnemonic;
    const char* name;
    MetricsBitFlags group;
    unsigned long long mask;
};

constexpr BuiltIn kBuiltIn[] = {
    {"mem", "Memory", MetricsBitFlags::Subscope, 0x200000},
    {"time", "ElapsedTime", MetricsBitFlags::Subscope, 0x100000},
    {"wall", "WallTime", MetricsBitFlags::Subscope, 0x800000},
    {"loc", "Location", MetricsBitFlags::Filter, 0x400000},
    {"core", "Corvane Core", MetricsBitFlags::Component, 0x1},
    {"desk", "Corvane Desktop", MetricsBitFlags::Component, 0x2},
    {"serv", "Corvane Server", MetricsBitFlags::Component, 0x4},
    {"cde", "Data Engine", MetricsBitFlags::Component, 0x8},
    {"proto", "Protocol Server", MetricsBitFlags::Component, 0x10},
    {"test", "Corvane Tests", MetricsBitFlags::Component, 0x20},
    {"tool", "Corvane Tools", MetricsBitFlags::Component, 0x40},
    {"browser", "Browser App", MetricsBitFlags::Component, 0x80},
    {"all", "AllFilters", MetricsBitFlags::Filter, kAllFilters},
};

// emplace keeps what is there: the first entry of a text and its flags stays.
void AppendBuiltIn(MetricsBitsUtils::BitsMap& table) {
    for (const BuiltIn& entry : kBuiltIn) {
        table.emplace(std::pair(entry.mnemonic, MetricsBitFlags::Mnemonic | entry.group), entry.mask);
        table.emplace(std::pair(entry.name, MetricsBitFlags::Name | entry.group), entry.mask);
    }
}

void AppendFilters(MetricsBitsUtils::BitsMap& table) {
    for (const MetricsFilter& filter : MetricsBitsUtils::GetFilters()) {
        table.emplace(std::pair(filter.mnemonic, MetricsBitFlags::Mnemonic | MetricsBitFlags::Filter),
                      filter.bit);
        table.emplace(std::pair(filter.name, MetricsBitFlags::Name | MetricsBitFlags::Filter), filter.bit);
    }
}

struct Built {
    Built() {
        AppendBuiltIn(table);
        try {
            AppendFilters(table);
        } catch (...) {
            error = std::current_exception();
        }
    }

    MetricsBitsUtils::BitsMap table;
    std::exception_ptr error;
    std::atomic<bool> errorTold = false;
};

// Never destroyed, since a thread may still ask for a name while the process exits, and made without a lock,
// which the child of a fork could find taken for ever.
constinit OnePerProcess<Built> theTable;

constinit std::atomic<UnknownMnemonicHandler> unknownMnemonicHandler{nullptr};

Built& TheTable() {
    return theTable.Get();
}

}  // namespace

const MetricsBitsUtils::BitsMap& BitsTable() {
    return TheTable().table;
}

std::exception_ptr FilterError() {
    return TheTable().error;
}

void ThrowFilterErrorOnce() {
    Built& built = TheTable();
    if (built.error && !built.errorTold.exchange(true)) std::rethrow_exception(built.error);
}

void SetUnknownMnemonicHandler(UnknownMnemonicHandler handler) {
    unknownMnemonicHandler = handler;
}

void TellUnknownMnemonics(const std::string& mnemonics) {
    const UnknownMnemonicHandler handler = unknownMnemonicHandler;
    if (handler != nullptr && !mnemonics.empty()) handler(mnemonics);
}

}  // namespace Metrics::detail
