#include "metrics/output/TextWriter.h"

#include "metrics/rows/SchemaFile.h"

namespace Metrics {

namespace {

constexpr std::size_t kMostSpare = 64;

}  // namespace

TextWriter::TextWriter(std::ostream& stream, char separator, const std::vector<std::string>& rowDefinition,
                       bool* misnested, Remark remark)
    : separator_(separator),
      misnested_(misnested),
      remark_(std::move(remark)),
      table_(stream, separator, rowDefinition),
      common_(table_, misnested) {
    if (!remark_) return;
    table_.Reader().Notices().SetHandler([this](const detail::RowNotice& notice) { remark_(notice.text); });
}

template <class Action>
void TextWriter::Guarded(Action action) {
    if (table_.HasEnded()) return;
    try {
        action();
    } catch (...) {
        table_.BreakOff();  // the rows before it count
        throw;
    }
}

std::string TextWriter::Schema() const {
    return detail::SchemaEntries(table_.Columns(), separator_);
}

void TextWriter::Write(const MetricsEvent& event) {
    Guarded([&] { feed_->nesting.Write(event, feed_->rows); });
}

void TextWriter::TurnTo(std::uint64_t root) {
    if (root == root_) return;
    Feed* feed = &common_;
    if (root != 0) {
        std::unique_ptr<Feed>& own = feeds_[root];
        if (!own) own = NewFeed();
        feed = own.get();
    }
    feed_ = feed;
    root_ = root;
}

std::unique_ptr<TextWriter::Feed> TextWriter::NewFeed() {
    if (spare_.empty()) return std::make_unique<Feed>(table_, misnested_);
    std::unique_ptr<Feed> feed = std::move(spare_.back());
    spare_.pop_back();
    return feed;
}

void TextWriter::EndTable(std::uint64_t root) {
    const auto ended = feeds_.extract(root);
    if (ended.empty()) return;
    if (root == root_) TurnTo(0);
    Guarded([&] { ended.mapped()->rows.End(); });
    ended.mapped()->nesting.Clear();
    if (spare_.size() < kMostSpare) spare_.push_back(std::move(ended.mapped()));
}

void TextWriter::Interrupt() {
    Guarded([&] { feed_->rows.Write(detail::ForceNothing()); });
}

void TextWriter::End() {
    while (!feeds_.empty()) EndTable(feeds_.begin()->first);
    Guarded([&] { common_.rows.End(); });
    if (!table_.HasEnded()) table_.End();
    if (!remark_) return;
    for (std::string& total : table_.Reader().Notices().Totals()) remark_(std::move(total));
}

}  // namespace Metrics
