#include "tests/output/OutputFixture.h"

#include <filesystem>

#include "metrics/platform/Platform.h"

namespace Metrics::Testing {

OutputTest::OutputTest() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    folder_ = (std::filesystem::temp_directory_path() / (std::string(info->test_suite_name()) + info->name() +
                                                         "-" + std::to_string(platform::CurrentProcessId())))
                  .string();
    std::filesystem::create_directories(folder_);
}

OutputTest::~OutputTest() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

}  // namespace Metrics::Testing
