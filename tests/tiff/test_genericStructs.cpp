#include <gtest/gtest.h>

#include <cmath>
#include <regex>
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

// ---- rationals ---------------------------------------------------------------------------------------

TEST(Rationals, ZeroNumeratorForcesDenominatorOneBeforeTheCheck) {
    srational s(0, 0);
    EXPECT_EQ(s.n, 0);
    EXPECT_EQ(s.d, 1);
    urational u(0u, 0u);
    EXPECT_EQ(u.n, 0u);
    EXPECT_EQ(u.d, 1u);
    srational w(0u, 7u);
    EXPECT_EQ(w.d, 1);
}

TEST(Rationals, UnsignedValuesWrapIntoTheSignedFields) {
    srational s(urational(3000000000u, 1u));
    EXPECT_EQ(s.n, static_cast<int32_t>(3000000000u));
    EXPECT_LT(static_cast<float>(s), 0.0f);
    srational one(3000000000u);
    EXPECT_EQ(one.n, -1294967296);
    EXPECT_EQ(one.d, 1);
    urational back(srational(-1, 4));
    EXPECT_EQ(back.n, 4294967295u);
    EXPECT_EQ(back.d, 4u);
}

TEST(Rationals, FloatValueIsTheFloatQuotient) {
    EXPECT_EQ(static_cast<float>(srational(1, 3)), 1.0f / 3.0f);
    EXPECT_EQ(static_cast<float>(urational(2u, 3u)), 2.0f / 3.0f);
    const float negZero = static_cast<float>(srational(0.5f));  // 0/-1
    EXPECT_EQ(negZero, 0.0f);
    EXPECT_TRUE(std::signbit(negZero));
}

TEST(Rationals, UnsignedFloatConstructorKeepsItsOddResults) {
    urational zero(0.0f);
    EXPECT_EQ(zero.n, 0u);
    EXPECT_EQ(zero.d, 1u);
    urational half(0.5f);  // d all bits set; n = 0.5 * 2^32 (the float of d)
    EXPECT_EQ(half.d, 4294967295u);
    EXPECT_EQ(half.n, 2147483648u);
    urational two(2.0f);  // 2^64 / 2 = 2^63 truncates to the out-of-range value: low 32 bits 0
    EXPECT_EQ(two.d, 0u);
    EXPECT_EQ(two.n, 0u);
}

TEST(Rationals, PrintAsNumeratorSlashDenominator) {
    std::ostringstream os;
    os << srational(1, 3) << " " << srational(-1, 3) << " " << urational(4294967295u) << " " << srational();
    EXPECT_EQ(os.str(), "1/3 -1/3 4294967295/1 0/1");
}

TEST(RationalsDeathTest, ZeroDenominatorAndFloatRangeAreProgrammingErrors) {
    EXPECT_DEATH(urational(5u, 0u), "d != 0");
    EXPECT_DEATH(srational(5u, 0u), "d != 0");
    EXPECT_DEATH(srational(1e30f), "LONG_MIN <= F && F <= LONG_MAX");
    EXPECT_DEATH(srational(std::nanf("")), "LONG_MIN <= F && F <= LONG_MAX");
    EXPECT_DEATH(urational(-1.0f), "0 <= F && F <= ULONG_MAX");
}

// ---- printed records -----------------------------------------------------------------------------------

TEST(PrintedRecords, IOstatsAndV2f) {
    std::ostringstream os;
    os << IOstats();
    EXPECT_EQ(os.str(), "IOstats< bytesProcessed:0, timeConfigure:0, timeOpen:0, timeDataProcessing:0, timeClose:0 >");
    IOstats s;
    s.bytesProcessed = 12345678901ull;
    s.timeOpen = 0.1234567f;
    std::ostringstream os2;
    os2 << s << v2f(1.5f, -2.0f);
    EXPECT_EQ(os2.str(),
              "IOstats< bytesProcessed:12345678901, timeConfigure:0, timeOpen:0.123457, timeDataProcessing:0, "
              "timeClose:0 >(1.5,-2)");
}

TEST(PrintedRecords, LocalIfdEntryShowsAFixedSpanOfSignedBytes) {
    unsigned char bytes[40];
    for (int i = 0; i < 40; ++i) bytes[i] = static_cast<unsigned char>(i == 0 ? 200 : i);
    localIFDEntry e;
    e.Tag = 254;
    e.Type = 1;
    e.Count = 1;
    e.FieldSize = 1;
    e.pValue = bytes;
    e.validBytes = 40;
    std::ostringstream os;
    os << e;
    std::ostringstream ptr;
    ptr << static_cast<const void*>(bytes);
    std::string expected = "localIFDEntry< Tag: 254, Type: 1, Count: 1, FieldSize: 1, pValue: " + ptr.str() +
                           ", first 32 bytes : -56";
    for (int i = 1; i < 32; ++i) expected += "," + std::to_string(i);
    EXPECT_EQ(os.str(), expected + " >");

    // Bytes past the end of the frame are not read: they print as 0.
    e.validBytes = 2;
    std::ostringstream cut;
    cut << e;
    std::string tail = ", first 32 bytes : -56,1";
    for (int i = 2; i < 32; ++i) tail += ",0";
    EXPECT_NE(cut.str().find(tail + " >"), std::string::npos);
}

// ---- stop-watch and strings ------------------------------------------------------------------------------

TEST(Timing, EachLapMeasuresSinceThePreviousOne) {
    cd_timing t;
    const double start = cd_timing::current_time();
    while (cd_timing::current_time() - start < 0.03) {
    }
    const float first = t.time();
    const float second = t.time();
    EXPECT_GE(first, 0.029f);
    EXPECT_LT(second, 0.01f);
    testing::internal::CaptureStdout();
    t.time("unpack");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(out, std::regex("   Duration = [ 0-9.e+-]{8,} ms for unpack\n"))) << out;
}

TEST(ChangeCase, LowersEveryByteThroughTolower) {
    EXPECT_EQ(cd_changeCase::toLowerCase("FRAME_0001.DnG"), "frame_0001.dng");
    EXPECT_EQ(cd_changeCase::toLowerCase(std::string("A\xC4\0Z", 4)), std::string("a\xC4\0z", 4));
}

TEST(ParameterRecords, DefaultsOfThePerFrameRecord) {
    DynamicMetadata m;
    EXPECT_EQ(m.imageNumber, 0u);
    for (uint8_t b : m.timeCode) EXPECT_EQ(b, 0);
    EXPECT_TRUE(m.dateTimeOriginal.empty());
    linearParams p;
    EXPECT_EQ(p.byteOrder, 0x4949);
    cd_CommandLineOptions o;
    o.VerboseMode = true;
    o.InputFolder = "/in";
    o.BenchmarkRuns = 3;
    std::ostringstream os;
    os << o;
    EXPECT_EQ(os.str(),
              "CommandLineOptions< VerboseMode:true, PreferredWidth:-1, SkipFrames:0, MaxDuration:999999, Threads:8, "
              "OutputFormat:openexr, OutputFilenameTemplate:\"frame%06d\", InputFolder:\"/in\", OutputFolder:\"\", "
              "LookFilename:\"\", Benchmark Runs:\"3\" >");
}
