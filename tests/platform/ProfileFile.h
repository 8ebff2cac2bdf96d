#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

// A profile file in a folder of its own, gone at the end.
class ProfileFile : public testing::Test {
  protected:
    ProfileFile() { fs::create_directories(folder_); }
    ~ProfileFile() override { fs::remove_all(folder_); }

    std::uint32_t Write(const std::string& section = "s", std::string_view entries = "a=1\0"sv) {
        return SetProfileSection(path_.string(), section, entries);
    }
    // In place, as some editors do.
    void Fill(std::string_view text) { std::ofstream(path_) << text; }
    // Systems that end lines in another way translate that here.
    std::string Text() const {
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder_ = fs::temp_directory_path() / ("metrics-ini-" + std::to_string(CurrentProcessId()));
    fs::path path_ = folder_ / "schema.ini";
};

}  // namespace Metrics::platform
