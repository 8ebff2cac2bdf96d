#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "metrics/reader/XmlTag.h"

namespace StreamingXml {

// Writes the XML that a scanner reads to a stream: all of it or what no column consumes, as it is or indented
// anew. Blocks go out at Flush() and whenever enough has gathered.
class XmlCopy {
  public:
    struct Layout {
        bool all = true;        // else without the elements that are to be left out
        bool reindent = false;  // two blanks for each open element
    };

    // The stream must live as long.
    XmlCopy(std::ostream& out, Layout layout) : out_(out), layout_(layout) {}

    void Text(std::string_view piece);
    // `text` stands between '<' and '>'. `leftOut` speaks of the innermost element: the one that this tag
    // opens, or that it is about to close.
    void Tag(std::string_view text, XmlTag::Kind kind, bool leftOut);
    void Flush();

  private:
    bool Hidden() const { return !layout_.all && leftOutDepth_ > 0; }
    void Put(std::string_view piece);
    void PutIndented(std::string_view piece);

    std::ostream& out_;
    Layout layout_;
    std::string block_;
    std::size_t depth_ = 0;         // of the element that is open now
    std::size_t leftOutDepth_ = 0;  // the depth at which leaving out began, 0 when nothing is left out
    bool atLineStart_ = true;
};

}  // namespace StreamingXml
