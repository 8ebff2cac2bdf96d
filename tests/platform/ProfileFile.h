#pragma once

#include <string_view>

#include "metrics/platform/Platform.h"
#include "tests/support/FolderTest.h"

namespace Metrics::platform {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

// A profile file in a folder of its own, gone at the end.
class ProfileFile : public Testing::FolderTest {
  protected:
    std::uint32_t Write(const std::string& section = "s", std::string_view entries = "a=1\0"sv) {
        return SetProfileSection(path_.string(), section, entries);
    }
    // In place, as some editors do.
    void Fill(std::string_view text) { std::ofstream(path_) << text; }
    std::string Text() const { return Testing::ReadFile(path_); }

    fs::path path_ = folder_ / "schema.ini";
};

}  // namespace Metrics::platform
