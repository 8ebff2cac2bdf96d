#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace StreamingXml {

// Borrowed for the length of a call. As it stands in the markup, so that only who asks for it pays for its
// meaning; one that never was markup means itself.
struct XmlAttribute {
    std::string_view name;
    std::string_view value;
    bool isMarkup = true;

    bool IsNamed(std::string_view wanted) const;
    void AppendValue(std::string& out) const;
};

// What the scanner finds, in document order, on the thread that feeds it. A call that throws ends the
// reading.
class XmlHandler {
  public:
    // The name as it stands in the markup. `line` is that of the start tag, or 0 when lines are not counted.
    // Repeated attributes come as they are.
    virtual void OpenElement(std::string_view name, std::span<const XmlAttribute> attributes,
                             std::uint64_t line) = 0;

    // A piece of the innermost open element's own text, escapes and all. Called only while WantsText().
    virtual void Text(std::string_view piece) = 0;

    // False when no element is open.
    virtual bool CloseElement() = 0;

    // Whether a copy of the XML leaves out the element that is innermost now, and all in it.
    virtual bool LeavesOut() const { return false; }

    bool WantsText() const { return wantsText_; }

  protected:
    ~XmlHandler() = default;

    bool wantsText_ = false;
};

}  // namespace StreamingXml
