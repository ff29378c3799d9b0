#include <gtest/gtest.h>

#include <sstream>

#include "cinedng/cd_genericStructs.h"

using namespace cinedng;

TEST(Rationals, FloatConstructorsKeepTheirOddResults) {
    srational half(0.5f);
    EXPECT_EQ(half.n, 0);
    EXPECT_EQ(half.d, -1);
    srational one(1.0f);
    EXPECT_EQ(one.n, -1);
    EXPECT_EQ(one.d, -1);
    srational two(2.0f);
    EXPECT_EQ(two.n, INT32_MIN);
    EXPECT_EQ(two.d, INT32_MIN);
    EXPECT_FLOAT_EQ(static_cast<float>(two), 1.0f);
    srational zero(0.0f);
    EXPECT_EQ(zero.n, 0);
    EXPECT_EQ(zero.d, 1);
}

TEST(CommandLineOptions, DefaultPrintLine) {
    std::ostringstream os;
    os << cd_CommandLineOptions();
    EXPECT_EQ(os.str(),
              "CommandLineOptions< VerboseMode:false, PreferredWidth:-1, SkipFrames:0, MaxDuration:999999, Threads:8, "
              "OutputFormat:openexr, OutputFilenameTemplate:\"frame%06d\", InputFolder:\"\", OutputFolder:\"\", "
              "LookFilename:\"\", Benchmark Runs:\"0\" >");
}

TEST(AssertDeathTest, StopsWithConditionFunctionAndFile) {
    EXPECT_DEATH(srational(5, 0), "Assertion failed: \\(d != 0\\), function srational, file cd_genericStructs.cpp");
}
