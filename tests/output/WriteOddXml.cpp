// Writes XML with odd names for other readers: write_odd_xml FOLDER. Beside each NAME.xml there is NAME.txt
// with what was meant: "open NAME", "value NAME TEXT", "attribute KEY TEXT", "close", all texts in
// hexadecimal.
#include <fstream>
#include <iostream>

#include "tests/output/OddNames.h"

namespace {

using namespace Metrics;
using namespace Metrics::Testing;

std::string Hex(const MetricsValue& value) {
    std::string hex = "x";
    for (const char c : value.IsText() ? std::string(value.Text()) : value.ToString(0)) {
        constexpr char digits[] = "0123456789abcdef";
        hex += digits[static_cast<unsigned char>(c) >> 4];
        hex += digits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

void Note(std::ostream& out, const MetricsEvent& event) {
    switch (event.Type()) {
        case MetricsEventType::ScopeOpen: out << "open " << Hex(event.param1) << '\n'; return;
        case MetricsEventType::ScopeClose: out << "close\n"; return;
        case MetricsEventType::ScopeValue:
            out << "value " << Hex(event.param1) << ' ' << Hex(event.param2) << '\n';
            return;
        case MetricsEventType::NameValue:
            out << "attribute " << Hex(event.param1) << ' ' << Hex(event.param2) << '\n';
            return;
        default: return;
    }
}

void WriteFile(const std::string& name, const std::string& root, const std::vector<OddTextsAt>& cases) {
    std::ofstream meant(name + ".txt");
    MetricsValue rootName = root;
    meant << "open " << Hex(rootName) << '\n';
    Output output(Mode::Single, Format::Xml);
    output.SetRootElement(root);
    output.OpenFile(name + ".xml", 0);
    std::uint64_t id = 1;
    for (const OddTextsAt& odd : cases) {
        const std::vector<MetricsEvent> events = OddRun(odd, id);
        for (const MetricsEvent& event : events) Note(meant, event);
        output.Put(events);
        id += 2;
    }
    meant << "close\n";
    output.CloseDown();
    for (const std::string& error : output.Errors()) std::cerr << error << '\n';
}

}  // namespace

int main(int, char** arguments) {
    const std::string folder = std::string(arguments[1]) + "/";
    WriteFile(folder + "all", "events", OddCases(5000));
    int number = 0;
    for (const std::string& root : OddTexts())
        if (!root.empty()) WriteFile(folder + "root" + std::to_string(++number), root, {OddTextsAt()});
}
