#include "metrics/output/OutputFile.h"

#include <cerrno>

namespace Metrics::detail {

OpenFailure::OpenFailure(const std::string& name, bool tooManyFiles)
    : std::runtime_error("failed to open file"), details_("failed to open file: " + name) {
    if (tooManyFiles) details_ += " (the limit of open files is reached)";
}

std::unique_ptr<std::ofstream> OpenOutputFile(const std::string& name) {
    auto file = std::make_unique<std::ofstream>();
    file->rdbuf()->pubsetbuf(nullptr, 0);
    errno = 0;
    file->open(name, std::ios::out | std::ios::trunc);
    if (!*file) throw OpenFailure(name, errno == EMFILE || errno == ENFILE);
    return file;
}

std::string WildcardName(const std::string& pattern, std::uint64_t contextId) {
    std::string name = pattern;
    const std::size_t star = name.find('*');
    if (star == std::string::npos) return name + std::to_string(contextId);
    return name.replace(star, 1, std::to_string(contextId));
}

}  // namespace Metrics::detail
