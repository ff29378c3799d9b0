// Gray-world exposure, colour conversion and iterative white balance against values worked out by
// hand from the rules, and the diagnostic TIFF read back by libtiff's tiffinfo.
#include <fstream>

#include "cinedng/KR_CinemaDNGAutoExposureGrayWorld.h"
#include "cinedng/KR_CinemaDNGAutoWBIterative.h"
#include "cinedng/KR_CinemaDNGColorConvUtil.h"
#include "ops_test_support.h"

using namespace cinedng;
namespace fs = std::filesystem;

namespace {

// A uniform RGBA float frame (alpha 1) and its record.
struct Frame {
    int w, h;
    std::vector<float> px;
    PatchImageBuffer rec;
    Frame(int w_, int h_, float r, float g, float b) : w(w_), h(h_), px(size_t(w_) * h_ * 4) {
        for (size_t i = 0; i < px.size(); i += 4) px[i] = r, px[i + 1] = g, px[i + 2] = b, px[i + 3] = 1.0f;
        rec = PatchImageBuffer{w, h, 4, 32, 0, 0, px.data()};
    }
    float* at(int x, int y) { return &px[(size_t(y) * w + x) * 4]; }
};

// The estimate and what the white balance printed.
std::pair<float, std::string> runWB(KR_CinemaDNGAutoWBIterative& wb, Frame& f) {
    testing::internal::CaptureStdout();
    return {wb.computeAutoWBForInputImage(&f.rec, nullptr), testing::internal::GetCapturedStdout()};  // in this order
}

int countOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

}  // namespace

TEST(Detectors, DefaultsWrongBuffersAndExposureFactors) {
    KR_CinemaDNGAutoExposureGrayWorld ae;
    KR_CinemaDNGAutoWBIterative wb;
    EXPECT_EQ(std::vector<float>({ae.middleWeightingFactor(), ae.exposureThresholdLo(), ae.exposureThresholdHi(),
                                  wb.alreadyAppliedWBTemperature()}), std::vector<float>({5.0f, 0.15f, 0.5f, 5000.0f}));
    Frame f(50, 50, 0.3f, 0.3f, 0.3f);
    for (auto [bits, type] : {std::pair{16, 0}, std::pair{32, 2}}) {
        const PatchImageBuffer bad{50, 50, 4, bits, 0, type, f.px.data()};
        std::shared_ptr<KSError> e1, e2;
        EXPECT_EQ(ae.computeAutoExposureFactorForImage(&bad, &e1) + wb.computeAutoWBForInputImage(&bad, &e2), -2.0f);
        opstest::expectError(e1, "KR_CinemaDNGAutoExposureGrayWorld", "This patch needs a 32 bit float buffer as input.");
        opstest::expectError(e2, "KR_CinemaDNGAutoWBIterative", "This patch needs a 32 bit float buffer as input.");
    }
    // Four floats per pixel are read whatever numChannels says; fewer than four would overrun.
    PatchImageBuffer five = f.rec, three = f.rec;
    five.numChannels = 5, three.numChannels = 3;
    EXPECT_EQ(ae.computeAutoExposureFactorForImage(&five, nullptr), ae.computeAutoExposureFactorForImage(&f.rec, nullptr));
    EXPECT_EQ(ae.computeAutoExposureFactorForImage(&three, nullptr) + wb.computeAutoWBForInputImage(&three, nullptr), -2.0f);
    // Factors for the weighted green mean of a 10 x 10 frame; middle weight 1 makes the divisor
    // exactly n - 1 = 99.
    ae.setMiddleWeightingFactor(1.0f);
    for (auto [mean, factor] :
         {std::pair{0.3f, 1.0}, {0.05f, 3.0}, {0.9f, 0.5 / 0.9}, {0.01f, 12.0}, {6.0f, 0.1}, {0.0f, 12.0}, {0.5f, 1.0}}) {
        Frame f(10, 10, 0.0f, mean * 99.0f / 100.0f, 0.0f);
        EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&f.rec, nullptr), factor, 1e-5) << mean;
    }
    // Weight 5 strictly inside the central ninth: a 6 x 6 frame has tx = ty = 2, so only (3, 3) weighs
    // 5 and (2, 3) weighs 1; the divisor is 35 * (8/9 + 5/9).
    ae.setMiddleWeightingFactor(5.0f);
    const double divisor = 0.8888888888888888 * 35 + 0.1111111111111111 * 35 * 5;
    for (auto [x, weight] : {std::pair{3, 5.0}, {2, 1.0}}) {
        Frame f(6, 6, 0.0f, 0.0f, 0.0f);
        f.at(x, 3)[1] = 1.0f;
        EXPECT_NEAR(ae.computeAutoExposureFactorForImage(&f.rec, nullptr), 0.15 / (weight / divisor), 1e-4);
    }
}

TEST(ColorConversion, ReturnsLogsAndValues) {
    const auto convert = &KR_CinemaDNGColorConvUtil::applyColorConvMatrix;
    Frame f(4, 3, 0.3f, 0.4f, 0.25f);
    f.at(1, 1)[3] = 0.25f;
    f.rec.bitsPerChannel = 16;  // not checked by the conversion
    EXPECT_EQ(convert(opstest::matrix(std::vector<float>(9)), nullptr), nullptr);
    EXPECT_EQ(convert(nullptr, &f.rec), &f.rec);  // the record itself
    PatchImageBuffer noSamples = f.rec, three = f.rec;
    noSamples.imageBuffer = nullptr, three.numChannels = 3;
    const struct { KSValuePtr m; PatchImageBuffer* in; const char* log; } cases[] = {
        {opstest::matrix(std::vector<float>(8)), &f.rec, "The conversion matrix needs to be 3x3 but the array size is 8!"},
        {nullptr, &noSamples, "The conversion matrix needs to be 3x3 but the array size is 0!"},
        {opstest::matrix(std::vector<float>(9)), &three, "The conversion matrix utility expects a RGBA float buffer as input!"}};
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(convert(c.m, c.in), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("KR_CinemaDNGColorConvUtil: ") + c.log + "\n");
    }
    // Rows of the matrix give R, G, B: (0.3, 0.4, 0.25) -> (0.15 + 0.1 + 0.0625, 0.8, -0.05), alpha forced to 1.
    const auto out = opstest::own(convert(opstest::matrix({0.5f, 0.25f, 0.25f, 0, 2, 0, -1, 0, 1}), &f.rec));
    ASSERT_TRUE(out && out->numChannels == 4 && out->bitsPerChannel == 16 && out->width == 4 && out->height == 3);
    const float* p = static_cast<const float*>(out->imageBuffer) + (1 * 4 + 1) * 4;
    for (int c = 0; c < 4; ++c) EXPECT_FLOAT_EQ(p[c], (std::vector<float>{0.3125f, 0.8f, -0.05f, 1.0f}[c]));
}

TEST(AutoWhiteBalance, NeutralSmallAndSaturatedFrames) {
    KR_CinemaDNGAutoWBIterative wb;
    Frame grey(120, 100, 0.5f, 0.5f, 0.5f);
    const auto [k5000, out] = runWB(wb, grey);
    EXPECT_EQ(countOf(out, "\nMean values after approximation with color temp 5000.000000 for RGB : "), 1);
    EXPECT_EQ(countOf(out, "\nRGB values converged\nFinal mean values after approximation with color temp "), 1);
    EXPECT_EQ(countOf(out, "\nChromatic Adaptation matrix summed :\n"), 1);
    EXPECT_NEAR(k5000, 5000.0f, 60.0f);
    EXPECT_EQ(grey.at(20, 20)[0], 0.5f);  // the input is never changed
    wb.setAlreadyAppliedWBTemperature(6500.0f);
    EXPECT_NEAR(runWB(wb, grey).first, 6500.0f, 100.0f);
    for (auto [w, h] : {std::pair{40, 200}, std::pair{200, 40}, std::pair{10, 10}}) {  // no samples: all 20 rounds
        Frame f(w, h, 0.5f, 0.5f, 0.5f);
        const std::string out = runWB(wb, f).second;
        EXPECT_TRUE(countOf(out, "for RGB : 0.000000, 0.000000, 0.000000\n") == 20 && countOf(out, "converged") == 0) << w;
    }
    // 120 x 120 grey 0.5: 27 x 27 samples (20, 23, ..., 98), the means over all 14400 pixels:
    // 729 * 0.5 / 14400 = 0.0253125. Without the 9 samples of block (0, 0): 0.025.
    for (auto [red, means] : {std::pair{0.5f, "for RGB : 0.025313, 0.025313, 0.025313"},  // plain grey
                              {1.0f, "for RGB : 0.025000, 0.025000, 0.025000"},   // a bright saturated pixel, not sampled
                              {0.01f, "for RGB : 0.025313, 0.025313, 0.025313"}}) {  // saturated, 0.01f < 0.01: dark
        Frame f(120, 120, 0.5f, 0.5f, 0.5f);
        if (red != 0.5f) f.at(21, 21)[0] = red, f.at(21, 21)[1] = f.at(21, 21)[2] = 0.0f;
        EXPECT_NE(runWB(wb, f).second.find(means), std::string::npos) << red;
    }
}

TEST(DebugTIFF, OpensInTiffinfoWithFloatSamples) {
    const fs::path dir = fs::path(CINEDNG_BINARY_DIR) / "ops_debug_tiff", path = dir / "frame.tif";
    fs::create_directories(dir);
    Frame f(7, 5, 0.25f, 0.5f, 1.5f);
    f.at(4, 3)[0] = 0.125f;
    ASSERT_TRUE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, path.string()));
    const size_t header = 8 + 2 + 12 * 12 + 4 + 16;
    EXPECT_EQ(fs::file_size(path), header + 7 * 5 * 16);
    std::string info(4096, '\0');
    FILE* p = popen(("tiffinfo '" + path.string() + "' 2>&1").c_str(), "r");
    info.resize(fread(info.data(), 1, info.size(), p)), pclose(p);
    for (const char* line :
         {"Image Width: 7 Image Length: 5", "Bits/Sample: 32", "Sample Format: IEEE floating point", "Samples/Pixel: 4"})
        EXPECT_NE(info.find(line), std::string::npos) << info;
    float px[4];
    std::ifstream(path, std::ios::binary).seekg(header + (3 * 7 + 4) * 16).read(reinterpret_cast<char*>(px), sizeof px);
    EXPECT_EQ(std::vector<float>(px, px + 4), std::vector<float>(f.at(4, 3), f.at(4, 3) + 4));
    // "~/" is the home folder; a folder that does not exist and a record without samples fail.
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    setenv("HOME", dir.c_str(), 1);
    EXPECT_TRUE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, "~/tilde.tif") && fs::exists(dir / "tilde.tif"));
    setenv("HOME", home.c_str(), 1);
    EXPECT_FALSE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, (dir / "no/such/x.tif").string()));
    f.rec.imageBuffer = nullptr;
    EXPECT_FALSE(KR_CinemaDNGAutoWBIterative::debug_WriteImage(f.rec, (dir / "empty.tif").string()));
}
