// Value types and parameter records: the rational constructors with their odd results, the
// assertions, and the printed forms.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "cinedng/cd_genericStructs.h"

using namespace cinedng;

template <typename R>
static std::string str(const R& r) {
    std::ostringstream os;
    os << r;
    return os.str();
}

TEST(Rationals, ConstructorsZeroRuleAndWrapping) {
    // Values worked out from the rules: 2^63/|F| and F*d truncated, out of range -> INT_MIN (x86);
    // unsigned: 2^64/F, a quotient of 2^63 or more leaves 0 in the low 32 bits.
    EXPECT_EQ(str(srational(0.0f)) + " " + str(srational(0.5f)) + " " + str(srational(1.0f)) + " " +
                  str(srational(2.0f)),
              "0/1 0/-1 -1/-1 -2147483648/-2147483648");
    EXPECT_EQ(static_cast<float>(srational(2.0f)), 1.0f);
    EXPECT_TRUE(std::signbit(static_cast<float>(srational(0.5f))));  // 0/-1 is negative zero
    EXPECT_EQ(str(urational(0.0f)) + " " + str(urational(0.5f)) + " " + str(urational(2.0f)),
              "0/1 2147483648/4294967295 0/0");
    // The zero rule runs before the assertion; unsigned values wrap into the signed fields.
    EXPECT_EQ(str(srational(0, 0)) + " " + str(urational(0u, 0u)) + " " + str(srational(0u, 7u)), "0/1 0/1 0/1");
    const srational wrapped(urational(3000000000u, 1u));
    EXPECT_EQ(str(wrapped) + " " + str(srational(3000000000u)), "-1294967296/1 -1294967296/1");
    EXPECT_LT(static_cast<float>(wrapped), 0.0f);
    EXPECT_EQ(str(urational(srational(-1, 4))) + " " + str(urational(4294967295u)) + " " + str(srational()), "4294967295/4 4294967295/1 0/1");
    EXPECT_EQ(static_cast<float>(srational(1, 3)), 1.0f / 3.0f);
}

TEST(RationalsDeathTest, AssertionsNameConditionFunctionAndSource) {
    EXPECT_DEATH(srational(5, 0), "Assertion failed: \\(d != 0\\), function srational, file cd_genericStructs.cpp");
    EXPECT_DEATH(urational(5u, 0u), "d != 0");
    EXPECT_DEATH(srational(5u, 0u), "d != 0");
    EXPECT_DEATH(srational(1e30f), "LONG_MIN <= F && F <= LONG_MAX");
    EXPECT_DEATH(srational(std::nanf("")), "LONG_MIN <= F && F <= LONG_MAX");
    EXPECT_DEATH(urational(-1.0f), "0 <= F && F <= ULONG_MAX");
}

TEST(PrintedRecords, StatsPairEntryAndOptions) {
    IOstats s;
    EXPECT_EQ(str(s), "IOstats< bytesProcessed:0, timeConfigure:0, timeOpen:0, timeDataProcessing:0, timeClose:0 >");
    s.bytesProcessed = 12345678901ull;
    s.timeOpen = 0.1234567f;
    EXPECT_EQ(str(s) + str(v2f(1.5f, -2.0f)),
              "IOstats< bytesProcessed:12345678901, timeConfigure:0, timeOpen:0.123457, timeDataProcessing:0, "
              "timeClose:0 >(1.5,-2)");

    // A one-byte entry still shows 32 signed bytes; bytes past the end of the frame print as 0.
    unsigned char bytes[40];
    for (int i = 0; i < 40; ++i) bytes[i] = static_cast<unsigned char>(i == 0 ? 200 : i);
    localIFDEntry e{254, 1, 1, 1, bytes, 40};
    std::string expected = "localIFDEntry< Tag: 254, Type: 1, Count: 1, FieldSize: 1, pValue: " +
                           str(static_cast<const void*>(bytes)) + ", first 32 bytes : -56";
    for (int i = 1; i < 32; ++i) expected += "," + std::to_string(i);
    EXPECT_EQ(str(e), expected + " >");
    e.validBytes = 2;
    EXPECT_NE(str(e).find(": -56,1,0,0,"), std::string::npos);

    cd_CommandLineOptions o;
    EXPECT_EQ(str(o),
              "CommandLineOptions< VerboseMode:false, PreferredWidth:-1, SkipFrames:0, MaxDuration:999999, Threads:8, "
              "OutputFormat:openexr, OutputFilenameTemplate:\"frame%06d\", InputFolder:\"\", OutputFolder:\"\", "
              "LookFilename:\"\", Benchmark Runs:\"0\" >");
    o.VerboseMode = true;
    o.BenchmarkRuns = 3;
    EXPECT_EQ(str(o).substr(0, 36) + str(o).substr(str(o).size() - 22), "CommandLineOptions< VerboseMode:true, Benchmark Runs:\"3\" >");
}

TEST(Timing, EachLapMeasuresSinceThePreviousOne) {
    cd_timing t;
    for (const double start = cd_timing::current_time(); cd_timing::current_time() - start < 0.03;) continue;
    EXPECT_GE(t.time(), 0.029f);
    EXPECT_LT(t.time(), 0.01f);
    testing::internal::CaptureStdout();
    t.time("unpack");
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex("   Duration = [ 0-9.e+-]{8,} ms for unpack\n"));
}

TEST(ChangeCase, LowersEveryByteThroughTolower) {
    EXPECT_EQ(cd_changeCase::toLowerCase(std::string("FRAME_0001.DnG\xC4\0Z", 17)), std::string("frame_0001.dng\xC4\0z", 17));
}
