#include "examples/wordcount/BufferFile.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace WordCount {

void SaveBuffer(const Metrics::MetricsValueBuffer& buffer, const std::filesystem::path& path) {
    const auto& bytes = buffer.Bytes();
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error(path.string() + ": cannot be written");
}

Metrics::MetricsValueBuffer LoadBuffer(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) throw std::runtime_error(path.string() + ": cannot be opened");
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    return Metrics::MetricsValueBuffer(std::move(bytes));
}

}  // namespace WordCount
