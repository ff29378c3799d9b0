// Float to half conversion of the EXR writer, bit for bit, and the fused matrix + half row kernel.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "cinedng/cd_openEXRformatter.h"

using cinedng::cd_openEXRformatter;

namespace {

float fromBits(uint32_t b) {
    float f;
    std::memcpy(&f, &b, 4);
    return f;
}

// The conversion rules, one branch per rule, with b the bit pattern read as a signed integer.
uint16_t referenceHalf(float v) {
    int32_t b;
    std::memcpy(&b, &v, 4);
    if (b > 0x477FF000) {
        if (b == 0x7F800000) return 0x7C00;
        if (b > 0x7F800000) return 0x7D00;
        return 0x7BFF;
    }
    if (b >= 0x38800000) return static_cast<uint16_t>(((b + 0x20) >> 13) - 0x1C000);
    if (b == 0) return 0;
    if (b > 0) return static_cast<uint16_t>(static_cast<int>(fromBits(static_cast<uint32_t>(b + 0x20)) * 16777216.0f));
    return static_cast<uint16_t>(referenceHalf(-v) + 0x8000);
}

}  // namespace

TEST(HalfConversion, NamedValues) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(1.0f), 0x3C00);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(65504.0f), 0x7BFF);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(100000.0f), 0x7BFF);  // clamped, not infinite
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(inf), 0x7C00);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(nan), 0x7D00);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(-2.0f), 0xC000);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(std::ldexp(1.0f, -24)), 0x0001);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(-0.0f), 0x8000);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(0.0f), 0x0000);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(-inf), 0xFC00);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(-nan), 0xFD00);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(-100000.0f), 0xFBFF);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(std::ldexp(1.0f, -14)), 0x0400);  // smallest normal half
    // The mantissa is in effect truncated: 1 + 0.75 half steps still gives 1.0 ...
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(1.0f + std::ldexp(1.0f, -10) - std::ldexp(1.0f, -12)), 0x3C00);
    // ... except within 0x20 float steps below the next half, where the added 0x20 carries over.
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(fromBits(0x3F801FE0u)), 0x3C01);
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(fromBits(0x3F801FDFu)), 0x3C00);
    // Beyond 65504 up to 65520 the rule's arithmetic lands on 0x7BFF too.
    EXPECT_EQ(cd_openEXRformatter::floatToHalf(65519.0f), 0x7BFF);
}

TEST(HalfConversion, MatchesTheRulesOverAWideSampleOfBitPatterns) {
    std::vector<uint32_t> patterns;
    // Every 251st pattern over the whole 32-bit range.
    for (uint64_t b = 0; b <= 0xFFFFFFFFull; b += 251) patterns.push_back(static_cast<uint32_t>(b));
    // Every pattern near the edges of the rules, for both signs.
    for (uint32_t edge : {0x00000000u, 0x00800000u, 0x38800000u, 0x477FF000u, 0x7F800000u, 0x7FFFFFFFu, 0x33800000u}) {
        for (int64_t d = -4096; d <= 4096; ++d) {
            const int64_t b = static_cast<int64_t>(edge) + d;
            if (b < 0 || b > 0x7FFFFFFF) continue;
            patterns.push_back(static_cast<uint32_t>(b));
            patterns.push_back(static_cast<uint32_t>(b) | 0x80000000u);
        }
    }
    std::size_t mismatches = 0;
    for (uint32_t b : patterns) {
        const float v = fromBits(b);
        const uint16_t got = cd_openEXRformatter::floatToHalf(v);
        const uint16_t want = referenceHalf(v);
        if (got != want && ++mismatches <= 10) {
            ADD_FAILURE() << std::hex << "bits 0x" << b << ": got 0x" << got << ", want 0x" << want;
        }
    }
    EXPECT_EQ(mismatches, 0u) << "of " << patterns.size() << " patterns";
}

TEST(HalfConversion, RowKernelAppliesTheMatrixAndStoresBGRPlanes) {
    const float m[9] = {0.9803f, 0.0411f, -0.0214f, -0.0512f, 1.1020f, -0.0508f, 0.0103f, -0.1601f, 1.1498f};
    std::mt19937 rng(12345);
    std::uniform_real_distribution<float> dist(-2.0f, 70000.0f);
    std::uniform_int_distribution<uint32_t> bits;
    // Lengths around the kernel's internal block size, and planes at odd addresses.
    for (unsigned int n : {0u, 1u, 5u, 127u, 128u, 129u, 300u, 1000u}) {
        std::vector<float> rgb(3 * n);
        for (std::size_t i = 0; i < rgb.size(); ++i) {
            switch (i % 7) {
                case 0: rgb[i] = fromBits(bits(rng)); break;  // any pattern: NaN, infinities, denormals
                case 1: rgb[i] = std::ldexp(dist(rng), -30); break;
                default: rgb[i] = dist(rng) / 1000.0f; break;
            }
        }
        std::vector<unsigned char> out(6 * n + 3, 0xEE);
        unsigned char* b = out.data() + 1;
        cd_openEXRformatter::convertRow(rgb.data(), m, n, b, b + 2 * n, b + 4 * n);
        for (unsigned int x = 0; x < n; ++x) {
            const float r = rgb[3 * x], g = rgb[3 * x + 1], bl = rgb[3 * x + 2];
            const uint16_t wantR = referenceHalf(m[0] * r + m[1] * g + m[2] * bl);
            const uint16_t wantG = referenceHalf(m[3] * r + m[4] * g + m[5] * bl);
            const uint16_t wantB = referenceHalf(m[6] * r + m[7] * g + m[8] * bl);
            auto at = [&](std::size_t plane) {
                return static_cast<uint16_t>(b[2 * (plane * n + x)] | (b[2 * (plane * n + x) + 1] << 8));
            };
            ASSERT_EQ(at(0), wantB) << "n " << n << " x " << x;
            ASSERT_EQ(at(1), wantG) << "n " << n << " x " << x;
            ASSERT_EQ(at(2), wantR) << "n " << n << " x " << x;
        }
        EXPECT_EQ(out.front(), 0xEE);
        EXPECT_EQ(out[6 * n + 1], 0xEE);
        EXPECT_EQ(out.back(), 0xEE);
    }
}
