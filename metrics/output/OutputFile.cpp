#include "metrics/output/OutputFile.h"

#include <cerrno>

namespace Metrics::detail {

OpenFailure::OpenFailure(const std::string& name, bool tooManyFiles)
    : std::runtime_error("failed to open file"), details_("failed to open file: " + name) {
    if (tooManyFiles) details_ += " (the limit of open files is reached)";
}

std::streamsize OutputFileBuffer::xsputn(const char* text, std::streamsize size) {
    return file_.Write({text, static_cast<std::size_t>(size)}) ? size : 0;
}

OutputFileBuffer::int_type OutputFileBuffer::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char character = traits_type::to_char_type(c);
    return file_.Write({&character, 1}) ? c : traits_type::eof();
}

OutputFileStream::OutputFileStream(const std::string& name) : std::ostream(nullptr) {
    const int error = file_.Open(name);
    if (error != 0) throw OpenFailure(name, error == EMFILE || error == ENFILE);
    init(&buffer_);
}

void OutputFileStream::Close() {
    if (!file_.Close()) setstate(badbit);
}

std::string WildcardName(const std::string& pattern, std::uint64_t contextId) {
    std::string name = pattern;
    const std::size_t star = name.find('*');
    if (star == std::string::npos) return name + std::to_string(contextId);
    return name.replace(star, 1, std::to_string(contextId));
}

}  // namespace Metrics::detail
