// AHD and VCD demosaics: input checks, regions, hand-worked values, and bit-for-bit agreement of the
// library's stages with the literal readings in reference_demosaic.h (synthetic and real mosaics).
#include <libraw/libraw.h>

#include <random>

#include "cinedng/KR_CinemaDNGDebayeringAHD.h"
#include "cinedng/KR_CinemaDNGDebayeringVCD.h"
#include "cinedng/cd_exception.h"
#include "ops_test_support.h"
#include "reference_demosaic.h"

using namespace cinedng;

namespace {

using Floats = std::unique_ptr<float, decltype(&std::free)>;
const float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// The operation's RGBA samples; the result record must say 4 x 32-bit float of the input's size.
std::vector<float> run(KR_CinemaDNGDebayeringProtocol& op, std::vector<float>& m, int w, int h, int layout) {
    const PatchImageBuffer in{w, h, 1, 32, layout, 0, m.data()};
    const auto r = opstest::own(op.debayerInputImage(&in, nullptr));
    EXPECT_TRUE(r && r->width == w && r->height == h && r->numChannels == 4 && r->bitsPerChannel == 32 && r->bufferType == 0);
    return r ? std::vector<float>((float*)r->imageBuffer, (float*)r->imageBuffer + size_t(w) * h * 4) : std::vector<float>();
}
std::vector<float> ahd(std::vector<float>& m, int w, int h, int layout, const float* M = kIdentity) {
    KR_CinemaDNGDebayeringAHD op;
    return op.setCamToXYZMtx(opstest::matrix(std::vector<float>(M, M + 9))), run(op, m, w, h, layout);
}
std::vector<float> vcd(std::vector<float>& m, int w, int h, int layout, float factor = 0.0f) {
    KR_CinemaDNGDebayeringVCD op;
    return op.setSharpEdgeBlockFactor(factor), run(op, m, w, h, layout);
}

// Uniform noise, or gradients and stripes with a little noise (closer to a real frame).
std::vector<float> mosaic(int w, int h, unsigned salt, bool structured, float lo = 0.0f, float hi = 1.0f) {
    std::mt19937 rng(1234u + salt);
    std::uniform_real_distribution<float> d(lo, hi);
    std::normal_distribution<float> noise(0.0f, 0.01f);
    std::vector<float> m(size_t(w) * h);
    for (size_t i = 0; i < m.size(); ++i) {
        const int x = int(i % w), y = int(i / w);
        m[i] = !structured ? d(rng)
                           : 0.2f + 0.5f * x / w + ((x / 7 + y / 11) % 2 ? 0.2f : 0.0f) + ((x + y) % 2 ? 0.05f : 0.0f) + noise(rng);
    }
    return m;
}

bool sameBits(const float* a, const std::vector<float>& b) { return std::memcmp(a, b.data(), b.size() * sizeof(float)) == 0; }

void expectBothAsReference(std::vector<float>& m, int w, int h, int layout, const float M[9], float factor) {
    EXPECT_TRUE(sameBits(ahd(m, w, h, layout, M).data(), refdemosaic::ahd(m, w, h, layout, M).out)) << layout;
    EXPECT_TRUE(sameBits(vcd(m, w, h, layout, factor).data(), refdemosaic::vcd(m, w, h, layout, factor).out))
        << layout << " " << factor;
}

}  // namespace

TEST(Demosaic, InterfaceWrongBuffersAndHelpersByHand) {
    EXPECT_STREQ(KR_AHD_CamToXYZMtxKey, "AHD_CamToXYZMtxKey");
    KR_CinemaDNGDebayeringAHD ahdOp;
    KR_CinemaDNGDebayeringVCD vcdOp;
    EXPECT_EQ(ahdOp.camToXYZMtx()->floatVector(), std::vector<float>(kIdentity, kIdentity + 9));
    EXPECT_EQ(vcdOp.sharpEdgeBlockFactor(), 0.0f);
    std::vector<float> m(64, 0.5f);
    KR_CinemaDNGDebayeringProtocol* ops[] = {&ahdOp, &vcdOp};
    for (auto [channels, bits, type] : {std::tuple{1, 16, 0}, std::tuple{3, 32, 0}, std::tuple{1, 32, 1}})
        for (KR_CinemaDNGDebayeringProtocol* op : ops) {
            const PatchImageBuffer in{8, 8, channels, bits, 0, type, m.data()};
            std::shared_ptr<KSError> err;
            EXPECT_EQ(op->debayerInputImage(&in, &err), nullptr);
            opstest::expectError(err, "KR_CinemaDNGDebayering", "This patch needs a monochrome 32 bit float buffer as input.");
            EXPECT_EQ(op->debayerInputImage(&in, nullptr), nullptr);  // no error object wanted
        }
    const PatchImageBuffer in{8, 8, 1, 32, 0, 0, m.data()};
    ahdOp.setCamToXYZMtx(opstest::matrix({1, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_THROW(ahdOp.debayerInputImage(&in, nullptr), cd_exception);
    EXPECT_EQ(horizontalGradientLevelForRedCenterPixel(3, 2, m.data(), debayerVCD_Geometry{8, 8, 1, 0}), 1e-9f);  // flat: the floor
}

TEST(Demosaic, EmptyRegionsGreyLayoutThreeAndClipping) {
    // AHD: height below 5 or width below 4. VCD green: fewer than 13 rows or 12 columns (alpha is
    // written only there); 12 x 13 has exactly one pixel in it.
    for (auto [w, h] : {std::pair{10, 4}, std::pair{3, 10}, std::pair{0, 0}}) {
        std::vector<float> m(size_t(w) * h + 1, 0.5f);
        for (float v : ahd(m, w, h, 0)) ASSERT_EQ(v, 0.0f);
    }
    for (auto [w, h] : {std::pair{30, 12}, std::pair{11, 30}, std::pair{12, 13}}) {
        std::vector<float> m = mosaic(w, h, 8, false), out = vcd(m, w, h, 0);
        int alpha = 0;
        for (int i = 0; i < w * h; ++i) alpha += out[4 * i + 3] == 1.0f;
        EXPECT_EQ(alpha, w == 12 ? 1 : 0) << w << "x" << h;
    }
    const int w = 16, h = 14;
    std::vector<float> grey(w * h, 0.4f), any = mosaic(w, h, 3, false), bright = mosaic(w, h, 4, false, 0.5f, 3.0f);
    const std::vector<float> g = ahd(grey, w, h, 0), a = ahd(any, w, h, 3), b = ahd(bright, w, h, 1);
    for (int y = 2; y <= h - 3; ++y)
        for (int x = 2; x <= w - 2; ++x) {
            const int i = y * w + x;
            const bool inner = x >= 3 && x <= w - 3 && y >= 3 && y <= h - 4;  // all neighbours in the region
            EXPECT_EQ(g[4 * i + 3], 1.0f);
            for (int c = 0; c < 3 && inner; ++c) EXPECT_FLOAT_EQ(g[4 * i + c], 0.4f) << x << "," << y;
            // Layout 3: every site green, so G is the sample, and so is R along the row (x or y even).
            EXPECT_EQ(a[4 * i + 1], any[i]);
            EXPECT_TRUE(!inner || (x % 2 && y % 2) || std::fabs(a[4 * i] - any[i]) < 1e-6f) << x << "," << y;
            // Interpolated values are clipped to 0..1; a site keeps its own sample as it is.
            for (int c = 0; c < 3; ++c)
                EXPECT_TRUE(c == refdemosaic::site(x, y, 1) ? b[4 * i + c] == bright[i] : b[4 * i + c] >= 0 && b[4 * i + c] <= 1);
        }
}

TEST(AHD, TiesGoToTheVerticalCandidate) {
    // Large enough for the in-place sums to overflow to infinity in both maps: ties from there on.
    const int w = 160, h = 90;
    std::vector<float> m = mosaic(w, h, 5, true);
    const auto ref = refdemosaic::ahd(m, w, h, 0, kIdentity);
    const std::vector<float> out = ahd(m, w, h, 0);
    int ties = 0, hWins = 0;
    for (int y = 2; y <= h - 3; ++y)
        for (int x = 2, i = y * w + 2; x <= w - 2; ++x, ++i) {
            if (std::memcmp(&ref.H[3 * i], &ref.V[3 * i], 3 * sizeof(float)) == 0) continue;
            ties += ref.homH[i] == ref.homV[i], hWins += ref.homH[i] > ref.homV[i];
            const float* src = ref.homH[i] > ref.homV[i] ? &ref.H[3 * i] : &ref.V[3 * i];
            for (int c = 0; c < 3; ++c) EXPECT_EQ(out[4 * i + c], src[c]);
        }
    EXPECT_TRUE(ties > 0 && hWins > 0) << ties << " " << hWins;
}

TEST(VCD, DefaultFactorPicksTheMedianFilteredEstimateByGradient) {
    const int w = 40, h = 36;
    for (int layout : {0, 1, 2}) {
        std::vector<float> m = mosaic(w, h, 20 + layout, true), out = vcd(m, w, h, layout), E = refdemosaic::vcd(m, w, h, layout, 0).E;
        const debayerVCD_Geometry g{w, h, 1, layout};  // the default factor 0: the strong-edge rule everywhere
        int horizontal = 0, vertical = 0;
        for (int y = 6; y <= h - 7; ++y)
            for (int x = 6; x <= w - 6; ++x) {
                const int i = y * w + x;
                if (refdemosaic::site(x, y, layout) == 1) continue;
                const float H = horizontalGradientLevelForRedCenterPixel(x, y, m.data(), g);
                const float V = verticalGradientLevelForBlueCenterPixel(x, y, m.data(), g);
                EXPECT_EQ(out[4 * i + 1], V >= H ? E[3 * i] : E[3 * i + 1]) << x << "," << y;
                ++(V >= H ? horizontal : vertical);
            }
        EXPECT_TRUE(horizontal > 0 && vertical > 0);
    }
}

TEST(Demosaic, BothMatchTheLiteralReadingsBitForBit) {
    const float camToXYZ[9] = {0.6f, 0.25f, 0.12f, 0.28f, 0.7f, 0.02f, 0.0f, 0.1f, 0.8f};
    for (int layout : {0, 1, 2, 3})
        for (float factor : {0.0f, 1.0f, 1.5f, 1e9f}) {
            std::vector<float> a = mosaic(53, 47, layout * 7 + 1, true), b = mosaic(32, 29, layout * 7 + 2, false, -0.1f, 1.2f);
            expectBothAsReference(a, 53, 47, layout, camToXYZ, factor);
            expectBothAsReference(b, 32, 29, layout, kIdentity, factor);
            b[10 * 32 + 10] = b[18 * 32 + 17] = INFINITY;  // infinite and undefined gradient levels and Lab values
            b[14 * 32 + 21] = NAN;
            expectBothAsReference(b, 32, 29, layout, kIdentity, factor);
        }
    // Far outside 0..1: the exact slow path of the cube root. Then tiles of one grey each over
    // 2^-8 .. 2^8 through a matrix that makes grey neutral, so that a* and b* almost vanish.
    std::vector<float> odd = mosaic(40, 30, 11, false, -2.0f, 300.0f), tiles(48 * 40);
    for (size_t i = 0; i < tiles.size(); ++i) tiles[i] = std::exp2(odd[i / 48 / 6 * 40 + i % 48 / 6] / 300 * 16 - 8);
    const float neutral[9] = {0.964221f, 0, 0, 0, 1, 0, 0, 0, 0.825211f};
    expectBothAsReference(odd, 40, 30, 0, kIdentity, 0.0f);
    expectBothAsReference(tiles, 48, 40, 0, neutral, 0.0f);
}

TEST(Demosaic, RealColorchartMatchesTheLiteralReadings) {
    LibRaw lr;
    ASSERT_EQ(lr.open_file((std::string(CINEDNG_SAMPLES_DIR) + "/tinydng_colorchart.dng").c_str()), LIBRAW_SUCCESS);
    ASSERT_EQ(lr.unpack(), LIBRAW_SUCCESS);
    // A 400 x 300 window from the middle, black 2056 and white 15000 as the frame says (RGGB at an
    // even origin: layout 1).
    const int rw = lr.imgdata.sizes.raw_width, w = 400, h = 300, x0 = rw / 2 & ~1, y0 = lr.imgdata.sizes.raw_height / 2 & ~1;
    std::vector<float> m(size_t(w) * h);
    for (size_t i = 0; i < m.size(); ++i)
        m[i] = (lr.imgdata.rawdata.raw_image[(y0 + i / w) * rw + x0 + i % w] - 2056.0f) / (15000.0f - 2056.0f);
    expectBothAsReference(m, w, h, 1, kIdentity, 2.0f);
}

TEST(Demosaic, ExportedStagesOverTheWholeFrameGiveTheSameBits) {
    const int w = 90, h = 70, n = w * h;
    for (int layout : {0, 1, 2, 3}) {
        std::vector<float> m = mosaic(w, h, 40 + layout, true), H(n * 3, 0.0f), V(n * 3, 0.0f);
        m[30 * w + 40] = 1.7f;
        const debayerAHD_Info info{w, h, 1, layout, {0.7f, 0.2f, 0.1f, 0.3f, 0.6f, 0.1f, 0.05f, 0.15f, 0.8f}};
        debayerAHD_InterpolateRGB(m.data(), H.data(), V.data(), info);
        Floats labH(debayerAHD_RGBtoLAB(H.data(), info), &std::free), labV(debayerAHD_RGBtoLAB(V.data(), info), &std::free);
        Floats out(debayerAHD_ComputeHomogeneityMapsAndFinalize(labH.get(), labV.get(), info, H.data(), V.data()), &std::free);
        const auto ref = refdemosaic::ahd(m, w, h, layout, info.camToXYZ);
        EXPECT_TRUE(sameBits(H.data(), ref.H) && sameBits(labV.get(), ref.labV) && sameBits(out.get(), ref.out)) << layout;
        for (float factor : {0.0f, 3.0f}) {
            std::vector<float> E(n * 3, 0.0f), O(n * 4, 7.0f);  // the green stage fills the result itself
            debayerVCD_preparationACPIMod(m.data(), E.data(), debayerVCD_Geometry{w, h, 1, layout});
            debayerVCD_InterpolateGreen(m.data(), O.data(), E.data(), debayerVCD_Geometry{w, h, 1, layout}, factor);
            debayerVCD_InterpolateRedBlue(O.data(), debayerVCD_Geometry{w, h, 4, layout});
            const auto vref = refdemosaic::vcd(m, w, h, layout, factor);
            EXPECT_TRUE(sameBits(E.data(), vref.E) && sameBits(O.data(), vref.out)) << layout << " factor " << factor;
        }
    }
}
