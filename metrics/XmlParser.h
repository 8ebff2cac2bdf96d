#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "metrics/ColumnType.h"
#include "metrics/Export.h"
#include "metrics/RowDefinitionError.h"

namespace Metrics::detail {
class RowReader;
}

namespace StreamingXml {

/// One written column of a table.
struct XmlColumnInfo {
    std::string name;
    Metrics::ColumnType type = Metrics::ColumnType::None;
};

/// Reads XML as a stream and turns it into the rows of a row definition. Nothing is kept of the input but
/// what rows still wait for, so that its length does not matter.
///
///     StreamingXml::XmlParser parser([](StreamingXml::XmlParser& row) {
///         Metrics::WriteCsvRow(row, std::cout, ',', row.IsSummary());
///     });
///     parser.Compile("[path]:path(time);time.elapsed:r");
///     Metrics::WriteCsvHeader(parser, std::cout, ',', parser.IsSummary());
///     parser.Feed("<work><time><elapsed>0.5</elapsed></time></work>");
///     parser.End();
///
/// One thread at a time. Whatever is wrong with a definition or with the XML is thrown as a
/// Metrics::RowDefinitionError by the call that finds it; the reader is then of use after Reset() only.
class METRICS_API XmlParser {
  public:
    /// Called with the parser for each row, inside Feed() or End(); it may write the row but must not feed.
    using RowCallback = std::function<void(XmlParser&)>;

    /// Called with a line of text that says what a limit has cost, and where.
    using NoticeCallback = std::function<void(const std::string& text)>;

    /// The option bits. The upper ones are set by Compile().
    enum Option : std::uint32_t {
        CopyThrough = 0x1,  ///< Everything that is read is copied to the stream of SetCopyStream().
        Invert = 0x2,       ///< Copied is what no column's path matches.
        Reindent = 0x10,    ///< The copy is indented anew, by two blanks for each open element.
        SingleRow = 0x200,  ///< Reading stops after the first row.
        UsesPaths = 0x4000,
        UsesLineNumbers = 0x8000,
        ComputesAggregates = 0x10000,
        HasComputed = 0x20000,
        HasOptional = 0x80000,
    };

    explicit XmlParser(RowCallback rowCallback, std::uint32_t options = 0);
    ~XmlParser();
    XmlParser(const XmlParser&) = delete;
    XmlParser& operator=(const XmlParser&) = delete;

    /// Compiles one column after the other and resets the reader; returns 0. At an error the columns before
    /// it stay.
    int Compile(const std::vector<std::string>& columns);
    /// The same for a whole definition: columns separated by ';' or line ends.
    int Compile(std::string_view definition);

    /// Reads on. The bytes may end anywhere, also inside a tag.
    void Feed(std::string_view bytes);
    /// Nothing follows: closes what is open, writes what is due, and for a summary all its groups.
    void End();
    /// Ready for a new input of the same definition.
    void Reset();

    /// Where the copy goes; the stream must live as long as it is set. nullptr ends copying.
    void SetCopyStream(std::ostream* out);

    /// What is beyond a limit costs rows, or an element, and never the rest: elements that nest too deep,
    /// values that are too long, rows that wait for too much, groups of a summary that are too many.
    /// `callback` is told of the first of each kind, with its line and column, inside Feed() or End(); it
    /// must neither throw nor feed. Set it before feeding.
    void SetNoticeCallback(NoticeCallback callback);
    /// How much of all kinds was left out so far.
    std::uint64_t LeftOut() const noexcept;

    std::uint32_t Options() const noexcept;
    /// Whether the definition has aggregates: its rows are groups, and all come with End().
    bool IsSummary() const noexcept;
    /// The written columns in order; those with aggregates only when asked for.
    std::vector<XmlColumnInfo> Columns(bool includeAggregates) const;
    /// The current row as lines of CSV, appended; nothing outside the callback.
    void AppendRow(std::string& out, char separator, bool includeAggregates) const;

  private:
    struct State;
    void CheckInvert() const;
    void Build();

    std::unique_ptr<State> state_;
};

}  // namespace StreamingXml
