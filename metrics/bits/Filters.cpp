#include "metrics/bits/Filters.h"

#include <algorithm>
#include <array>
#include <istream>
#include <limits>
#include <stdexcept>

#include "metrics/RowDefinitionError.h"
#include "metrics/platform/Platform.h"
#include "metrics/reader/XmlScanner.h"
#include "metrics/reader/XmlText.h"
#include "metrics/rows/Numbers.h"

namespace Metrics::detail {
namespace {

using Attributes = std::span<const StreamingXml::XmlAttribute>;

const StreamingXml::XmlAttribute* Find(Attributes attributes, std::string_view name) {
    const auto found = std::find_if(attributes.begin(), attributes.end(),
                                    [&](const auto& attribute) { return attribute.name == name; });
    return found != attributes.end() ? &*found : nullptr;
}

std::string ValueOf(Attributes attributes, std::string_view name) {
    std::string value;
    if (const auto* found = Find(attributes, name)) StreamingXml::AppendUnescaped(value, found->value);
    return value;
}

// Collects the filters of a file. What the elements are called, and how they nest, does not matter.
class FilterHandler final : public StreamingXml::XmlHandler {
  public:
    explicit FilterHandler(std::string path) : path_(std::move(path)) {}

    void OpenElement(std::string_view, Attributes attributes, std::uint64_t line) override {
        if (!open_.empty()) open_.back().lacksValue = false;  // a group
        open_.push_back({line, false});
        if (Find(attributes, "value") != nullptr)
            Add(attributes, line);
        else
            open_.back().lacksValue = Find(attributes, "name") != nullptr ||
                                      Find(attributes, "mnemonic") != nullptr ||
                                      Find(attributes, "symbol") != nullptr;
    }
    void Text(std::string_view) override {}
    bool CloseElement() override {
        if (open_.empty()) return false;
        const Element closed = open_.back();
        open_.pop_back();
        if (closed.lacksValue) Fail("empty filter value", closed.line);
        return true;
    }
    // The end of the file, which may leave elements open.
    void Finish() {
        while (CloseElement()) {
        }
    }

    [[noreturn]] void Fail(const std::string& what, std::uint64_t line) const {
        throw std::runtime_error(what + " in " + path_ + ", line " + std::to_string(line));
    }

    std::vector<MetricsFilter> filters;

  private:
    struct Element {
        std::uint64_t line;
        bool lacksValue;  // and has no elements inside, so far
    };

    void Add(Attributes attributes, std::uint64_t line) {
        const std::string value = ValueOf(attributes, "value");
        if (value.empty()) Fail("empty filter value", line);
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
    std::vector<Element> open_;
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
    scanner.GiveLines();
    try {
        std::array<char, 4096> block;
        while (in.good()) {
            in.read(block.data(), block.size());
            scanner.Feed({block.data(), static_cast<std::size_t>(in.gcount())});
        }
        scanner.End();
    } catch (const RowDefinitionError& error) {
        handler.Fail(error.what(), scanner.TagPosition().line);
    }
    handler.Finish();
    return std::move(handler.filters);
}

}  // namespace Metrics::detail
