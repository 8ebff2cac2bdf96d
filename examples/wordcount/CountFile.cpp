#include "examples/wordcount/CountFile.h"

#include <algorithm>
#include <array>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "metrics/Instrument.h"

namespace WordCount {

namespace {

constexpr std::size_t kLongestWord = 100;

// Letters of the basic alphabet, and whatever stands for any other letter in UTF-8.
bool IsLetter(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

// Names in programs are words too.
bool GoesOn(char c) {
    return IsLetter(c) || c == '_' || (c >= '0' && c <= '9');
}

// In lower case; what is no word any more is cut, so that it fits into a buffer.
std::string KeyOf(std::string_view word) {
    std::string lower(word.substr(0, kLongestWord));
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

// What goes wrong stands in the output beside the stage.
[[noreturn]] void Fail(const char* problem) {
    METRICS_VALUE("error", problem);
    throw std::runtime_error(problem);
}

// The text of a file; none if it holds a NUL byte, for then it is something else than text.
std::string Read(const std::filesystem::path& path) {
    METRICS_SCOPE("read");
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) Fail("cannot be opened");
    std::string text;
    std::array<char, 65536> block;
    while (in.read(block.data(), block.size()) || in.gcount() > 0) {
        const std::string_view piece(block.data(), static_cast<std::size_t>(in.gcount()));
        if (piece.find('\0') != piece.npos) {
            METRICS_VALUE("binary", true);
            return {};
        }
        text += piece;
    }
    if (in.bad()) Fail("cannot be read");
    METRICS_VALUE("bytes", text.size());
    return text;
}

// The words point into the text.
std::vector<std::string_view> Split(std::string_view text) {
    METRICS_SCOPE("split");
    std::vector<std::string_view> words;
    for (auto at = text.begin(); at != text.end();) {
        const auto begin = std::find_if(at, text.end(), IsLetter);
        at = std::find_if_not(begin, text.end(), GoesOn);
        if (begin != at) words.emplace_back(begin, at);
    }
    METRICS_VALUE("words", words.size());
    return words;
}

Counts Count(const std::vector<std::string_view>& words) {
    METRICS_SCOPE("count");
    Counts counts;
    for (const std::string_view word : words) ++counts[KeyOf(word)];
    METRICS_VALUE("different", counts.size());
    return counts;
}

}  // namespace

FileCounts CountFile(const File& file) {
    using Metrics::Context;
    // A child of what the thread is working on; a root where that is nothing.
    Context context = Context::Child("file");
    context.AddAttribute("path", file.name);
    try {
        const std::string text = Read(file.path);
        const auto words = Split(text);
        Counts counts = Count(words);
        return {std::move(counts), text.size(), words.size(), "", Context::Hand("merge")};
    } catch (const std::exception& error) {
        return {{}, 0, 0, file.name + ": " + error.what(), Context::Hand("merge")};
    }
}

}  // namespace WordCount
