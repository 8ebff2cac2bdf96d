#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "metrics/Export.h"
#include "metrics/MetricsFilter.h"

namespace Metrics {

/// What an entry of the bits map is: one of Name and Mnemonic together with one of the others.
enum class MetricsBitFlags : std::uint32_t {
    Name = 0x01,       ///< The text is a display name.
    Mnemonic = 0x02,   ///< The text is a mnemonic.
    Subscope = 0x20,   ///< The bit selects a measurement of scopes.
    Component = 0x40,  ///< The bit is a component.
    Filter = 0x80,     ///< The bit is a filter.
};

constexpr MetricsBitFlags operator|(MetricsBitFlags left, MetricsBitFlags right) {
    return static_cast<MetricsBitFlags>(static_cast<std::uint32_t>(left) | static_cast<std::uint32_t>(right));
}

/// Whether the two share a bit.
constexpr bool Intersect(MetricsBitFlags left, MetricsBitFlags right) {
    return (static_cast<std::uint32_t>(left) & static_cast<std::uint32_t>(right)) != 0;
}

/// Human words for the bits of the enable mask: mnemonics for configuration text, names for reports. The
/// table is built once, at first use, and never changes; any thread may call anything here.
class METRICS_API MetricsBitsUtils {
  public:
    using BitsMap = std::map<std::pair<std::string, MetricsBitFlags>, unsigned long long>;

    MetricsBitsUtils() = delete;

    /// The filters of the file filters.xml beside the executable, in the order of the file; none when there
    /// is no such file, or when its path is too long. Reads the file at each call. An element with a value is
    /// a filter; one without a value that has elements inside is a group. Throws std::runtime_error, with the
    /// file and the line: "empty filter value in " for any other element that has a name, a mnemonic or a
    /// symbol, and what the reader says of what is no XML.
    static std::vector<MetricsFilter> GetFilters();

    /// Text and flags of every entry with its mask: the built-in ones and two for each filter. Lives as long
    /// as the library. What is wrong with filters.xml is thrown once, by the first call; there are only the
    /// built-in entries then.
    static const BitsMap& GetMetricsBitsMap();

    /// The mask of one mnemonic, 0 when unknown; the first unknown one is logged. Only the last character of
    /// a text of odd length may be given in upper case.
    static unsigned long long GetMetricsBitFromMnemonic(const std::string& mnemonic);

    /// The masks of all mnemonics of a list, combined. Commas and line ends separate, white space around a
    /// mnemonic does not matter, what starts with "#" is a comment, unknown mnemonics add nothing (those of
    /// the first list that has any are logged).
    ///
    ///     manager.SetBits(MetricsBitsUtils::GetMetricsBitsFromMnemonicList("time, mem"), true);
    static unsigned long long GetMetricsBitsFromMnemonicList(const std::string& list);

    /// The mnemonic or the display name of the first entry, in text order, whose low twelve bits are `id`;
    /// that of component 1 when there is none.
    static std::string GetComponentName(unsigned long long id, bool mnemonic);

    /// Text and mask of every entry that has any bit of `flag`.
    static std::map<std::string, unsigned long long> GetMetricsBitMapWithFlag(MetricsBitFlags flag);

    /// The mnemonics or the display names whose masks meet `bits`, in text order, separated by commas. The
    /// entry for all filters is left out.
    static std::string GetMetricsNameListFromBits(unsigned long long bits, bool mnemonic);
};

}  // namespace Metrics
