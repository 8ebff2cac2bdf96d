#include "metrics/MetricsValue.h"

#include <cstdlib>
#include <new>

#include "metrics/values/CurrentTime.h"

namespace Metrics {

namespace {

template <typename Char>
Char* NewText(std::basic_string_view<Char> text) {
    auto* copy = static_cast<Char*>(std::malloc((text.size() + 1) * sizeof(Char)));
    if (copy == nullptr) throw std::bad_alloc();
    text.copy(copy, text.size());
    copy[text.size()] = Char{};
    return copy;
}

}  // namespace

MetricsValue::MetricsValue(std::string_view text)
    : MetricsValue(MetricsValueType::String, Address(NewText(text))) {}

MetricsValue::MetricsValue(const char* text) : MetricsValue(std::string_view(text != nullptr ? text : "")) {}

MetricsValue::MetricsValue(const wchar_t* text)
    : MetricsValue(MetricsValueType::WideString,
                   Address(NewText(std::wstring_view(text != nullptr ? text : L"")))) {}

// The bits still hold the other value's address. When this throws, the value was never constructed and
// nothing is freed.
void MetricsValue::Duplicate() {
    const void* copy = Kind() == MetricsValueType::String
                           ? static_cast<const void*>(NewText(std::string_view(Text())))
                           : NewText(std::wstring_view(WideText()));
    const std::uint64_t address = Address(copy);
    bits_.low = static_cast<std::uint32_t>(address);
    bits_.high = static_cast<std::uint32_t>(address >> 32);
}

void MetricsValue::Release() noexcept {
    std::free(reinterpret_cast<void*>(Pointer()));
}

MetricsValue MetricsValue::FromCurrentTime() noexcept {
    return MetricsDateTime(detail::CurrentTicks());
}

double MetricsValue::AsDouble() const noexcept {
    switch (Kind()) {
        case MetricsValueType::Double: return std::bit_cast<double>(Payload());
        case MetricsValueType::Int64:
        case MetricsValueType::Bool: return static_cast<double>(AsInt64());
        default: return 0;
    }
}

bool MetricsValue::operator==(const MetricsValue& other) const noexcept {
    return Kind() == other.Kind() && AsUInt64() == other.AsUInt64() &&
           std::string_view(Text()) == other.Text() && std::wstring_view(WideText()) == other.WideText();
}

}  // namespace Metrics
