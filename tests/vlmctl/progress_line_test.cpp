// The progress bar in terminals of any width: a line that is too long would scroll with each percent.
#include <gtest/gtest.h>

#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {
namespace {

TEST(ProgressLine, FitsEveryWidthAndKeepsThePercentLongest) {
    for (size_t width = 0; width <= 120; ++width) {
        for (const unsigned percent : {0U, 7U, 50U, 100U}) {
            const std::string line = ProgressLine(percent, percent * 2'500'000, 250'000'000, width);
            EXPECT_LE(line.size(), width) << line;
            EXPECT_TRUE(width < 4 || line.find('%') != std::string::npos) << width;
        }
    }
    EXPECT_EQ(ProgressLine(40, 1'200'000, 3'000'000, 79),
              "[################........................]  40%  1.2 MB of 3.0 MB");
    EXPECT_EQ(ProgressLine(40, 1'200'000, 3'000'000, 35), "[####......]  40%  1.2 MB of 3.0 MB");
    EXPECT_EQ(ProgressLine(100, 5, 5, 20), "[#############] 100%");
}

}  // namespace
}  // namespace vlm::ctl
