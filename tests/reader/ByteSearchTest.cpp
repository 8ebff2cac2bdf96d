#include "metrics/reader/ByteSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace StreamingXml {

// Against the plain loops, for every length up to a few words, every place and every byte.
TEST(ByteSearch, AByteIsSeenWhereverItStands) {
    for (std::size_t size = 0; size <= 44; ++size) {
        const std::string letters(size, 'x');
        EXPECT_FALSE(HoldsAny(letters, '"', ',', '\n')) << size;
        EXPECT_EQ(LettersAt(letters), size / 8 * 8);
        for (std::size_t place = 0; place < size; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text = letters;
                text[place] = static_cast<char>(byte);
                const bool special = byte == '"' || byte == ',' || byte == '\n';
                ASSERT_EQ(HoldsAny(text, '"', ',', '\n'), special) << size << ' ' << place << ' ' << byte;
                const std::size_t first = byte < 0x40 ? place : size;
                ASSERT_EQ(LettersAt(text), std::min(first, size / 8 * 8))
                    << size << ' ' << place << ' ' << byte;
                const char* const end = text.data() + size;
                ASSERT_EQ(FindNear('<', text.data(), end), byte == '<' ? text.data() + place : end);
                ASSERT_TRUE(size > 8 || byte == 'x' || Digest(text) != Digest(letters)) << text;
            }
        }
    }
}

}  // namespace StreamingXml
