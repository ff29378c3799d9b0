// Rendering (--render): real frames and synthetic clips in both byte orders end up as EXR files
// that OpenEXR and exrheader open, and the pixels of a small frame equal an independent
// computation of linearisation, bilinear debayer, net colour matrix and half conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>

#include "batchTestSupport.h"
#include "cinedng/cd_DNGProcessor.h"

using namespace cinedng;
using namespace batchtest;

namespace {

// Runs exrheader on a file; returns its output, or "" when it fails.
std::string exrheader(const std::string& path) {
    std::string out;
    FILE* p = ::popen(("exrheader '" + path + "' 2>&1").c_str(), "r");
    if (p == nullptr) return out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    return ::pclose(p) == 0 ? out : std::string();
}

// A one-frame clip folder holding a link to a sample frame (the sample itself is not copied).
std::string sampleClip(const std::string& sample) {
    const std::string dir = scratchFolder("clip");
    fs::create_symlink(fs::path(CINEDNG_SAMPLES_DIR) / sample, dir + "frame.dng");
    return dir;
}

std::unique_ptr<cd_DNGProcessor> render(cd_CommandLineOptions& o, RunOutput* output = nullptr) {
    std::unique_ptr<cd_DNGProcessor> p;
    RunOutput r = captured([&] { p = std::make_unique<cd_DNGProcessor>(o, renderExtras()); });
    if (output != nullptr) *output = r;
    return p;
}

struct SampleCase {
    const char* file;
    int width;   // the default crop, from the samples' manifest; the faux bolex frames write their
    int height;  // DefaultCropSize height first, so it reads as a width of 1152 (1108) and a height
                 // of 2048, which the active area cuts to 1152 (1108) rows
};

class RenderRealFrame : public testing::TestWithParam<SampleCase> {};

}  // namespace

TEST_P(RenderRealFrame, WritesACropSizedHalfRgbExr) {
    const SampleCase c = GetParam();
    const std::string clip = sampleClip(c.file);
    const std::string out = scratchFolder("out");
    cd_CommandLineOptions o = optionsFor(clip, out);
    RunOutput r;
    auto p = render(o, &r);
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    ASSERT_EQ(exrFiles(out), std::vector<std::string>{"frame000000.exr"});
    const std::string file = out + "frame000000.exr";

    const ExrImage img = readExr(file);
    EXPECT_EQ(img.dataWindow.min.x, 0);
    EXPECT_EQ(img.dataWindow.min.y, 0);
    EXPECT_EQ(img.width, c.width);
    EXPECT_EQ(img.height, c.height);
    EXPECT_EQ(img.channels, (std::vector<std::string>{"B", "G", "R"}));
    EXPECT_TRUE(img.allHalf);
    // These frames carry neither time codes nor image numbers.
    EXPECT_FALSE(img.hasTimeCode);
    EXPECT_FALSE(img.hasImageNumber);
    double sum = 0;
    size_t finite = 0;
    for (size_t i = 0; i < img.g.size(); ++i) {
        if (std::isfinite(img.r[i]) && std::isfinite(img.g[i]) && std::isfinite(img.b[i])) ++finite;
        sum += img.g[i];
    }
    EXPECT_EQ(finite, img.g.size());
    EXPECT_GT(sum / img.g.size(), 0.0);

    const std::string header = exrheader(file);
    ASSERT_FALSE(header.empty()) << "exrheader could not read " << file;
    char window[96];
    std::snprintf(window, sizeof window, "dataWindow (type box2i): (0 0) - (%d %d)", c.width - 1, c.height - 1);
    EXPECT_NE(header.find(window), std::string::npos) << header;
    EXPECT_NE(header.find("software (type string): \"DNGprocessor\""), std::string::npos) << header;
    EXPECT_NE(header.find("framesPerSecond (type rational): 25/1"), std::string::npos) << header;
}

INSTANTIATE_TEST_SUITE_P(Samples, RenderRealFrame,
                         testing::Values(SampleCase{"tinydng_colorchart.dng", 1734, 1156},
                                         SampleCase{"fauxbolex_frame_000170.dng", 1152, 1152},
                                         SampleCase{"fauxbolex_frame_000185.dng", 1108, 1108},
                                         SampleCase{"fauxbolex_frame_001045.dng", 1108, 1108}),
                         [](const testing::TestParamInfo<SampleCase>& i) {
                             std::string n = i.param.file;
                             n = n.substr(0, n.find('.'));
                             for (char& ch : n)
                                 if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                             return n;
                         });

TEST(RenderUnusableFrames, FailCleanly) {
    // Frames we cannot decode end the run with a failure text or a failed frame, never a crash.
    for (const char* sample : {"fauxbolex_frame_000112.dng", "oiio_valid-32x32.dng", "oiio_bomb-32000x32000.dng",
                               "oiio_truncated.dng", "filetype_Leica-M10.dng"}) {
        SCOPED_TRACE(sample);
        const std::string clip = sampleClip(sample);
        const std::string out = scratchFolder("out");
        cd_CommandLineOptions o = optionsFor(clip, out);
        std::string failure;
        int status = -1;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        try {
            cd_DNGProcessor p(o, renderExtras());
            status = p.status();
            if (!p.failures().empty()) failure = p.failures()[0].reason;
        } catch (const std::exception& e) {
            failure = e.what();
        }
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        EXPECT_NE(status, cd_DNGProcessor::ok);
        EXPECT_NE(failure.find(" - "), std::string::npos) << failure;
        EXPECT_TRUE(exrFiles(out).empty());
    }
}

TEST(RenderByteOrder, BothOrdersGiveTheSamePixelsAndTheFrameMetadata) {
    for (int bits : {12, 16}) {
        SCOPED_TRACE("bits " + std::to_string(bits));
        std::vector<ExrImage> images;
        for (auto order : {framebuilder::ByteOrder::II, framebuilder::ByteOrder::MM}) {
            const std::string clip = scratchFolder(order == framebuilder::ByteOrder::II ? "clipII" : "clipMM");
            const std::string out = scratchFolder(order == framebuilder::ByteOrder::II ? "outII" : "outMM");
            demo::DemoClipLayout layout = smallClip(3, 64, 48);
            layout.bits = bits;
            layout.byteOrder = order;
            layout.rowsPerStrip = 16;  // three strips
            layout.firstImageNumber = 100;
            demo::writeDemoClip(clip, layout);
            cd_CommandLineOptions o = optionsFor(clip, out);
            RunOutput r;
            auto p = render(o, &r);
            ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
            ASSERT_EQ(exrFiles(out), (std::vector<std::string>{"frame000100.exr", "frame000101.exr", "frame000102.exr"}));
            for (int k = 0; k < 3; ++k) {
                const std::string file = out + "frame00010" + std::to_string(k) + ".exr";
                const ExrImage img = readExr(file);
                EXPECT_EQ(img.width, 48);
                EXPECT_EQ(img.height, 40);
                EXPECT_TRUE(img.allHalf);
                ASSERT_TRUE(img.hasTimeCode);
                EXPECT_EQ(img.timeCode.hours(), 1);
                EXPECT_EQ(img.timeCode.minutes(), 0);
                EXPECT_EQ(img.timeCode.seconds(), 0);
                EXPECT_EQ(img.timeCode.frame(), k);
                ASSERT_TRUE(img.hasImageNumber);
                EXPECT_EQ(img.imageNumber, 100 + k);
                EXPECT_FALSE(exrheader(file).empty());
                if (k == 1) images.push_back(img);
            }
        }
        ASSERT_EQ(images.size(), 2u);
        EXPECT_EQ(images[0].r, images[1].r);
        EXPECT_EQ(images[0].g, images[1].g);
        EXPECT_EQ(images[0].b, images[1].b);
    }
}

namespace {

using M3 = std::array<double, 9>;

M3 mul(const M3& a, const M3& b) {
    M3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) r[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
    return r;
}
std::array<double, 3> mul(const M3& a, const std::array<double, 3>& v) {
    std::array<double, 3> r{};
    for (int i = 0; i < 3; ++i) r[i] = a[i * 3] * v[0] + a[i * 3 + 1] * v[1] + a[i * 3 + 2] * v[2];
    return r;
}
M3 inverse(const M3& m) {
    const double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5], g = m[6], h = m[7], i = m[8];
    const double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
    return {(e * i - f * h) / det, (c * h - b * i) / det, (b * f - c * e) / det,
            (f * g - d * i) / det, (a * i - c * g) / det, (c * d - a * f) / det,
            (d * h - e * g) / det, (b * g - a * h) / det, (a * e - b * d) / det};
}

// RGB to XYZ of the ACES primaries and white (derived from the chromaticities, white at Y = 1).
M3 acesToXYZ() {
    const double xy[4][2] = {{0.7347, 0.2653}, {0.0, 1.0}, {0.0001, -0.077}, {0.32168, 0.33767}};
    M3 p{};
    for (int c = 0; c < 3; ++c) {
        p[0 * 3 + c] = xy[c][0];
        p[1 * 3 + c] = xy[c][1];
        p[2 * 3 + c] = 1 - xy[c][0] - xy[c][1];
    }
    const std::array<double, 3> w = {xy[3][0] / xy[3][1], 1.0, (1 - xy[3][0] - xy[3][1]) / xy[3][1]};
    const auto s = mul(inverse(p), w);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) p[r * 3 + c] *= s[c];
    return p;
}

// Half of a float the way the writer rounds: the mantissa is truncated (normal range only).
float halfTruncated(float v) {
    if (v == 0.0f) return 0.0f;
    const float a = std::fabs(v);
    int e;
    std::frexp(a, &e);                         // a = m * 2^e, m in [0.5, 1)
    const double ulp = std::ldexp(1.0, e - 11);  // 10 mantissa bits after the leading one
    const double t = std::floor(a / ulp) * ulp;
    return static_cast<float>(v < 0 ? -t : t);
}

}  // namespace

TEST(RenderPixels, SmallFrameEqualsIndependentComputation) {
    // 16 x 12 RGGB frame, 12-bit, black 256, white 4095, default crop 10 x 8 from (2, 2): every
    // output pixel has its full 3 x 3 neighbourhood inside the image, so plain bilinear rules apply.
    const uint32_t W = 16, H = 12;
    framebuilder::RawFrameSpec f;
    f.width = W;
    f.height = H;
    f.bits = 12;
    f.cfaPattern = {0, 1, 1, 2};
    f.blackLevelRepeatDim = {1, 1};
    f.blackLevel = {256};
    f.whiteLevel = {4095};
    f.defaultCropOrigin = {2, 2};
    f.defaultCropSize = {10, 8};
    const M3 cm = {0.7000, -0.1500, -0.0900, -0.4000, 1.2000, 0.2000, -0.0600, 0.1700, 0.7400};
    f.colorMatrix1.assign(cm.begin(), cm.end());
    f.calibrationIlluminant1 = 21;
    f.asShotNeutral = {0.5000, 1.0000, 0.7000};
    f.imageNumber = 7;
    std::mt19937 rng(1234);
    std::uniform_int_distribution<uint32_t> dist(256, 4095);
    std::vector<uint32_t> raw(W * H);
    for (auto& v : raw) v = dist(rng);

    const std::string clip = scratchFolder("clip");
    const std::string out = scratchFolder("out");
    framebuilder::writeRawFrame(clip + "frame_7.dng", f, raw);
    cd_CommandLineOptions o = optionsFor(clip, out);
    RunOutput r;
    auto p = render(o, &r);
    ASSERT_EQ(p->status(), cd_DNGProcessor::ok) << r.err;
    const ExrImage img = readExr(out + "frame000007.exr");
    ASSERT_EQ(img.width, 10);
    ASSERT_EQ(img.height, 8);

    // Net matrix: ACES from XYZ, Bradford from the camera white to the ACES white, camera to XYZ;
    // scaled so that its largest row sum is 1.
    const M3 outToXYZ = acesToXYZ();
    const M3 camToXYZ = inverse(cm);
    const auto camWhite = mul(camToXYZ, std::array<double, 3>{0.5, 1.0, 0.7});
    const auto outWhite = mul(outToXYZ, std::array<double, 3>{1, 1, 1});
    const M3 bradford = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
    const auto ps = mul(bradford, camWhite), pd = mul(bradford, outWhite);
    const M3 d = {pd[0] / ps[0], 0, 0, 0, pd[1] / ps[1], 0, 0, 0, pd[2] / ps[2]};
    M3 net = mul(mul(inverse(outToXYZ), mul(mul(inverse(bradford), d), bradford)), camToXYZ);
    double maxRow = -1e30;
    for (int i = 0; i < 3; ++i) maxRow = std::max(maxRow, net[i * 3] + net[i * 3 + 1] + net[i * 3 + 2]);
    for (double& v : net) v /= maxRow;

    auto lin = [&](int x, int y) { return (static_cast<double>(raw[y * W + x]) - 256.0) / (4095.0 - 256.0); };
    auto colour = [](int x, int y) { return (y % 2 == 0) ? (x % 2 == 0 ? 0 : 1) : (x % 2 == 0 ? 1 : 2); };
    int checked = 0, exact = 0;
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 10; ++x) {
            const int X = x + 2, Y = y + 2;
            std::array<double, 3> rgb{};
            const double cross = (lin(X - 1, Y) + lin(X + 1, Y) + lin(X, Y - 1) + lin(X, Y + 1)) / 4;
            const double diag = (lin(X - 1, Y - 1) + lin(X + 1, Y - 1) + lin(X - 1, Y + 1) + lin(X + 1, Y + 1)) / 4;
            const double horiz = (lin(X - 1, Y) + lin(X + 1, Y)) / 2;
            const double vert = (lin(X, Y - 1) + lin(X, Y + 1)) / 2;
            switch (colour(X, Y)) {
                case 0: rgb = {lin(X, Y), cross, diag}; break;
                case 2: rgb = {diag, cross, lin(X, Y)}; break;
                default:  // green: horizontal neighbours are red in a red row, blue in a blue row
                    rgb = (Y % 2 == 0) ? std::array<double, 3>{horiz, lin(X, Y), vert}
                                       : std::array<double, 3>{vert, lin(X, Y), horiz};
            }
            const auto expect = mul(net, rgb);
            const float got[3] = {img.r[y * 10 + x], img.g[y * 10 + x], img.b[y * 10 + x]};
            for (int c = 0; c < 3; ++c) {
                const float e = halfTruncated(static_cast<float>(expect[c]));
                // A value next to a half boundary may truncate either way: allow one half step.
                const double step = std::ldexp(1.0, std::ilogb(std::max(std::fabs(expect[c]), 6.2e-5)) - 10);
                EXPECT_NEAR(got[c], e, step * 1.01) << "pixel " << x << "," << y << " channel " << c;
                exact += got[c] == e;
                ++checked;
            }
        }
    }
    EXPECT_EQ(checked, 240);
    // Computed in double here and in single precision by the pipeline, nearly every value truncates
    // to the same half.
    EXPECT_GE(exact, checked * 95 / 100);
}
