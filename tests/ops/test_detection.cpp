// The detection operation on frames in memory, the from-file operation on real and built DNG frames,
// and the operation queue running several of them side by side.
#include <cmath>

#include "cinedng/KRCinemaDNGAutoDetectionFromFileOperation.h"
#include "cinedng/KR_CinemaDNGAutoDetectionOperation.h"
#include "cinedng/KR_CinemaDNGColorConvUtil.h"
#include "framebuilder/DngFrameBuilder.h"
#include "ops_test_support.h"

using namespace cinedng;
namespace fs = std::filesystem;

namespace {

const std::vector<float> kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// A malloc'd RGBA frame with a slight colour cast.
PatchImageBuffer mallocFrame(int w, int h, float v) {
    float* px = static_cast<float*>(std::malloc(sizeof(float) * 4 * w * h));
    for (int i = 0; i < w * h; ++i) px[4 * i] = v, px[4 * i + 1] = v * 0.9f, px[4 * i + 2] = v * 0.8f, px[4 * i + 3] = 1;
    return PatchImageBuffer{w, h, 4, 32, 0, 0, px};
}

// Runs f with standard output dropped; returns what went to the error stream (the log).
template <class F>
std::string quietly(F&& f) {
    testing::internal::CaptureStdout(), testing::internal::CaptureStderr(), f();
    return testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr();
}

struct Outcome { bool failed; long code; float exposure, whiteBalance; };

Outcome runFromFile(const std::string& path) {
    KRCinemaDNGAutoDetectionFromFileOperation op(path);
    quietly([&] { op.start(); });
    return {op.isFailed(), op.error() ? op.error()->code() : 0, op.exposure(), op.whiteBalance()};
}

// A 160 x 120 12-bit frame of one colour (red 1200, green 2000, blue 1000), labelled with `cfa`, whose
// 2 x 2 tile really holds the colours `holds`.
std::string builtFrame(const std::string& name, std::vector<uint8_t> cfa, const std::vector<uint8_t>& holds) {
    const fs::path path = fs::path(CINEDNG_BINARY_DIR) / "ops_detection_frames" / name;
    fs::create_directories(path.parent_path());
    framebuilder::RawFrameDesc frame;
    frame.width = 160, frame.height = 120, frame.bits = 12, frame.cfaPattern = std::move(cfa), frame.asShotNeutral = {0.5, 1.0, 0.7};
    frame.colorMatrix1 = {0.9, -0.3, -0.1, -0.4, 1.2, 0.2, -0.05, 0.2, 0.6}, frame.calibrationIlluminant1 = 21;
    std::vector<uint32_t> raster(size_t(frame.width) * frame.height);
    const uint32_t level[3] = {1200, 2000, 1000};
    for (uint32_t i = 0; i < raster.size(); ++i) raster[i] = level[holds[(i % frame.width & 1) + 2 * (i / frame.width & 1)]];
    framebuilder::writeRawFrame(path.string(), frame, raster);
    return path.string();
}

std::string sample(const char* name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

}  // namespace

TEST(AutoDetection, RunsBothDetectorsOnTheConvertedFrame) {
    PatchImageBuffer frame = mallocFrame(100, 80, 0.4f);
    const KSValuePtr m = opstest::matrix({0.9f, 0.1f, 0.0f, 0.05f, 0.9f, 0.05f, 0.0f, 0.1f, 0.9f});
    KR_CinemaDNGAutoDetectionOperation op(frame, 5600.0f, m);
    op.setAutoExpo_exposureThresholdHi(0.3f), op.setAutoExpo_exposureThresholdLo(0.2f), op.setAutoExpo_middleWeightingFactor(2.0f);
    op.setAutoWB_alreadyAppliedWBColorTemp(6000.0f);
    EXPECT_EQ(quietly([&] { op.detect(); }), "");
    ASSERT_TRUE(op.isResultAvailable());
    // The same settings on fresh detectors, run by hand on the converted frame.
    const auto conv = opstest::own(KR_CinemaDNGColorConvUtil::applyColorConvMatrix(m, &frame));
    KR_CinemaDNGAutoWBIterative wb;
    KR_CinemaDNGAutoExposureGrayWorld ae;
    wb.setAlreadyAppliedWBTemperature(6000.0f), ae.setMiddleWeightingFactor(2.0f);
    ae.setExposureThresholdHi(0.3f), ae.setExposureThresholdLo(0.2f);
    quietly([&] { EXPECT_EQ(op.autoWhiteBalanceColorTemp(), wb.computeAutoWBForInputImage(conv.get(), nullptr)); });
    EXPECT_EQ(op.autoExposureFactor(), ae.computeAutoExposureFactorForImage(conv.get(), nullptr));
    EXPECT_TRUE(op.autoExposureFactor() < 1.0f && op.inputUserWB() == 5600.0f);
    std::free(frame.imageBuffer);  // a converted copy was used: the frame is still ours
}

TEST(AutoDetection, FailuresLeaveNoResultAndNoMatrixReleasesTheFrame) {
    PatchImageBuffer frame = mallocFrame(60, 60, 0.3f), sixteen = frame, none = frame;
    sixteen.bitsPerChannel = 16;  // passes the conversion, stops the white balance
    none.imageBuffer = nullptr;   // nothing happens, nothing is logged
    const struct { PatchImageBuffer in; std::vector<float> m; const char* log; } cases[] = {
        {none, kIdentity, ""},
        {frame, {1, 0, 0, 0, 1, 0, 0, 0},
         "KR_CinemaDNGColorConvUtil: The conversion matrix needs to be 3x3 but the array size is 8!\n"},
        {sixteen, kIdentity, "\n\nERROR in AutoWB iterative component: This patch needs a 32 bit float buffer as input.\n"}};
    for (const auto& c : cases) {
        KR_CinemaDNGAutoDetectionOperation op(c.in, 5000.0f, opstest::matrix(c.m));
        EXPECT_EQ(quietly([&] { op.detect(); }), c.log);
        EXPECT_FALSE(op.isResultAvailable());
    }
    // Without a matrix the conversion hands back the frame, and detect() releases its samples
    // once (the sanitizer build checks); a second detect() finds none and keeps the old values.
    KR_CinemaDNGAutoDetectionOperation op(frame, 5000.0f, nullptr);
    quietly([&] { op.detect(); });
    EXPECT_TRUE(op.isResultAvailable() && op.inputImage().imageBuffer == nullptr);
    const float kelvin = op.autoWhiteBalanceColorTemp();
    quietly([&] { op.detect(); });
    EXPECT_TRUE(!op.isResultAvailable() && op.autoWhiteBalanceColorTemp() == kelvin);
}

TEST(AutoDetectionFromFile, MissingFileRefusedFramesAndTheLayoutOfTheCFAPattern) {
    KRCinemaDNGAutoDetectionFromFileOperation op("/no/such/frame.dng");
    op.start();
    ASSERT_TRUE(op.isFailed());
    EXPECT_EQ(op.error()->description(), "Error Domain=DNGDecode Code=1 \"file does not exist at path: /no/such/frame.dng\"");
    // No colour matrix, a strip past the end, an absurd size, a cut file: the sequence refuses them.
    for (const char* name : {"oiio_valid-32x32.dng", "oiio_truncated.dng", "oiio_bomb-32000x32000.dng", "filetype_Leica-M10.dng"})
        EXPECT_EQ(runFromFile(sample(name)).code, 2) << name;  // a code only comes with a failure

    // One scene labelled 1,0,2,1 (read with layout 0) and 0,1,1,2 (layout 1) gives the same
    // results; mislabelled sites (its colours swapped by the demosaic) give a different balance.
    const Outcome a = runFromFile(builtFrame("grbg.dng", {1, 0, 2, 1}, {1, 0, 2, 1}));
    const Outcome b = runFromFile(builtFrame("rggb.dng", {0, 1, 1, 2}, {0, 1, 1, 2}));
    const Outcome wrong = runFromFile(builtFrame("mislabelled.dng", {0, 1, 1, 2}, {1, 0, 2, 1}));
    ASSERT_FALSE(a.failed || b.failed || wrong.failed);
    EXPECT_NEAR(a.whiteBalance, b.whiteBalance, 1.0f);
    EXPECT_NEAR(a.exposure, b.exposure, 0.01f * a.exposure);
    EXPECT_GT(std::fabs(a.whiteBalance - wrong.whiteBalance), 300.0f) << a.whiteBalance << " " << wrong.whiteBalance;
}

TEST(AutoDetectionFromFile, RealFramesSideBySideOnTheQueueAsOneByOne) {
    // Four different files on the queue at once give what each gives alone; every one publishes an
    // exposure and a white balance in range.
    const std::vector<std::string> paths = {sample("tinydng_colorchart.dng"), sample("fauxbolex_frame_000170.dng"),
                                            sample("fauxbolex_frame_001045.dng"), builtFrame("queue.dng", {0, 1, 1, 2}, {0, 1, 1, 2})};
    std::vector<Outcome> alone;
    for (const auto& p : paths) alone.push_back(runFromFile(p));
    std::vector<std::shared_ptr<KRCinemaDNGAutoDetectionFromFileOperation>> ops;
    quietly([&] {
        KUOperationQueue queue(4);
        for (const auto& p : paths)
            queue.addOperation(ops.emplace_back(std::make_shared<KRCinemaDNGAutoDetectionFromFileOperation>(p)));
        queue.waitUntilAllOperationsAreFinished();
    });
    for (size_t i = 0; i < paths.size(); ++i) {
        ASSERT_TRUE(ops[i]->isFinished() && !ops[i]->isFailed() && !alone[i].failed) << paths[i];
        EXPECT_EQ(std::pair(ops[i]->exposure(), ops[i]->whiteBalance()), std::pair(alone[i].exposure, alone[i].whiteBalance));
        EXPECT_TRUE(alone[i].exposure >= 0.1f && alone[i].exposure <= 12.0f) << paths[i] << " " << alone[i].exposure;
        EXPECT_TRUE(alone[i].whiteBalance >= 2000.0f && alone[i].whiteBalance <= 50000.0f) << paths[i];
    }
}
