#pragma once

#include <string_view>
#include <vector>

#include "metrics/reader/XmlHandler.h"

namespace StreamingXml {

// A tag taken apart; the pieces borrow its text.
struct XmlTag {
    enum class Kind { Start, Empty, End };

    Kind kind = Kind::Start;
    std::string_view name;
    std::vector<XmlAttribute> attributes;

    // `text` stands between '<' and '>'. False when the attributes cannot be told apart.
    bool Parse(std::string_view text);

  private:
    bool ParseAttributes(std::string_view text);
};

}  // namespace StreamingXml
