#include "metrics/bits/Filters.h"

#include <algorithm>
#include <array>
#include <istream>
#include <limits>
#include <stdexcept>

#include "metrics/platform/Platform.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/reader/XmlText.h"
#include "metrics/rows/Numbers.h"

namespace Metrics::detail {
namespace {

// Collects the filters of a file. What the elements are called, and how they nest, does not matter.
class FilterHandler final : public StreamingXml::XmlHandler {
  public:
    explicit FilterHandler(std::string path) : path_(std::move(path)) {}

    void OpenElement(std::string_view, std::span<const StreamingXml::XmlAttribute> attributes,
                     std::uint64_t) override {
        ++depth_;
        const auto wanted = {"value", "name", "mnemonic", "symbol"};
        const bool isFilter = std::any_of(attributes.begin(), attributes.end(), [&](const auto& attribute) {
            return std::find(wanted.begin(), wanted.end(), attribute.name) != wanted.end();
        });
        if (isFilter) Add(attributes);
    }
    void Text(std::string_view) override {}
    bool CloseElement() override { return depth_-- > 0; }

    std::vector<MetricsFilter> filters;

  private:
    static std::string ValueOf(std::span<const StreamingXml::XmlAttribute> attributes,
                               std::string_view name) {
        std::string value;
        const auto found = std::find_if(attributes.begin(), attributes.end(),
                                        [&](const auto& attribute) { return attribute.name == name; });
        if (found != attributes.end()) StreamingXml::AppendUnescaped(value, found->value);
        return value;
    }

    void Add(std::span<const StreamingXml::XmlAttribute> attributes) {
        const std::string value = ValueOf(attributes, "value");
        if (value.empty()) throw std::runtime_error("empty filter value in " + path_);
        MetricsFilter filter;
        using Limits = std::numeric_limits<std::int32_t>;
        filter.value = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(LeadingInteger(value), Limits::min(), Limits::max()));
        filter.bit = 1ULL << (filter.value & 63);
        filter.name = ValueOf(attributes, "name");
        filter.mnemonic = ValueOf(attributes, "mnemonic");
        filter.symbol = ValueOf(attributes, "symbol");
        if (!filter.name.empty() && !filter.mnemonic.empty()) filters.push_back(std::move(filter));
    }

    std::string path_;
    std::int64_t depth_ = 0;
};

}  // namespace

std::string FilterFilePath() {
    const std::string executable = platform::ExecutablePath();
    if (executable.empty()) return {};
    const platform::PathParts parts = platform::SplitPath(executable);
    return std::string(parts.drive).append(parts.directory) + "filters.xml";
}

std::vector<MetricsFilter> ReadFilters(std::istream& in, const std::string& path) {
    FilterHandler handler(path);
    StreamingXml::XmlScanner scanner(handler);
    std::array<char, 4096> block;
    while (in.good()) {
        in.read(block.data(), block.size());
        scanner.Feed({block.data(), static_cast<std::size_t>(in.gcount())});
    }
    scanner.End();
    return std::move(handler.filters);
}

}  // namespace Metrics::detail
