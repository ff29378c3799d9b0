// Rendering (--render): real frames and synthetic frames in both byte orders end up as EXR files
// that OpenEXR and exrheader open, with the frame's time code and image number, and the pixels of
// the synthetic frames equal an independent computation of linearisation, bilinear debayer, net
// colour matrix and half conversion.
#include <array>
#include <cmath>
#include <random>
#include <tuple>

#include "batchTestSupport.h"

using namespace batchtest;

TEST(RenderRealFrames, WriteCropSizedHalfRgbExrFiles) {
    // The default crops of the samples. The faux bolex frames write DefaultCropSize height first,
    // and the image height cuts the 2048 it then reads as a height.
    const std::tuple<const char*, int, int> samples[] = {{"tinydng_colorchart.dng", 1734, 1156},
                                                         {"fauxbolex_frame_000170.dng", 1152, 1152},
                                                         {"fauxbolex_frame_000185.dng", 1108, 1108},
                                                         {"fauxbolex_frame_001045.dng", 1108, 1108}};
    for (const auto& [sample, width, height] : samples) {
        SCOPED_TRACE(sample);
        const std::string clip = scratchFolder("clip"), out = scratchFolder("out");
        fs::create_symlink(fs::path(CINEDNG_SAMPLES_DIR) / sample, clip + "frame.dng");  // not copied
        const DriverRun r = runDriver(optionsFor(clip, out), true);
        ASSERT_EQ(r.p->status(), cd_DNGProcessor::ok) << r.err;
        ASSERT_EQ(exrFiles(out), Names{"frame000000.exr"});  // these frames carry no ImageNumber
        const ExrImage img = readExr(out + "frame000000.exr");
        EXPECT_EQ(img.width, width);
        EXPECT_EQ(img.height, height);
        EXPECT_EQ(img.channels, "B half G half R half ");  // the library lists channels sorted
        double sum = 0;
        for (const Imf::Rgba& p : img.pixels) sum += p.r + p.g + p.b;
        EXPECT_TRUE(std::isfinite(sum) && sum > 0) << sum;
        const Exec header = shell("exrheader " + out + "frame000000.exr");
        ASSERT_EQ(header.code, 0) << header.out;
        for (const std::string& line : {"dataWindow (type box2i): (0 0) - (" + std::to_string(width - 1) + " " +
                                            std::to_string(height - 1) + ")",
                                        std::string("software (type string): \"DNGprocessor\""),
                                        std::string("framesPerSecond (type rational): 25/1")})
            EXPECT_NE(header.out.find(line), npos) << line << "\n" << header.out;
    }
}

namespace {

using M3 = std::array<double, 9>;

using V3 = std::array<double, 3>;

V3 mul(const M3& a, const V3& v) {
    return {a[0] * v[0] + a[1] * v[1] + a[2] * v[2], a[3] * v[0] + a[4] * v[1] + a[5] * v[2],
            a[6] * v[0] + a[7] * v[1] + a[8] * v[2]};
}
M3 inverse(const M3& m) {
    const double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5], g = m[6], h = m[7], i = m[8];
    const double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
    return {(e * i - f * h) / det, (c * h - b * i) / det, (b * f - c * e) / det,
            (f * g - d * i) / det, (a * i - c * g) / det, (c * d - a * f) / det,
            (d * h - e * g) / det, (b * g - a * h) / det, (a * e - b * d) / det};
}

// Half of a float as the writer rounds it: the mantissa truncated to 10 bits (normal range).
float halfTruncated(float v) {
    int e;
    std::frexp(v, &e);
    const double ulp = std::ldexp(1.0, e - 11);
    return static_cast<float>(std::trunc(v / ulp) * ulp);
}

}  // namespace

TEST(RenderPixels, FramesInBothByteOrdersEqualAnIndependentComputation) {
    // 16 x 12 RGGB frames in three strips, black 256, default crop 10 x 8 from (2, 2): every output
    // pixel has its full 3 x 3 neighbourhood inside the image, so the plain bilinear rules apply.
    const M3 cm = {0.7000, -0.1500, -0.0900, -0.4000, 1.2000, 0.2000, -0.0600, 0.1700, 0.7400};
    // Net matrix: XYZ to ACES (the published AP0 matrices) after a Bradford adaptation from the
    // camera white to the ACES white after camera to XYZ, scaled so that its largest row sum is 1.
    const M3 acesToXYZ = {0.9525523959, 0.0, 0.0000936786, 0.3439664498, 0.7281660966, -0.0721325464, 0.0, 0.0,
                          1.0088251844};
    const M3 xyzToAces = {1.0498110175, 0.0, -0.0000974845, -0.4959030231, 1.3733130458, 0.0982400361, 0.0, 0.0,
                          0.9912520182};
    const M3 bradford = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
    const M3 camToXYZ = inverse(cm), bradfordInverse = inverse(bradford);
    const V3 ps = mul(bradford, mul(camToXYZ, V3{0.5, 1.0, 0.7})), pd = mul(bradford, mul(acesToXYZ, V3{1, 1, 1}));
    auto unscaled = [&](V3 v) {
        v = mul(bradford, mul(camToXYZ, v));
        for (int c = 0; c < 3; ++c) v[c] *= pd[c] / ps[c];
        return mul(xyzToAces, mul(bradfordInverse, v));
    };
    const V3 rowSums = unscaled({1, 1, 1});
    const double maxRow = std::max({rowSums[0], rowSums[1], rowSums[2]});

    std::mt19937 rng(1234);
    for (int bits : {12, 16})  // packed 12-bit samples are a bit stream; 16-bit ones follow the byte order
        for (auto order : {framebuilder::ByteOrder::II, framebuilder::ByteOrder::MM}) {
            SCOPED_TRACE(std::to_string(bits) + (order == framebuilder::ByteOrder::II ? " II" : " MM"));
            const demo::DemoClipLayout layout{16, 12, 1, bits, order, 4};
            framebuilder::RawFrameDesc f = demo::demoFrameFields(layout, 7);  // ImageNumber 7, 01:00:00:07
            f.defaultCropOrigin = {2, 2};
            f.defaultCropSize = {10, 8};
            f.colorMatrix1.assign(cm.begin(), cm.end());  // alone, so its illuminant does not matter
            f.colorMatrix2.clear();
            f.calibrationIlluminant2.reset();
            f.asShotNeutral = {0.5, 1.0, 0.7};
            std::uniform_int_distribution<uint32_t> dist(256, f.whiteLevel[0]);
            std::vector<uint32_t> raw(16 * 12);
            for (auto& v : raw) v = dist(rng);
            const std::string clip = scratchFolder("clip"), out = scratchFolder("out");
            framebuilder::writeRawFrame(clip + "frame.dng", f, raw);
            const DriverRun r = runDriver(optionsFor(clip, out), true);
            ASSERT_EQ(r.p->status(), cd_DNGProcessor::ok) << r.err;
            ASSERT_EQ(exrFiles(out), Names{"frame000007.exr"});
            EXPECT_EQ(shell("exrheader " + out + "frame000007.exr").code, 0);
            const ExrImage img = readExr(out + "frame000007.exr");
            ASSERT_EQ(std::pair(img.width, img.height), std::pair(10, 8));
            EXPECT_EQ(img.channels, "B half G half R half ");
            EXPECT_EQ(img.imageNumber, 7);
            const Imf::TimeCode tc = img.timeCode.value_or(Imf::TimeCode());
            EXPECT_EQ((std::array<int, 4>{tc.hours(), tc.minutes(), tc.seconds(), tc.frame()}),
                      (std::array<int, 4>{1, 0, 0, 7}));

            auto lin = [&](int x, int y) { return (raw[y * 16 + x] - 256.0) / (f.whiteLevel[0] - 256.0); };
            int exact = 0;
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 10; ++x) {
                    const int X = x + 2, Y = y + 2;
                    const double cross = (lin(X - 1, Y) + lin(X + 1, Y) + lin(X, Y - 1) + lin(X, Y + 1)) / 4;
                    const double diag =
                        (lin(X - 1, Y - 1) + lin(X + 1, Y - 1) + lin(X - 1, Y + 1) + lin(X + 1, Y + 1)) / 4;
                    const double horiz = (lin(X - 1, Y) + lin(X + 1, Y)) / 2, vert = (lin(X, Y - 1) + lin(X, Y + 1)) / 2;
                    V3 rgb;
                    if (X % 2 == 0 && Y % 2 == 0) rgb = {lin(X, Y), cross, diag};       // red
                    else if (X % 2 == 1 && Y % 2 == 1) rgb = {diag, cross, lin(X, Y)};  // blue
                    else if (Y % 2 == 0) rgb = {horiz, lin(X, Y), vert};                // green in a red row
                    else rgb = {vert, lin(X, Y), horiz};                                // green in a blue row
                    const V3 expect = unscaled(rgb);
                    const Imf::Rgba& p = img.pixels[y * 10 + x];
                    const float got[3] = {p.r, p.g, p.b};
                    for (int c = 0; c < 3; ++c) {
                        const float e = halfTruncated(static_cast<float>(expect[c] / maxRow));
                        // A value next to a half boundary may truncate either way: allow one half step.
                        const double step = std::ldexp(1.0, std::ilogb(std::max(std::fabs(e), 6.2e-5f)) - 10);
                        EXPECT_NEAR(got[c], e, step * 1.01) << "pixel " << x << "," << y << " channel " << c;
                        exact += got[c] == e;
                    }
                }
            // Computed in double here and in single precision by the pipeline, nearly every value
            // truncates to the same half.
            EXPECT_GE(exact, 240 * 95 / 100);
        }
}
