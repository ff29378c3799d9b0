// Float to half conversion bit for bit, and the fused matrix + half row kernel.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "cinedng/cd_openEXRformatter.h"

using cinedng::cd_openEXRformatter;

namespace {

float fromBits(uint32_t b) { return std::bit_cast<float>(b); }

// The conversion rules one by one, with b the bit pattern read as a signed integer.
uint16_t referenceHalf(float v) {
    const int32_t b = std::bit_cast<int32_t>(v);
    if (b > 0x477FF000) return b == 0x7F800000 ? 0x7C00 : (b > 0x7F800000 ? 0x7D00 : 0x7BFF);
    if (b >= 0x38800000) return static_cast<uint16_t>(((b + 0x20) >> 13) - 0x1C000);
    if (b == 0) return 0;
    if (b > 0) return static_cast<uint16_t>(static_cast<int>(fromBits(static_cast<uint32_t>(b + 0x20)) * 16777216.0f));
    return static_cast<uint16_t>(referenceHalf(-v) + 0x8000);
}

}  // namespace

TEST(HalfConversion, NamedValues) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const struct { float v; uint16_t h; } cases[] = {
        {1.0f, 0x3C00}, {65504.0f, 0x7BFF}, {100000.0f, 0x7BFF}, {inf, 0x7C00}, {nan, 0x7D00}, {-2.0f, 0xC000},
        {std::ldexp(1.0f, -24), 0x0001}, {-0.0f, 0x8000}, {0.0f, 0}, {-inf, 0xFC00}, {-nan, 0xFD00},
        {-100000.0f, 0xFBFF}, {std::ldexp(1.0f, -14), 0x0400}, {65519.0f, 0x7BFF},
        // The mantissa is truncated, except within 0x20 float steps below the next half.
        {1.0f + std::ldexp(1.0f, -10) - std::ldexp(1.0f, -12), 0x3C00},
        {fromBits(0x3F801FE0u), 0x3C01}, {fromBits(0x3F801FDFu), 0x3C00}};
    for (const auto& c : cases) EXPECT_EQ(cd_openEXRformatter::floatToHalf(c.v), c.h) << c.v;
}

TEST(HalfConversion, MatchesTheRulesOverAWideSampleOfBitPatterns) {
    std::vector<uint32_t> patterns;
    for (uint64_t b = 0; b <= 0xFFFFFFFFull; b += 251) patterns.push_back(static_cast<uint32_t>(b));
    // Every pattern near the edges of the rules, both signs.
    for (int64_t edge : {0x0, 0x00800000, 0x33800000, 0x38800000, 0x477FF000, 0x7F800000, 0x7FFFFFFF})
        for (int64_t b = edge - 4096; b <= edge + 4096; ++b)
            if (b >= 0 && b <= 0x7FFFFFFF) patterns.insert(patterns.end(), {uint32_t(b), uint32_t(b) | 0x80000000u});
    std::size_t mismatches = 0;
    for (uint32_t b : patterns) {
        const uint16_t got = cd_openEXRformatter::floatToHalf(fromBits(b)), want = referenceHalf(fromBits(b));
        if (got != want && ++mismatches <= 10) ADD_FAILURE() << std::hex << b << ": " << got << " vs " << want;
    }
    EXPECT_EQ(mismatches, 0u);
}

TEST(HalfConversion, RowKernelAppliesTheMatrixAndStoresBGRPlanes) {
    const float m[9] = {0.9803f, 0.0411f, -0.0214f, -0.0512f, 1.1020f, -0.0508f, 0.0103f, -0.1601f, 1.1498f};
    std::mt19937 rng(12345);
    // Lengths around the kernel's internal block size; planes at an odd address. Every 5th input is
    // any bit pattern (NaN, infinities, denormals), the others lie in -2..70.
    for (unsigned int n : {0u, 1u, 127u, 128u, 129u, 1000u}) {
        std::vector<float> rgb(3 * n);
        for (std::size_t i = 0; i < rgb.size(); ++i)
            rgb[i] = i % 5 ? std::uniform_real_distribution<float>(-2.0f, 70.0f)(rng) : fromBits(uint32_t(rng()));
        std::vector<unsigned char> out(6 * n + 2, 0xEE);
        cd_openEXRformatter::convertRow(rgb.data(), m, n, &out[1], &out[1 + 2 * n], &out[1 + 4 * n]);
        for (unsigned int i = 0; i < 3 * n; ++i) {  // plane (B, G, R) i / n, pixel i % n
            const float* p = &rgb[3 * (i % n)];
            const float* row = m + 3 * (2 - i / n);
            const uint16_t want = referenceHalf(row[0] * p[0] + row[1] * p[1] + row[2] * p[2]);
            ASSERT_EQ(out[1 + 2 * i] | (out[2 + 2 * i] << 8), want) << "n " << n << " at " << i;
        }
        EXPECT_TRUE(out.front() == 0xEE && out.back() == 0xEE);
    }
}
