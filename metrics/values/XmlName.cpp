#include "metrics/values/XmlName.h"

#include <array>
#include <cstdint>

#include "metrics/values/EightBytes.h"
#include "metrics/values/Utf8.h"
#include "metrics/values/XmlLetters.h"

namespace Metrics::detail {
namespace {

constexpr std::string_view kEmptyName = "_x_";
constexpr std::size_t kMaxGroup = 11;  // "_x0010FFFF_"

enum NameClass : std::uint8_t { kName = 1, kFirst = 2 };

constexpr std::array<std::uint8_t, 256> kNameClasses = [] {
    std::array<std::uint8_t, 256> classes{};
    for (int letter = 'a'; letter <= 'z'; ++letter) {
        classes[static_cast<std::size_t>(letter)] = kName | kFirst;
        classes[static_cast<std::size_t>(letter - 'a' + 'A')] = kName | kFirst;
    }
    for (int digit = '0'; digit <= '9'; ++digit) classes[static_cast<std::size_t>(digit)] = kName;
    classes['-'] = classes['.'] = kName;
    classes['_'] = kName | kFirst;
    return classes;
}();

bool IsOf(NameClass kind, std::uint32_t code) {
    return code < 0x80 ? (kNameClasses[code] & kind) != 0 : IsXmlLetter(code);
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const int letter = static_cast<unsigned char>(c) | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// "_x" and four or eight digits: what a group is without its last underscore.
struct Group {
    std::size_t size = 0;  // 0 for none
    std::uint32_t code = 0;
};

Group ReadGroup(std::string_view text, std::size_t digits) {
    if (text.size() < 2 + digits || !text.starts_with("_x")) return {};
    std::uint32_t code = 0;
    for (const char c : text.substr(2, digits)) {
        const int digit = HexDigit(c);
        if (digit < 0) return {};
        code = code << 4 | static_cast<std::uint32_t>(digit);
    }
    if (code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return {};
    return {2 + digits, code};
}

// Whether what is written for the text begins with an underscore.
bool WritesUnderscore(std::string_view text) {
    return !text.empty() && (text[0] == '_' || !IsOf(kName, FirstCharacter(text).code));
}

// The group at the start of the text, where `ends` holds for what follows its digits.
template <class Test>
Group FindGroup(std::string_view text, Test ends) {
    for (const std::size_t digits : {std::size_t{4}, std::size_t{8}}) {
        const Group group = ReadGroup(text, digits);
        if (group.size != 0 && ends(text.substr(group.size))) return group;
    }
    return {};
}

bool WouldBeginGroup(std::string_view text) {
    return FindGroup(text, WritesUnderscore).size != 0;
}

// Whether the word has letters, digits and underscores only, none of these before an 'x' as far as can be
// seen.
inline bool LooksPlain(std::uint64_t word) {
    using namespace EightBytes;
    const std::uint64_t letters = Between(word | 0x20 * kOnes, 'a', 'z') & ~word;
    if (letters == kHighs) return true;
    const std::uint64_t underscores = Are(word, '_');
    const bool mayBeginGroup = ((underscores << 8) & Are(word, 'x')) != 0 || (underscores >> 63) != 0;
    return ((letters | Between(word, '0', '9') | underscores) & ~word) == kHighs && !mayBeginGroup;
}

char* WriteGroup(char* out, std::uint32_t code) {
    *out++ = '_';
    *out++ = 'x';
    for (int shift = code > 0xFFFF ? 28 : 12; shift >= 0; shift -= 4)
        *out++ = "0123456789ABCDEF"[code >> shift & 15];
    *out++ = '_';
    return out;
}

}  // namespace

bool IsPlainXmlName(std::string_view text) {
    if (text.empty() || (kNameClasses[static_cast<unsigned char>(text[0])] & kFirst) == 0) return false;
    if (EightBytes::HoldsForAll(text, [](std::uint64_t word) { return LooksPlain(word); })) return true;
    char before = '\0';
    for (const char c : text) {
        if ((kNameClasses[static_cast<unsigned char>(c)] & kName) == 0 || (before == '_' && c == 'x'))
            return false;
        before = c;
    }
    return true;
}

void AppendXmlName(TextBuffer& out, std::string_view text) {
    if (text.empty()) return out.Append(kEmptyName);
    const bool looksEmpty = text == kEmptyName;
    for (NameClass wanted = kFirst; !text.empty(); wanted = kName) {
        const Utf8Character character = FirstCharacter(text);
        const bool escaped = !IsOf(wanted, character.code) ||
                             (text[0] == '_' && (WouldBeginGroup(text) || (looksEmpty && wanted == kFirst)));
        char* const at = out.Room(kMaxGroup);
        out.Commit(escaped ? WriteGroup(at, character.code) : WriteUtf8(at, character.code));
        text.remove_prefix(character.size);
    }
}

std::string UndoXmlName(std::string_view name) {
    std::string text;
    if (name == kEmptyName) return text;
    while (!name.empty()) {
        const auto underscore = name.find('_');
        text += name.substr(0, underscore);
        if (underscore == name.npos) return text;
        name.remove_prefix(underscore);
        const Group group = FindGroup(name, [](std::string_view rest) { return rest.starts_with('_'); });
        if (group.size != 0) {
            char character[4];
            text.append(character, WriteUtf8(character, group.code));
            name.remove_prefix(group.size + 1);
        } else {
            text += '_';
            name.remove_prefix(1);
        }
    }
    return text;
}

}  // namespace Metrics::detail
