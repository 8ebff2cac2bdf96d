#include "metrics/output/OutputFile.h"

#include "metrics/base/FileError.h"

namespace Metrics::detail {

std::streamsize OutputFileBuffer::xsputn(const char* text, std::streamsize size) {
    return file_.Write({text, static_cast<std::size_t>(size)}) ? size : 0;
}

OutputFileBuffer::int_type OutputFileBuffer::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char character = traits_type::to_char_type(c);
    return file_.Write({&character, 1}) ? c : traits_type::eof();
}

void OutputFileStream::Open(const std::string& name, Opening opening) {
    name_ = name;
    Check(file_.Open(name, opening));
}

void OutputFileStream::Empty() {
    Check(file_.Empty());
}

void OutputFileStream::Check(int error) const {
    if (error != 0) throw FileError("failed to open file", name_, platform::ErrorText(error));
}

void OutputFileStream::Close() {
    if (!file_.Close()) setstate(badbit);
}

std::string OutputFileStream::Failure() const {
    return file_.Error() != 0 ? platform::ErrorText(file_.Error()) : std::string();
}

std::string WildcardName(const std::string& pattern, std::uint64_t contextId) {
    std::string name = pattern;
    const std::size_t star = name.find('*');
    if (star == std::string::npos) return name + std::to_string(contextId);
    return name.replace(star, 1, std::to_string(contextId));
}

}  // namespace Metrics::detail
