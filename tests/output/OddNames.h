#pragma once

#include <random>
#include <string>
#include <vector>

#include "tests/output/OutputFixture.h"

// Texts that programs take from outside, and where they go.
namespace Metrics::Testing {

inline std::vector<std::string> OddTexts() {
    std::vector<std::string> texts = {"", std::string(254, 'x'), std::string(300, '<') + "x",
                                      std::string(70000, 'n')};
    std::istringstream others(
        "GET /x?id=7~SELECT a FROM t WHERE id=7~/var/log~dir/~?x~!--x~!--x--~![CDATA[x]]~a='b~a=\"b~x=~"
        "vector<int>~GET /users~GET /login~ ~  a  b  ~a b~a.b~.a~-a~a--b~a-b_c.d~7up~xmlns~xml~xml:lang~"
        "XMLns:x~_~__~_x~_x_~_x0041_~_x0041~_x0041 ~_x00E9\xC3\xA9_x~_x0001F600_~_xD800_~a_x003c_b~a:b~"
        "\"q\"~it's~]]>~<!--~-->~<a>~</a>~&amp;~&#x10FFFF;~\\~a\\\\n~a,b|c;d~tab\tand\nline\rends~"
        "\t ends in blanks \n~\x01\x02\x1B[0m\x7F~gr\xC3\xB6\xC3\x9F~cut \xE6\xB8~*~"
        "\xC3\x97\xC2\xB7~"                       // signs, no letters
        "\xE6\xB8\xAC\xE5\xAE\x9A~"               // Chinese
        "e\xCC\x81\xE0\xA5\x80~"                  // combining marks
        "\xF0\x9F\x98\x80~"                       // an emoji
        "\xEF\xBF\xBE\xEF\xBF\xBF~"               // U+FFFE, U+FFFF
        "\xF4\x8F\xBF\xBF~"                       // U+10FFFF
        "\xFF\xFE\x80~"                           // no UTF-8
        "\xC0\x80\xED\xA0\x80\xF4\x90\x80\x80");  // overlong, a surrogate, too much
    for (std::string text; std::getline(others, text, '~');) texts.push_back(text);
    return texts;
}

inline std::string RandomText(std::mt19937& random) {
    static const std::vector<const char*> pieces(
        {"_",           "x",     "_x",   "0041", "00e9_",    "0001F600",     "a",
         "B7",          "-",     ".",    ":",    " ",        "\t",           "\n",
         "\r",          "\x01",  "<",    ">",    "&",        "&lt;",         "\"",
         "'",           "=",     "/",    "?",    "!",        "]]>",          "\\",
         "--",          "xmlns", "\xC3", "\xA9", "\xC3\xA9", "\xE6\xB8\xAC", "\xFF",
         "\xEF\xBF\xBE"});
    std::string text;
    for (std::size_t left = random() % 8; left > 0; --left) {
        if (random() % 5 == 0) {
            text += static_cast<char>(1 + random() % 255);
        } else {
            text += pieces[random() % pieces.size()];
        }
    }
    return text;
}

// The places where a text can stand.
struct OddTextsAt {
    std::string context = "job", scope = "step", value = "count", key = "id", attribute = "v", text = "12";

    std::string& operator[](std::size_t place) {
        std::string* const places[] = {&context, &scope, &value, &key, &attribute, &text};
        return *places[place];
    }
    static constexpr std::size_t kPlaces = 6;
};

// A root and its child, run to their ends.
inline std::vector<MetricsEvent> OddRun(const OddTextsAt& odd, std::uint64_t root = 1) {
    using enum MetricsEventType;
    const std::uint64_t child = root + 1;
    return std::vector<MetricsEvent>({Create(0, root),
                                      Construct(0, root),
                                      Make(NameValue, root, "pid", 7),
                                      Make(NameValue, root, odd.key, odd.attribute),
                                      Make(NameValue, root, "pid", 8),
                                      Make(ScopeOpen, root, odd.context),
                                      Make(ScopeValue, root, "words", 120),
                                      Make(NameValue, root, odd.key, "first"),
                                      Make(NameValue, root, "comp", odd.attribute),
                                      Make(NameValue, root, odd.key, odd.attribute),
                                      Make(ScopeOpen, root, odd.scope),
                                      Make(ScopeValue, root, odd.value, odd.text),
                                      Make(ScopeOpen, root, "time"),
                                      Make(ScopeValue, root, EightCC("elapsed"), 0.5),
                                      Make(ScopeValue, root, FourCC("<&>"), FourCC("\"]]>")),
                                      Make(ScopeClose, root, "time"),
                                      Make(ScopeClose, root, odd.scope),
                                      Create(root, child),
                                      Construct(root, child),
                                      Make(NameValue, child, FourCC("a<b"), EightCC("'&<>\"")),
                                      Make(NameValue, child, odd.key, odd.attribute),
                                      Make(ScopeOpen, child, odd.scope),
                                      Make(ScopeValue, child, odd.value, odd.text),
                                      Make(ScopeClose, child, odd.scope),
                                      Close(child),
                                      Make(ScopeClose, root, odd.context),
                                      Close(root)});
}

// Every odd text at every place, then random ones at some of them.
inline std::vector<OddTextsAt> OddCases(std::size_t randomOnes) {
    std::vector<OddTextsAt> cases;
    for (const std::string& text : OddTexts())
        for (std::size_t place = 0; place < OddTextsAt::kPlaces; ++place) cases.emplace_back()[place] = text;
    std::mt19937 random(4711);
    for (; randomOnes > 0; --randomOnes) {
        OddTextsAt& odd = cases.emplace_back();
        for (std::size_t place = 0; place < OddTextsAt::kPlaces; ++place)
            if (random() % 2 == 0) odd[place] = RandomText(random);
    }
    return cases;
}

}  // namespace Metrics::Testing
