#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace fs = std::filesystem;

namespace {

// A new folder whose path has exactly `length` characters, made the working directory until the end of the
// block.
class DeepFolder {
  public:
    explicit DeepFolder(std::size_t length) : before_(fs::current_path()) {
        fs::path deep = fs::temp_directory_path() / ("metrics-path-" + std::to_string(CurrentProcessId()));
        root_ = deep;
        while (length - deep.string().size() > 100) deep /= std::string(49, 'd');
        deep /= std::string(length - deep.string().size() - 1, 'e');
        fs::create_directories(deep);
        fs::current_path(deep);
    }
    ~DeepFolder() {
        fs::current_path(before_);
        fs::remove_all(root_);
    }
    DeepFolder(const DeepFolder&) = delete;
    DeepFolder& operator=(const DeepFolder&) = delete;

  private:
    fs::path before_;
    fs::path root_;
};

}  // namespace

TEST(LongPathTest, AWorkingDirectoryThatDoesNotFitIsEmpty) {
    for (const std::size_t length : {kWorkingDirectoryBuffer - 1, kWorkingDirectoryBuffer}) {
        const DeepFolder folder(length);
        EXPECT_EQ(WorkingDirectory().size(), length < kWorkingDirectoryBuffer ? length : 0);
    }
}

}  // namespace Metrics::platform
