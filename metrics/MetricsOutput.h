#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "metrics/Export.h"

namespace Metrics {

class MetricsValueBuffer;

namespace detail {
class OutputState;
}

/// Writes what the manager delivers to streams, files or buffers, from its construction until it is closed.
///
///     Metrics::Session session;
///     Metrics::MetricsOutput output(Metrics::MetricsOutput::Mode::PerContext,
///                                   Metrics::MetricsOutput::Format::Xml);
///     output.SetWildcardedOutputFile("out/job-*.xml");
///     ...  // each root context goes to a file of its own, closed when the context closes
///     output.Close();
///
/// A destination is a *target*: a stream, file or buffer, opened for a context id. All formats but
/// RawUnordered put events into nested order first (see MetricsDemultiplexer), so what a target gets is a
/// root context with everything below it. A target closes at the end of the batch in which its context's
/// closing was written. What happens in a root context before it has a target is kept while the root is open,
/// up to 1,000,000 events.
///
/// Threads: any thread may call any operation at any time, but for construction and destruction. Writing
/// happens on the manager's worker, a batch at a time under the output's lock; Close and Finish write on the
/// worker too, or on the calling thread if there is none, as SetError and opening a target always do. A
/// stream must not call back into its output.
///
/// Errors: what goes wrong while a target opens is thrown to the caller and leaves no target behind. What
/// goes wrong later (a full disk, a closed pipe, a file of PerContext that cannot be opened, a schema.ini
/// that cannot be written) is recorded, see GetErrors; after the first error everything held back is written
/// as far as possible, all targets are closed and nothing more is written. Each error of either kind goes to
/// the log and to the handler of SetErrorHandler, with the file, what failed and the system's words ("failed
/// to write to run.xml: No space left on device"); so does, without being an error, what only costs a row.
/// Without a log delegate the first error in the process is a line on the error stream, see
/// MetricsManager::SetLogDelegate. What would silently leave a file empty (a table without a row definition,
/// PerContext without file names, a target for a context that has ended or is no root, a target of a closed
/// output) is logged, once of its kind.
///
/// Files: in PerContext the worker opens them, and waits for nothing there: a pipe that nobody reads is an
/// error, while OpenFile waits for its reader (but on the worker), without holding up anybody else. A file is
/// never one of the descriptors 0 to 2. On Linux `/dev/stdout` and `/dev/fd/N` mean that very descriptor,
/// which is neither emptied nor closed.
///
/// Lifetimes: closing waits until everything posted before has been written. An output may be destroyed after
/// the manager was shut down or freed, as a static object, or in a subscriber's callback. In the child of a
/// fork an output that came along does nothing.
class METRICS_API MetricsOutput {
  public:
    enum class Mode : std::uint32_t {
        /// Targets are opened by the host and do not own the streams they are given.
        Borrowed = 0,
        /// One target receives every root, one after the other in ascending order of id: that with the
        /// smallest
        /// context id, 0 being as good as any. It owns its stream and deletes it when it closes.
        Single = 1,
        /// As Borrowed, but targets own their streams; and each new root gets a target by itself: a file
        /// named
        /// by SetWildcardedOutputFile, else none (which with Buffer leaves a buffer to be taken).
        PerContext = 2,
        /// As Single, but roots come in the order in which they end, each in one piece with its children
        /// inside; a root that stays open holds up no other. The CSV formats write rows as they complete,
        /// each root's made from that root alone. See SetHeldLimit for what is held meanwhile.
        Completed = 3,
    };

    enum class Format : std::uint32_t {
        RawUnordered = 0,  ///< A line per event, of all contexts, as they come, to every target.
        Raw = 1,           ///< A line per event, in nested order.
        Xml = 2,           ///< Indented elements, well-formed whatever names and texts are.
        CsvComma = 3,      ///< Rows of a row definition, separated by commas.
        CsvPipe = 4,       ///< The same, separated by '|'.
        Buffer = 5,        ///< The binary form that MetricsManager::MergeRemoteEvents reads, see GetBuffer.
    };

    /// Subscribes to the manager, which is created if there is none. Throws std::invalid_argument for a mode
    /// or format that does not exist.
    MetricsOutput(Mode mode, Format format);
    /// Closes. Lets no exception out.
    ~MetricsOutput();
    MetricsOutput(const MetricsOutput&) = delete;
    MetricsOutput& operator=(const MetricsOutput&) = delete;

    /// Opens a target on a file; what was in it is gone then. Throws std::runtime_error, "failed to open
    /// file". On an output that is closed, or has stopped after an error, nothing is opened and nothing is
    /// lost.
    void OpenFile(const std::string& fileName, unsigned long long contextId);
    /// Opens a target on a stream. In Borrowed the stream must live until the target has closed; in the other
    /// modes it must come from `new`, and is deleted when the target closes.
    void WriteToStream(std::ostream& stream, unsigned long long contextId);
    /// Opens a target without a stream. Throws std::runtime_error unless the format is Buffer.
    void WriteToBuffer(unsigned long long contextId);
    /// In PerContext: names the files of roots to come. The first '*' stands for the root's id in decimal;
    /// without one the id is appended.
    void SetWildcardedOutputFile(const std::string& pattern);
    /// For Xml: each target that is opened from now on is a document, with a declaration and one root element
    /// of this name around all that is written, so that browsers and other readers of XML take the file as it
    /// is. Its end tag comes when the target closes. An empty name means none, as at first. Other formats
    /// ignore it.
    void SetRootElement(const std::string& name);
    /// For the CSV formats: the columns, separated by ';' or line ends, of the targets that are opened from
    /// now on. docs/rows.md describes them. What is wrong with them is thrown, as a RowDefinitionError, by
    /// what opens a target. Beside a plain file (not in Borrowed) a schema.ini describes the table: after
    /// OpenFile it is there; for files that PerContext opens it is written once a cycle of the worker, for
    /// all of them, and at the latest when Flush, Finish or Close return.
    ///
    ///     output.SetRowDefinition("[path]:path(time);[seconds]:time.elapsed:r:6");
    void SetRowDefinition(const std::string& definition);
    /// Creates a root context and, before any event of it can arrive, its file. Returns the context's id, to
    /// be constructed with. Throws as OpenFile does; no context is created then.
    unsigned long long OpenNewContextAndFile(const std::string& fileName);

    /// Leaves out or replaces what differs between two runs of the same program: times, ids of processes,
    /// threads and contexts. For what is written from now on; raw lines only of targets opened from now on.
    void MuteVolatileData();

    /// In Completed and Single: how much may be held of all roots together, in bytes of memory, before the
    /// largest goes out in parts; 64 MiB at first. A part ends with the elements closed that are open; when
    /// more comes of the root they are opened again, with their attributes and `part`, from 2 on. Where the
    /// first tag was not written yet it has `part="1"`. An attribute that was called `part` is `_part` then.
    /// Values are not repeated, so rows made of such XML lack what stood on the other side of a cut. Tables
    /// and buffers are not cut, but in a table a child that stays open goes on by itself. Single goes on as
    /// Completed from then on until nothing waits; that is logged.
    void SetHeldLimit(std::size_t bytes);

    /// Waits until what was posted before has been written, then closes by force the children that hold back
    /// a closed root: of root `contextId`, or of all with 0. In Single and Completed only 0 has an effect,
    /// and open roots are closed too. Does nothing once closed. To be avoided in a subscriber's callback, where it cannot
    /// wait.
    void Finish(unsigned long long contextId);
    /// Waits until what was posted before has been delivered, and flushes what could be written. Forces
    /// nothing: in Single what came behind a root that is open still waits for it, in Completed what a root
    /// did that is open, and everywhere what its parent did behind a child that is open. Finish or Close
    /// write these.
    void Flush();
    /// Waits until what was posted before has been written, closes by force whatever is still open, closes
    /// all targets and ends the subscription. Calls after the first do nothing; one at the same time waits
    /// for it.
    void Close();

    /// The finished buffer of a context, null while there is none. GetBuffer leaves it here, so that it can
    /// be had again; TakeBuffer does not, and keeps memory flat. In it texts are cut at 254 bytes, which is
    /// logged once.
    std::shared_ptr<MetricsValueBuffer> GetBuffer(unsigned long long contextId) const;
    std::shared_ptr<MetricsValueBuffer> TakeBuffer(unsigned long long contextId);

    /// Who is told of errors, each once and in its own words, as GetErrors has them; an empty function for
    /// nobody. Called without any lock on the thread that met the error: the worker for what goes wrong in
    /// delivery, else the thread that called OpenFile, WriteToStream, SetError, Flush, Finish or Close. So it
    /// may be called on two threads at a time, and a former handler may still be running. It may call
    /// everything here, Close and SetErrorHandler too, but must not destroy the output; what goes wrong while
    /// it runs, on the same thread, goes to the log only. What it throws is swallowed. After the output's
    /// destruction it is not called any more.
    void SetErrorHandler(std::function<void(const std::string& error)> handler);
    /// Records an error of the host, with the consequences of any other.
    void SetError(const std::string& message);
    /// What went wrong, in order.
    std::vector<std::string> GetErrors() const;
    bool HasError() const;

  private:
    void Validate() const;

    std::uint32_t magic_;
    std::shared_ptr<detail::OutputState> state_;
};

}  // namespace Metrics
