// Gray-world exposure, colour conversion and iterative white balance, with values worked out by hand
// from the rules, and the diagnostic TIFF read back by libtiff's tiffinfo.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "cinedng/KR_CinemaDNGAutoExposureGrayWorld.h"
#include "cinedng/KR_CinemaDNGAutoWBIterative.h"
#include "cinedng/KR_CinemaDNGColorConvUtil.h"
#include "cinedng/KSValue.h"

using namespace cinedng;

namespace {

struct Frame {
    int w, h;
    std::vector<float> px;
    PatchImageBuffer rec;
    Frame(int w_, int h_, const std::function<void(int, int, float*)>& fill) : w(w_), h(h_), px(size_t(w_) * h_ * 4) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                float* p = &px[(size_t(y) * w + x) * 4];
                p[3] = 1.0f;
                fill(x, y, p);
            }
        rec = PatchImageBuffer{w, h, 4, 32, 0, 0, px.data()};
    }
    float* at(int x, int y) { return &px[(size_t(y) * w + x) * 4]; }
};

Frame grey(int w, int h, float v) {
    return Frame(w, h, [v](int, int, float* p) { p[0] = p[1] = p[2] = v; });
}
Frame greenOnly(int w, int h, float v) {
    return Frame(w, h, [v](int, int, float* p) { p[1] = v; });
}

KSValuePtr matrixValue(const std::vector<float>& m) {
    KSArray a;
    for (float v : m) a.push_back(KSValue::numberWithFloat(v));
    return KSValue::arrayWithArray(a);
}

int countOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

// ---- exposure --------------------------------------------------------------------------------------

TEST(GrayWorldExposure, DefaultsAndRejectedBuffers) {
    KR_CinemaDNGAutoExposureGrayWorld ae;
    EXPECT_EQ(ae.middleWeightingFactor(), 5.0f);
    EXPECT_EQ(ae.exposureThresholdLo(), 0.15f);
    EXPECT_EQ(ae.exposureThresholdHi(), 0.5f);
    Frame f = grey(8, 8, 0.3f);
    PatchImageBuffer bad = f.rec;
    bad.bitsPerChannel = 16;
    std::shared_ptr<KSError> err;
    EXPECT_EQ(ae.computeAutoExposureFactorForImage(&bad, &err), -1.0f);
    ASSERT_TRUE(err);
    EXPECT_EQ(err->domain(), "KR_CinemaDNGAutoExposureGrayWorld");
    EXPECT_EQ(err->code(), -1);
    EXPECT_EQ(err->localizedDescription(), "This patch needs a 32 bit float buffer as input.");
    bad = f.rec;
    bad.bufferType = 2;
    EXPECT_EQ(ae.computeAutoExposureFactorForImage(&bad, nullptr), -1.0f);
    // Fewer than four samples per pixel would be read past the end: refused.
    bad = f.rec;
    bad.numChannels = 3;
    err.reset();
    EXPECT_EQ(ae.computeAutoExposureFactorForImage(&bad, &err), -1.0f);
    ASSERT_TRUE(err);
    EXPECT_EQ(err->localizedDescription().rfind("KR_CinemaDNGAutoExposureGrayWorld - ", 0), 0u);
}

TEST(GrayWorldExposure, FactorsForTheBands) {
    KR_CinemaDNGAutoExposureGrayWorld ae;
    ae.setMiddleWeightingFactor(1.0f);  // divisor n - 1 exactly as 8/9 n + 1/9 n
    auto factorFor = [&](float mean) {
        // 10 x 10 frame: the green sum over n - 1 = 99 is the mean.
        Frame f = greenOnly(10, 10, mean * 99.0f / 100.0f);
        std::shared_ptr<KSError> err;
        const float v = ae.computeAutoExposureFactorForImage(&f.rec, &err);
        EXPECT_FALSE(err);
        return v;
    };
    EXPECT_EQ(factorFor(0.3f), 1.0f);
    EXPECT_NEAR(factorFor(0.05f), 3.0f, 1e-5);
    EXPECT_NEAR(factorFor(0.9f), 0.5f / 0.9f, 1e-6);
    EXPECT_EQ(factorFor(0.01f), 12.0f);  // 15, clamped
    EXPECT_EQ(factorFor(6.0f), 0.1f);    // 0.083, clamped
    EXPECT_EQ(factorFor(0.0f), 12.0f);   // black frame: lo / 0 is infinite
    EXPECT_EQ(factorFor(0.5f), 1.0f);    // both bounds are inclusive
}

TEST(GrayWorldExposure, DivisorIsOneLessThanThePixelCount) {
    KR_CinemaDNGAutoExposureGrayWorld ae;
    ae.setMiddleWeightingFactor(1.0f);
    Frame f = greenOnly(2, 2, 0.1f);  // sum 0.4 over 3, not 4
    EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&f.rec, nullptr), 0.15 / (0.4 / 3.0), 1e-5);
}

TEST(GrayWorldExposure, CentreWeightingUsesStrictBounds) {
    KR_CinemaDNGAutoExposureGrayWorld ae;  // weight 5
    // 6 x 6: tx = ty = 2, so only (3, 3) lies strictly inside.
    Frame centre = greenOnly(6, 6, 0.0f);
    centre.at(3, 3)[1] = 1.0f;
    const double divisor = 0.8888888888888888 * 35 + 0.1111111111111111 * 35 * 5;
    EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&centre.rec, nullptr), 0.15 / (5.0 / divisor), 1e-5);
    Frame edge = greenOnly(6, 6, 0.0f);
    edge.at(2, 3)[1] = 1.0f;  // x = tx is not inside
    EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&edge.rec, nullptr), 0.15 / (1.0 / divisor), 1e-4);
    // Narrower than three pixels: tx = 0 and nothing is weighted.
    Frame narrow = greenOnly(2, 9, 0.0f);
    narrow.at(1, 4)[1] = 1.0f;
    const double d2 = 0.8888888888888888 * 17 + 0.1111111111111111 * 17 * 5;
    EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&narrow.rec, nullptr), std::min(12.0, 0.15 / (1.0 / d2)), 1e-4);
}

// ---- colour conversion -----------------------------------------------------------------------------

TEST(ColorConversion, ReturnsAndLogs) {
    Frame f(3, 2, [](int x, int y, float* p) {
        p[0] = 0.1f * x;
        p[1] = 0.2f + 0.1f * y;
        p[2] = 0.5f;
        p[3] = 0.25f;
    });
    EXPECT_EQ(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue({1, 0, 0, 0, 1, 0, 0, 0, 1}), nullptr), nullptr);
    // No matrix: the record itself comes back.
    EXPECT_EQ(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(nullptr, &f.rec), &f.rec);

    testing::internal::CaptureStderr();
    EXPECT_EQ(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue({1, 0, 0, 0, 1, 0, 0, 0}), &f.rec), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KR_CinemaDNGColorConvUtil: The conversion matrix needs to be 3x3 but the array size is 8!\n");

    PatchImageBuffer noSamples = f.rec;
    noSamples.imageBuffer = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(nullptr, &noSamples), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KR_CinemaDNGColorConvUtil: The conversion matrix needs to be 3x3 but the array size is 0!\n");

    PatchImageBuffer three = f.rec;
    three.numChannels = 3;
    testing::internal::CaptureStderr();
    EXPECT_EQ(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue({1, 0, 0, 0, 1, 0, 0, 0, 1}), &three), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KR_CinemaDNGColorConvUtil: The conversion matrix utility expects a RGBA float buffer as input!\n");
}

TEST(ColorConversion, AppliesTheMatrixAndForcesAlpha) {
    Frame f(4, 3, [](int x, int y, float* p) {
        p[0] = 0.1f * x;
        p[1] = 0.2f + 0.1f * y;
        p[2] = 0.05f * (x + y);
        p[3] = 0.25f;
    });
    f.rec.bitsPerChannel = 16;  // not checked by the conversion
    PatchImageBuffer* id = KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue({1, 0, 0, 0, 1, 0, 0, 0, 1}), &f.rec);
    ASSERT_NE(id, nullptr);
    ASSERT_NE(id, &f.rec);
    EXPECT_EQ(id->width, 4);
    EXPECT_EQ(id->height, 3);
    EXPECT_EQ(id->numChannels, 4);
    EXPECT_EQ(id->bitsPerChannel, 16);
    const float* o = static_cast<const float*>(id->imageBuffer);
    for (int i = 0; i < 12; ++i) {
        for (int c = 0; c < 3; ++c) EXPECT_EQ(o[4 * i + c], f.px[4 * i + c]);
        EXPECT_EQ(o[4 * i + 3], 1.0f);
    }
    freePatchImageBuffer(id);

    const std::vector<float> m = {0.5f, 0.25f, 0.25f, 0.0f, 2.0f, 0.0f, -1.0f, 0.0f, 1.0f};
    PatchImageBuffer* out = KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue(m), &f.rec);
    ASSERT_NE(out, nullptr);
    o = static_cast<const float*>(out->imageBuffer);
    const float* p = f.at(3, 2);  // (0.3, 0.4, 0.25)
    EXPECT_FLOAT_EQ(o[(2 * 4 + 3) * 4 + 0], 0.5f * 0.3f + 0.25f * 0.4f + 0.25f * 0.25f);
    EXPECT_FLOAT_EQ(o[(2 * 4 + 3) * 4 + 1], 2.0f * p[1]);
    EXPECT_FLOAT_EQ(o[(2 * 4 + 3) * 4 + 2], -p[0] + p[2]);
    EXPECT_EQ(f.at(3, 2)[3], 0.25f);  // the input is not changed
    freePatchImageBuffer(out);
}

// ---- white balance ---------------------------------------------------------------------------------

namespace {

struct WBRun {
    float kelvin;
    std::string out;
};

WBRun runWB(KR_CinemaDNGAutoWBIterative& wb, Frame& f, std::shared_ptr<KSError>* err = nullptr) {
    testing::internal::CaptureStdout();
    const float k = wb.computeAutoWBForInputImage(&f.rec, err);
    return {k, testing::internal::GetCapturedStdout()};
}

}  // namespace

TEST(AutoWhiteBalance, NeutralFrameConvergesAtOnceToTheAppliedTemperature) {
    KR_CinemaDNGAutoWBIterative wb;
    EXPECT_EQ(wb.alreadyAppliedWBTemperature(), 5000.0f);
    Frame f = grey(120, 100, 0.5f);
    WBRun a = runWB(wb, f);
    EXPECT_EQ(countOf(a.out, "\nMean values after approximation with color temp 5000.000000 for RGB : "), 1);
    EXPECT_EQ(countOf(a.out, "\nRGB values converged\nFinal mean values after approximation with color temp "), 1);
    EXPECT_EQ(countOf(a.out, "\nChromatic Adaptation matrix summed :\n"), 1);
    EXPECT_NEAR(a.kelvin, 5000.0f, 60.0f);
    EXPECT_EQ(f.at(20, 20)[0], 0.5f);  // the input is never changed

    wb.setAlreadyAppliedWBTemperature(6500.0f);
    WBRun b = runWB(wb, f);
    EXPECT_NEAR(b.kelvin, 6500.0f, 100.0f);
    EXPECT_GT(b.kelvin, a.kelvin + 1000.0f);
}

TEST(AutoWhiteBalance, ColourCastMovesTheTemperature) {
    KR_CinemaDNGAutoWBIterative wb;
    Frame warm = Frame(100, 100, [](int, int, float* p) {
        p[0] = 0.6f;
        p[1] = 0.45f;
        p[2] = 0.25f;
    });
    Frame cool = Frame(100, 100, [](int, int, float* p) {
        p[0] = 0.25f;
        p[1] = 0.45f;
        p[2] = 0.6f;
    });
    const float kw = runWB(wb, warm).kelvin;
    const float kc = runWB(wb, cool).kelvin;
    EXPECT_LT(kw, 4000.0f);
    EXPECT_GT(kc, 7000.0f);
}

TEST(AutoWhiteBalance, SmallFramesHaveNoSamplesAndRunAllRounds) {
    KR_CinemaDNGAutoWBIterative wb;
    for (auto [w, h] : {std::pair{40, 200}, std::pair{200, 40}, std::pair{10, 10}}) {
        Frame f = grey(w, h, 0.5f);
        WBRun r = runWB(wb, f);
        EXPECT_EQ(countOf(r.out, "\nMean values after approximation"), 20) << w << "x" << h;
        EXPECT_EQ(countOf(r.out, "converged"), 0);
        EXPECT_NE(r.out.find(": 0.000000, 0.000000, 0.000000"), std::string::npos);
    }
}

TEST(AutoWhiteBalance, SaturatedPixelsExcludeTheirBlock) {
    // 120 x 120 grey 0.5: samples at 20, 23, ..., 98 in both directions, 729 of them; the means
    // divide by all 14400 pixels: 364.5 / 14400 = 0.0253125.
    KR_CinemaDNGAutoWBIterative wb;
    Frame plain = grey(120, 120, 0.5f);
    EXPECT_NE(runWB(wb, plain).out.find("for RGB : 0.025313, 0.025313, 0.025313"), std::string::npos);
    // One bright saturated pixel (not itself sampled) takes the 9 samples of block (0, 0) out.
    Frame bright = grey(120, 120, 0.5f);
    float* p = bright.at(21, 21);
    p[0] = 1.0f;
    p[1] = p[2] = 0.0f;
    EXPECT_NE(runWB(wb, bright).out.find("for RGB : 0.025000, 0.025000, 0.025000"), std::string::npos);
    // A saturated pixel darker than 0.01 does not.
    Frame dark = grey(120, 120, 0.5f);
    p = dark.at(21, 21);
    p[0] = 0.005f;
    p[1] = p[2] = 0.0f;
    EXPECT_NE(runWB(wb, dark).out.find("for RGB : 0.025313, 0.025313, 0.025313"), std::string::npos);
}

TEST(AutoWhiteBalance, RejectsWrongBuffers) {
    KR_CinemaDNGAutoWBIterative wb;
    Frame f = grey(50, 50, 0.5f);
    f.rec.bitsPerChannel = 16;
    std::shared_ptr<KSError> err;
    EXPECT_EQ(wb.computeAutoWBForInputImage(&f.rec, &err), -1.0f);
    ASSERT_TRUE(err);
    EXPECT_EQ(err->domain(), "KR_CinemaDNGAutoWBIterative");
    EXPECT_EQ(err->code(), -1);
    EXPECT_EQ(err->localizedDescription(), "This patch needs a 32 bit float buffer as input.");
    f.rec.bitsPerChannel = 32;
    f.rec.numChannels = 3;
    EXPECT_EQ(wb.computeAutoWBForInputImage(&f.rec, nullptr), -1.0f);
}

// ---- diagnostic TIFF -------------------------------------------------------------------------------

namespace {

std::string run(const std::string& cmd) {
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[512];
    while (fgets(buf, sizeof buf, p)) out += buf;
    pclose(p);
    return out;
}

}  // namespace

TEST(DebugTIFF, OpensInTiffinfoWithFloatSamples) {
    namespace fs = std::filesystem;
    const fs::path dir = fs::path(CINEDNG_BINARY_DIR) / "ops_debug_tiff";
    fs::create_directories(dir);
    const std::string path = (dir / "frame.tif").string();
    {
        std::ofstream junk(path, std::ios::binary);  // an older, larger file is replaced, not overwritten
        junk << std::string(10000, 'x');
    }
    Frame f(7, 5, [](int x, int y, float* p) {
        p[0] = 0.1f * x;
        p[1] = 0.2f * y;
        p[2] = 1.5f;
    });
    ASSERT_TRUE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, path));
    EXPECT_EQ(fs::file_size(path), 8u + 2 + 12 * 12 + 4 + 16 + 7 * 5 * 16);
    const std::string info = run("tiffinfo '" + path + "' 2>&1");
    EXPECT_NE(info.find("Image Width: 7 Image Length: 5"), std::string::npos) << info;
    EXPECT_NE(info.find("Bits/Sample: 32"), std::string::npos) << info;
    EXPECT_NE(info.find("Sample Format: IEEE floating point"), std::string::npos) << info;
    EXPECT_NE(info.find("Samples/Pixel: 4"), std::string::npos) << info;
    EXPECT_EQ(info.find("Error"), std::string::npos) << info;
    // The samples, read back as they are stored.
    std::ifstream in(path, std::ios::binary);
    in.seekg(8 + 2 + 12 * 12 + 4 + 16 + (3 * 7 + 4) * 16);
    float px[4];
    in.read(reinterpret_cast<char*>(px), sizeof px);
    EXPECT_EQ(px[0], f.at(4, 3)[0]);
    EXPECT_EQ(px[1], f.at(4, 3)[1]);
    EXPECT_EQ(px[2], 1.5f);
    EXPECT_EQ(px[3], 1.0f);
}

TEST(DebugTIFF, TildeExpansionAndFailures) {
    namespace fs = std::filesystem;
    const fs::path home = fs::path(CINEDNG_BINARY_DIR) / "ops_debug_home";
    fs::create_directories(home);
    const char* old = std::getenv("HOME");
    const std::string saved = old ? old : "";
    setenv("HOME", home.c_str(), 1);
    Frame f = grey(3, 3, 0.5f);
    const bool ok = KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, "~/tilde.tif");
    if (old)
        setenv("HOME", saved.c_str(), 1);
    else
        unsetenv("HOME");
    EXPECT_TRUE(ok);
    EXPECT_TRUE(fs::exists(home / "tilde.tif"));

    EXPECT_FALSE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, (home / "no/such/dir/x.tif").string()));
    PatchImageBuffer empty = f.rec;
    empty.imageBuffer = nullptr;
    EXPECT_FALSE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(empty, (home / "empty.tif").string()));
}
