#include <gtest/gtest.h>

#include <filesystem>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace fs = std::filesystem;

TEST(PathTest, NamesThisProgramAndTheCurrentFolder) {
    EXPECT_EQ(fs::path(ExecutablePath()).stem(), "platform_test");
    EXPECT_TRUE(fs::exists(ExecutablePath()));
    EXPECT_TRUE(fs::equivalent(WorkingDirectory(), fs::current_path()));
}

TEST(PathTest, PiecesOfAPath) {
    const auto pieces = [](std::string_view path) {
        const PathParts parts = SplitPath(path);
        const auto text = [](std::string_view part) { return std::string(part) + '|'; };
        return text(parts.drive) + text(parts.directory) + text(parts.name) + text(parts.extension);
    };
    EXPECT_EQ(pieces(""), "||||");
    EXPECT_EQ(pieces("run.csv"), "||run|.csv|");
    EXPECT_EQ(pieces("out/run.2.csv"), "|out/|run.2|.csv|");
    EXPECT_EQ(pieces("a.b/run"), "|a.b/|run||");
    EXPECT_EQ(pieces("out/.hidden"), "|out/||.hidden|");
    if (PathSeparator() == '/') {
        EXPECT_EQ(pieces("/srv/out/run.csv"), "/|srv/out/|run|.csv|");
        EXPECT_EQ(pieces("/run"), "/||run||");
        EXPECT_EQ(pieces("a\\b.csv"), "||a\\b|.csv|");
    } else {
        EXPECT_EQ(pieces("C:\\out\\run.csv"), "C:|\\out\\|run|.csv|");
        EXPECT_EQ(pieces("C:run"), "C:||run||");
        EXPECT_EQ(pieces("\\\\server\\share\\a/b.csv"), "|\\\\server\\share\\a/|b|.csv|");
    }
}

}  // namespace Metrics::platform
