#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace Metrics::Testing {

/// The text of a file, as systems read it that end lines in their own way.
inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) return "no file";
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder of its own for each test, gone afterwards.
class FolderTest : public testing::Test {
  protected:
    FolderTest() { std::filesystem::create_directories(folder_); }
    ~FolderTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    std::string Path(const std::string& name) const { return (folder_ / name).string(); }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("metrics-test-" + std::to_string(std::random_device()()));
};

}  // namespace Metrics::Testing
