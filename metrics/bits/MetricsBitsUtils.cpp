#include "metrics/MetricsBitsUtils.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <fstream>
#include <vector>

#include "metrics/bits/BitsTable.h"
#include "metrics/bits/Filters.h"

namespace Metrics {

namespace {

// Mnemonics are lower-cased as if their bytes were 16-bit characters. A pair of bytes is never a Latin
// capital; only a last odd byte, paired with the terminating NUL, can be one.
std::string LowerCasePairwise(std::string text) {
    if (text.size() % 2 == 1 && text.back() >= 'A' && text.back() <= 'Z')
        text.back() = static_cast<char>(text.back() - 'A' + 'a');
    return text;
}

// 0 when there is no such mnemonic.
unsigned long long FindMnemonic(const std::string& mnemonic) {
    const std::string wanted = LowerCasePairwise(mnemonic);
    const MetricsBitsUtils::BitsMap& table = detail::BitsTable();
    for (auto entry = table.lower_bound({wanted, MetricsBitFlags{}});
         entry != table.end() && entry->first.first == wanted; ++entry)
        if (Intersect(entry->first.second, MetricsBitFlags::Mnemonic)) return entry->second;
    return 0;
}

MetricsBitFlags TextKind(bool mnemonic) {
    return mnemonic ? MetricsBitFlags::Mnemonic : MetricsBitFlags::Name;
}

}  // namespace

std::vector<MetricsFilter> MetricsBitsUtils::GetFilters() {
    const std::string path = detail::FilterFilePath();
    if (path.empty()) return {};
    std::ifstream file(path, std::ios::binary);
    if (!file) return {};
    return detail::ReadFilters(file, path);
}

const MetricsBitsUtils::BitsMap& MetricsBitsUtils::GetMetricsBitsMap() {
    detail::ThrowFilterErrorOnce();
    return detail::BitsTable();
}

unsigned long long MetricsBitsUtils::GetMetricsBitFromMnemonic(const std::string& mnemonic) {
    const unsigned long long bits = FindMnemonic(mnemonic);
    if (bits == 0) detail::TellUnknownMnemonics(mnemonic);
    return bits;
}

unsigned long long MetricsBitsUtils::GetMetricsBitsFromMnemonicList(const std::string& list) {
    std::vector<std::string> tokens;
    boost::algorithm::split(tokens, list, boost::algorithm::is_any_of(",\r\n"));
    unsigned long long bits = 0;
    std::string unknown;
    for (std::string& token : tokens) {
        boost::algorithm::trim(token);
        if (token.empty() || token.front() == '#') continue;
        const unsigned long long found = FindMnemonic(token);
        if (found == 0) unknown.append(unknown.empty() ? "" : ", ").append(token);
        bits |= found;
    }
    detail::TellUnknownMnemonics(unknown);
    return bits;
}

// The group is not asked for, so that id 0 finds the first entry that is no component.
std::string MetricsBitsUtils::GetComponentName(unsigned long long id, bool mnemonic) {
    for (const auto& [key, mask] : detail::BitsTable())
        if (Intersect(key.second, TextKind(mnemonic)) && (mask & detail::kComponentMask) == id)
            return key.first;
    return GetComponentName(1, mnemonic);
}

std::map<std::string, unsigned long long> MetricsBitsUtils::GetMetricsBitMapWithFlag(MetricsBitFlags flag) {
    std::map<std::string, unsigned long long> found;
    for (const auto& [key, mask] : detail::BitsTable())
        if (Intersect(key.second, flag)) found[key.first] = mask;
    return found;
}

std::string MetricsBitsUtils::GetMetricsNameListFromBits(unsigned long long bits, bool mnemonic) {
    std::string list;
    for (const auto& [text, mask] : GetMetricsBitMapWithFlag(TextKind(mnemonic))) {
        if ((mask & bits) == 0 || mask == detail::kAllFilters) continue;
        if (!list.empty()) list += ',';
        list += text;
    }
    return list;
}

}  // namespace Metrics
