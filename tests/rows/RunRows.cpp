#include "tests/rows/RunRows.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "metrics/Csv.h"
#include "metrics/XmlParser.h"

std::string RunRows(std::string_view definition, std::string_view input, std::size_t chunk, bool withHeader,
                    char separator) {
    std::string rows;
    StreamingXml::XmlParser parser(
        [&](StreamingXml::XmlParser& row) { row.AppendRow(rows, separator, row.IsSummary()); });
    parser.SetNoticeCallback([&](const std::string& text) { rows += "! " + text + '\n'; });
    try {
        parser.Compile(definition);
        if (withHeader) {
            std::ostringstream header;
            Metrics::WriteCsvHeader(parser, header, separator, parser.IsSummary());
            rows = header.str();
        }
        for (; !input.empty(); input.remove_prefix(std::min(chunk, input.size()))) {
            const std::string_view piece = input.substr(0, chunk);
            // A copy of its own, so that reading past its end is seen.
            const std::vector<char> bytes(piece.begin(), piece.end());
            parser.Feed({bytes.data(), bytes.size()});
        }
        parser.End();
    } catch (const Metrics::RowDefinitionError& error) {
        rows += std::string("! ") + error.what() + '\n';
    }
    return rows;
}
