// The contract with the operating system. Everything the library asks of it is declared here, and nothing
// else in the library includes a system header or tests a system macro. The folders posix/ and windows/ each
// hold a whole implementation; the build picks one. What the standard library already offers (threads,
// mutexes without recursion, condition variables, sleeping) is used directly and is not wrapped.
//
// Unless said otherwise every function may be called from any thread, does not throw and does not allocate.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Metrics::platform {

// --- Clocks ---

// UTC, since 1970-01-01. Follows the system clock, so it may step backwards.
std::int64_t SystemTimeMilliseconds();
std::int64_t SystemTimeMicroseconds();

// The same as the system last wrote it down, which is cheaper to read: behind by up to a tick (1 to 10 ms, on
// Windows 16), never ahead.
std::int64_t CoarseSystemTimeMilliseconds();

// A clock that never goes back and is not set: counts, and how many of them make a second. The frequency is
// fixed while the process lives. On Linux it is the monotonic clock in nanoseconds, computed from the
// processor's own counter where the kernel relies on that: within a microsecond of the kernel's own answer,
// and between two threads exact to some tens of nanoseconds.
std::int64_t PerformanceCounter();
std::int64_t PerformanceFrequency();

// Processor time that the calling thread has used since it began, in seconds. `user` is a part of `total`.
struct ProcessorTime {
    double total = 0;
    double user = 0;
};
ProcessorTime ThreadProcessorTime();

// --- Threads and processes ---

// The system's own numbers, as a debugger shows them. Ids of ended threads are reused. Both are right in the
// child of a fork and cost a load, not a system call.
std::uint32_t CurrentThreadId();
std::uint32_t CurrentProcessId();

// Names the calling thread for debuggers and profilers. What the system cannot hold is cut (15 characters on
// Linux); a system without names ignores it.
void SetCurrentThreadName(const char* name);

// One pointer for each thread, null at first. Marks read it, so it is inline where the system's compilers
// have thread-locals that cost no call and outlive every destructor.
#ifdef _WIN32
void* ThreadValue();
#else
extern constinit thread_local void* threadValue;
inline void* ThreadValue() {
    return threadValue;
}
#endif

// Sets it, for good: when the thread ends, `end` gets it there, and it is null again. Thread-local objects of
// others may go before that or after it. False, and nothing is set, when that has been already, or without
// memory. On Windows threads that live when the process ends or the library is unloaded don't get that far.
bool SetThreadValue(void* value, void (*end)(void*));

// While one lives, the calling thread has all asynchronous signals blocked, and so has, for its whole life,
// every thread that it creates meanwhile. A thread without them never runs the host's signal handlers and
// gets an error code from a closed pipe. To be destroyed on the thread that made it; on Windows there is
// nothing to block.
class SignalBlocker {
  public:
    SignalBlocker();
    ~SignalBlocker();
    SignalBlocker(const SignalBlocker&) = delete;
    SignalBlocker& operator=(const SignalBlocker&) = delete;

  private:
    alignas(std::uint64_t) std::byte previousMask_[128];
};

// While one lives, writing to a closed pipe is an error code on the calling thread, as it always is on
// Windows, and not a signal that may end the process. To be destroyed on the thread that made it.
class BrokenPipeGuard {
  public:
    BrokenPipeGuard();
    ~BrokenPipeGuard();
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  private:
    [[maybe_unused]] bool mustTake_ = false;     // a signal that comes now is ours
    [[maybe_unused]] bool mustUnblock_ = false;  // the thread had it unblocked
};

// Runs `body` on a new thread that nobody waits for. What it throws ends the process. Throws
// std::system_error or std::bad_alloc. Not a detached std::thread on Windows: there a thread of winpthreads
// that ends while it is being detached takes the next one with it.
void StartThread(std::function<void()> body);

// Names one thread, also after it has ended and its id has gone to another. A copy names the same thread, and
// a default constructed handle names none. Copies may be used on different threads.
class ThreadHandle {
  public:
    ThreadHandle() = default;
    // May throw std::bad_alloc.
    static ThreadHandle Current();

    // False once the thread has ended, has been ended by the system while the process exits, or was left
    // behind in the parent by a fork. Some microseconds; meant for waits that look every now and then.
    bool IsAlive() const;

  private:
    struct Identity;
    std::shared_ptr<const Identity> identity_;
};

// While at least one lives, Ctrl+C does not end the program but sets a flag, which is never cleared. Other
// console events and signals have their usual effect. When the last one goes, Ctrl+C does again what it did
// before.
class InterruptHandler {
  public:
    InterruptHandler();
    ~InterruptHandler();
    InterruptHandler(const InterruptHandler&) = delete;
    InterruptHandler& operator=(const InterruptHandler&) = delete;

    // Lives as long as the process.
    static const std::atomic<bool>& Flag();
};

// Calls `handler` in the child of every later fork, on the thread that forked, before fork returns there. It
// must take no lock. For the life of the process; never called on a system without fork.
void OnForkChild(void (*handler)());

// Keeps the library that contains this code loaded until the process ends. (On Linux it is linked to stay.)
void PinLibrary();

// Ends the process over a broken object: the structured exception 0xE0000000 on Windows, elsewhere the
// message on the error stream and an abort.
[[noreturn]] void RaiseInvalidObject(const char* message);

// Writes a line, which brings its line end, to the error stream, without a buffer, a signal or a wait: a
// stream that takes nothing now gets nothing. Its first 1000 bytes at most.
void WriteErrorLine(std::string_view line);

// --- Errors ---

// What the system calls an error: by a number of <cerrno>, or by one of its own, which on Linux are the same.
// May throw std::bad_alloc.
std::string ErrorText(int number);
std::string SystemErrorText(std::uint32_t number);

// --- Waiting ---

// The system's event object. A set auto-reset event releases exactly one waiter and is then clear again; a
// manual-reset event releases all of them and stays set. Must not be destroyed under a waiter, nor used in
// the child of a fork that it lived through.
class Event {
  public:
    // Clear at first. Throws std::system_error or std::bad_alloc.
    explicit Event(bool autoReset);
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Set();
    void Reset();
    // At most `milliseconds`, on a clock that is not adjusted; -1 is for ever, 0 only looks. True only when
    // the event was set.
    bool Wait(int milliseconds);

  private:
    struct Native;
    std::unique_ptr<Native> native_;
};

// The system's lock that its owner may take again; for std::lock_guard and std::unique_lock.
class RecursiveMutex {
  public:
    // Throws std::system_error or std::bad_alloc.
    RecursiveMutex();
    ~RecursiveMutex();
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void lock();
    void unlock();

  private:
    struct Native;
    std::unique_ptr<Native> native_;
};

// --- Paths ---

// Paths are in the narrow encoding of the process. Both functions work with a buffer of fixed size, the
// closing NUL included, and return the empty text for a path that does not fit. They may throw
// std::bad_alloc.
inline constexpr std::size_t kExecutablePathBuffer = 240;
inline constexpr std::size_t kWorkingDirectoryBuffer = 260;
std::string ExecutablePath();
std::string WorkingDirectory();

// The separator to join with, and whether a character separates at all (Windows knows two).
char PathSeparator();
bool IsPathSeparator(char c);

// How much of the front of a path is its drive: "C:" on Windows. Without drives (Linux) it is the root of an
// absolute path, "/", so that "has no drive" means "relative" there.
std::size_t DriveLength(std::string_view path);

// A path taken apart: joined again the pieces give the path. The drive is as above, the directory ends with
// its last separator, the extension begins with its dot; any of them may be empty. The pieces borrow the
// text.
struct PathParts {
    std::string_view drive;
    std::string_view directory;
    std::string_view name;
    std::string_view extension;
};
PathParts SplitPath(std::string_view path);

// --- Output files ---

// A file that is written from its start to its end, as text: on Windows a line end becomes two characters.
// Programs that this one starts don't inherit it, and it is never one of the descriptors 0 to 2, to which a
// program writes that has closed a standard stream without knowing. For one thread at a time. What fails is
// told by one of the numbers of <cerrno>.
//
// Not a std::ofstream, because the C library keeps its open files in a list, which each one that is closed is
// searched for from the newest on: with ten thousand that costs more than all their bytes. And on Windows it
// has no more than 512.
class OutputFile {
  public:
    enum class Opening {
        MayWait,     // for somebody who reads the pipe
        DoesNotWait  // a pipe that nobody reads can't be opened
    };

    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Once. What an existing file holds stays until Empty(); others may read and write it meanwhile. A name
    // that stands for a descriptor of the process (/dev/stdout, /dev/fd/3) means that very stream, where it
    // stands now. Returns 0 or the error.
    int Open(const std::string& path, Opening opening);
    // Takes away what was in a plain file. Returns 0 or the error.
    int Empty();
    // Whether it is a file of a disk that was opened by a name of its own, and no pipe, device or stream.
    bool IsPlain() const { return plain_; }
    // False when not all of it could be written; Error() says why.
    bool Write(std::string_view text);
    // False when the system could not write what it had taken over, or when nothing was open.
    bool Close();
    // Why the last call failed, or 0.
    int Error() const { return error_; }

  private:
    bool Failed();

    int handle_ = -1;
    int error_ = 0;
    bool plain_ = false;
};

// --- Profile files ---

struct ProfileSection {
    std::string name;
    std::string entries;  // each ended by a NUL
};

// One attempt to give the file `path` (absolute) sections `[name]` with these entries; of several with one
// name the last counts. A file or section that is not there is made; other sections stay as they are; a file
// that has all of them already is not touched. Returns 0, or the system's error number when the file could
// not be read or replaced, or is being changed by somebody else who may be done a moment later. On Linux the
// file is written once for all sections, on Windows once for each that changes. May throw std::bad_alloc.
std::uint32_t SetProfileSections(const std::string& path, std::span<const ProfileSection> sections);

// --- Memory ---

// Whole pages straight from the system, zeroed and backed by memory already, so that nobody meets a page
// fault there. Null without memory. They go back to the system at once, by the size that they were asked for
// with.
void* AllocatePages(std::size_t bytes) noexcept;
void FreePages(void* pages, std::size_t bytes) noexcept;

// The process's address space in bytes; total = free + reserved + committed. On Windows reserved is what is
// set aside without any access right, committed every other region in use, and finding out takes a system
// call for each region. On Linux committed is what the process may write without others seeing it (its data,
// stacks and private mappings, touched or not), reserved all else that is mapped: a sum that the kernel
// keeps, two short system calls whatever there is. All zero when the system tells nothing.
struct AddressSpaceTotals {
    std::uint64_t total = 0;
    std::uint64_t free = 0;
    std::uint64_t reserved = 0;
    std::uint64_t committed = 0;
};
AddressSpaceTotals QueryAddressSpace();

// The machine's memory in bytes, load in per cent of the physical memory. Zero where the system tells
// nothing.
struct GlobalMemory {
    std::uint64_t physicalTotal = 0;
    std::uint64_t physicalAvailable = 0;
    std::uint64_t commitLimit = 0;
    std::uint64_t commitAvailable = 0;
    std::uint32_t loadPercent = 0;
};
GlobalMemory QueryGlobalMemory();

}  // namespace Metrics::platform
