// The detection operation on frames in memory, the from-file operation on real and built DNG frames,
// and the operation queue running several of them side by side.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KRCinemaDNGAutoDetectionFromFileOperation.h"
#include "cinedng/KR_CinemaDNGAutoDetectionOperation.h"
#include "cinedng/KR_CinemaDNGColorConvUtil.h"
#include "cinedng/cd_exception.h"
#include "cinedng/KR_CinemaDNGDebayeringVCD.h"
#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/KUOperation.h"
#include "framebuilder/DngFrameBuilder.h"

using namespace cinedng;
namespace fs = std::filesystem;

namespace {

KSValuePtr matrixValue(const std::vector<float>& m) {
    KSArray a;
    for (float v : m) a.push_back(KSValue::numberWithFloat(v));
    return KSValue::arrayWithArray(a);
}

// A malloc'd RGBA frame, grey with a gentle gradient.
PatchImageBuffer mallocFrame(int w, int h, float base) {
    float* px = static_cast<float*>(std::malloc(sizeof(float) * 4 * w * h));
    for (int i = 0; i < w * h; ++i) {
        px[4 * i] = base;
        px[4 * i + 1] = base * 0.9f;
        px[4 * i + 2] = base * 0.8f;
        px[4 * i + 3] = 1.0f;
    }
    return PatchImageBuffer{w, h, 4, 32, 0, 0, px};
}

const std::vector<float> kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1};

}  // namespace

// ---- detection in memory ---------------------------------------------------------------------------

TEST(AutoDetection, RunsBothDetectorsOnTheConvertedFrame) {
    PatchImageBuffer frame = mallocFrame(100, 80, 0.4f);
    const std::vector<float> m = {0.9f, 0.1f, 0.0f, 0.05f, 0.9f, 0.05f, 0.0f, 0.1f, 0.9f};
    KR_CinemaDNGAutoDetectionOperation op(frame, 5600.0f, matrixValue(m));
    EXPECT_FALSE(op.isResultAvailable());
    EXPECT_EQ(op.inputUserWB(), 5600.0f);
    op.setAutoExpo_exposureThresholdHi(0.3f);
    EXPECT_EQ(op.autoExposure().exposureThresholdHi(), 0.3f);
    op.setAutoWB_alreadyAppliedWBColorTemp(6000.0f);
    EXPECT_EQ(op.autoWhiteBalance().alreadyAppliedWBTemperature(), 6000.0f);
    op.setAutoExpo_middleWeightingFactor(2.0f);
    EXPECT_EQ(op.autoExpo_middleWeightingFactor(), 2.0f);
    op.setAutoExpo_exposureThresholdLo(0.2f);
    EXPECT_EQ(op.autoExpo_exposureThresholdLo(), 0.2f);

    testing::internal::CaptureStdout();
    op.detect();
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(op.isResultAvailable());

    // The same detectors with the same settings on the converted frame by hand.
    PatchImageBuffer* conv = KR_CinemaDNGColorConvUtil::applyColorConvMatrix(matrixValue(m), &frame);
    ASSERT_NE(conv, nullptr);
    KR_CinemaDNGAutoWBIterative wb;
    wb.setAlreadyAppliedWBTemperature(6000.0f);
    KR_CinemaDNGAutoExposureGrayWorld ae;
    ae.setExposureThresholdHi(0.3f);
    ae.setExposureThresholdLo(0.2f);
    ae.setMiddleWeightingFactor(2.0f);
    testing::internal::CaptureStdout();
    const float kelvin = wb.computeAutoWBForInputImage(conv, nullptr);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(op.autoWhiteBalanceColorTemp(), kelvin);
    EXPECT_EQ(op.autoExposureFactor(), ae.computeAutoExposureFactorForImage(conv, nullptr));
    EXPECT_LT(op.autoExposureFactor(), 1.0f);
    freePatchImageBuffer(conv);
    std::free(frame.imageBuffer);  // a converted copy was used: the frame is still ours
}

TEST(AutoDetection, FailuresLeaveNoResult) {
    // No samples: nothing happens, nothing is logged.
    PatchImageBuffer none{10, 10, 4, 32, 0, 0, nullptr};
    KR_CinemaDNGAutoDetectionOperation empty(none, 5000.0f, matrixValue(kIdentity));
    testing::internal::CaptureStderr();
    empty.detect();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(empty.isResultAvailable());

    PatchImageBuffer frame = mallocFrame(60, 60, 0.3f);
    KR_CinemaDNGAutoDetectionOperation eight(frame, 5000.0f, matrixValue({1, 0, 0, 0, 1, 0, 0, 0}));
    testing::internal::CaptureStderr();
    eight.detect();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("array size is 8!"), std::string::npos);
    EXPECT_FALSE(eight.isResultAvailable());

    PatchImageBuffer sixteen = frame;
    sixteen.bitsPerChannel = 16;  // passes the conversion, stops the white balance
    KR_CinemaDNGAutoDetectionOperation wrongBits(sixteen, 5000.0f, matrixValue(kIdentity));
    testing::internal::CaptureStderr();
    wrongBits.detect();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "\n\nERROR in AutoWB iterative component: This patch needs a 32 bit float buffer as input.\n");
    EXPECT_FALSE(wrongBits.isResultAvailable());
    std::free(frame.imageBuffer);
}

TEST(AutoDetection, WithoutMatrixTheFrameIsReleasedAfterDetection) {
    PatchImageBuffer frame = mallocFrame(80, 80, 0.3f);
    KR_CinemaDNGAutoDetectionOperation op(frame, 5000.0f, nullptr);
    testing::internal::CaptureStdout();
    op.detect();
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(op.isResultAvailable());
    EXPECT_EQ(op.inputImage().imageBuffer, nullptr);  // released once (the sanitizer build checks)
    const float kelvin = op.autoWhiteBalanceColorTemp();
    op.detect();  // nothing left to detect on: no result, the earlier values stay
    EXPECT_FALSE(op.isResultAvailable());
    EXPECT_EQ(op.autoWhiteBalanceColorTemp(), kelvin);
}

// ---- operation queue -------------------------------------------------------------------------------

namespace {

class CountingOperation : public KUOperation {
public:
    CountingOperation(std::atomic<int>& running, std::atomic<int>& peak, bool failIt, bool throwIt)
        : running_(running), peak_(peak), fail_(failIt), throw_(throwIt) {}
    void main() override {
        const int now = ++running_;
        int seen = peak_.load();
        while (now > seen && !peak_.compare_exchange_weak(seen, now)) {
        }
        volatile double x = 0;
        for (int i = 0; i < 2000000; ++i) x = x + i;
        --running_;
        if (throw_) throw cd_exception("CountingOperation - thrown");
        if (fail_) fail(errorWithDomain("Test", 7, "failed %d of %@", 3, std::string("four")));
    }

private:
    std::atomic<int>& running_;
    std::atomic<int>& peak_;
    bool fail_, throw_;
};

}  // namespace

TEST(OperationQueue, RunsOperationsConcurrentlyAndKeepsFailures) {
    std::atomic<int> running{0}, peak{0};
    std::vector<std::shared_ptr<CountingOperation>> ops;
    {
        KUOperationQueue queue(2);
        for (int i = 0; i < 6; ++i) {
            ops.push_back(std::make_shared<CountingOperation>(running, peak, i == 2, i == 4));
            queue.addOperation(ops.back());
        }
        queue.waitUntilAllOperationsAreFinished();
        EXPECT_EQ(queue.operationCount(), 0u);
    }
    EXPECT_LE(peak.load(), 2);
    for (size_t i = 0; i < ops.size(); ++i) {
        EXPECT_TRUE(ops[i]->isFinished());
        EXPECT_EQ(ops[i]->isFailed(), i == 2 || i == 4);
    }
    EXPECT_EQ(ops[2]->error()->domain(), "Test");
    EXPECT_EQ(ops[2]->error()->code(), 7);
    EXPECT_EQ(ops[2]->error()->localizedDescription(), "failed 3 of four");
    EXPECT_EQ(ops[4]->error()->domain(), "KUOperation");
    EXPECT_EQ(ops[4]->error()->localizedDescription(), "CountingOperation - thrown");
}

// ---- detection from a file -------------------------------------------------------------------------

namespace {

struct Outcome {
    bool failed;
    long code;
    float exposure, whiteBalance;
};

Outcome runFromFile(const std::string& path) {
    auto op = std::make_shared<KRCinemaDNGAutoDetectionFromFileOperation>(path);
    testing::internal::CaptureStdout();
    op->start();
    testing::internal::GetCapturedStdout();
    return {op->isFailed(), op->error() ? op->error()->code() : 0, op->exposure(), op->whiteBalance()};
}

// The chain of the operation, by hand, with the layout given explicitly.
Outcome byHand(const std::string& path, int layout) {
    auto seq = KSCinemaDNGFileSequence::initWithFilenames({path});
    if (!seq) return {true, -1, 0, 0};
    auto info = seq->imageProcessingInfoWithCustomWhiteBalance(5000.0f);
    auto md = seq->metadata();
    const int w = static_cast<int>(md->objectForKey("imageWidth")->floatValue());
    const int h = static_cast<int>(md->objectForKey("imageHeight")->floatValue());
    std::vector<float> raw(size_t(w) * h, 0.0f);
    seq->writeRawImageDataForIndex(0, raw.data(), raw.size());
    PatchImageBuffer mosaic{w, h, 1, 32, layout, 0, raw.data()};
    KR_CinemaDNGDebayeringVCD vcd;
    PatchImageBuffer* rgba = vcd.debayerInputImage(&mosaic, nullptr);
    KR_CinemaDNGAutoDetectionOperation det(*rgba, 5000.0f, info->camToOutRGBMatrix());
    testing::internal::CaptureStdout();
    det.detect();
    testing::internal::GetCapturedStdout();
    Outcome o{!det.isResultAvailable(), 0, det.autoExposureFactor(), det.autoWhiteBalanceColorTemp()};
    freePatchImageBuffer(rgba);
    return o;
}

std::string builtFrame(const std::string& name, std::vector<uint8_t> cfa) {
    const fs::path dir = fs::path(CINEDNG_BINARY_DIR) / "ops_detection_frames";
    fs::create_directories(dir);
    framebuilder::RawFrameSpec spec;
    spec.width = 160;
    spec.height = 120;
    spec.bits = 12;
    spec.cfaPattern = std::move(cfa);
    spec.whiteLevel = {4095};
    spec.blackLevel = {64};
    spec.colorMatrix1 = {0.9, -0.3, -0.1, -0.4, 1.2, 0.2, -0.05, 0.2, 0.6};
    spec.calibrationIlluminant1 = 21;
    spec.asShotNeutral = {0.5, 1.0, 0.7};
    // Different levels at the four sites of the 2 x 2 tile, with soft structure: the layout the
    // demosaic assumes changes the colours it sees.
    std::vector<uint32_t> raster(size_t(spec.width) * spec.height);
    for (uint32_t y = 0; y < spec.height; ++y)
        for (uint32_t x = 0; x < spec.width; ++x) {
            const uint32_t site = (x & 1) + 2 * (y & 1);
            const uint32_t levels[4] = {700, 1900, 1500, 400};
            raster[y * spec.width + x] = levels[site] + (x * 3 + y * 2) % 300;
        }
    const std::string path = (dir / name).string();
    framebuilder::writeRawFrame(path, spec, raster);
    return path;
}

}  // namespace

TEST(AutoDetectionFromFile, MissingFileFailsWithCodeOne) {
    auto op = std::make_shared<KRCinemaDNGAutoDetectionFromFileOperation>("/no/such/frame.dng");
    op->start();
    ASSERT_TRUE(op->isFailed());
    EXPECT_EQ(op->error()->domain(), "DNGDecode");
    EXPECT_EQ(op->error()->code(), 1);
    EXPECT_EQ(op->error()->localizedDescription(), "file does not exist at path: /no/such/frame.dng");
}

TEST(AutoDetectionFromFile, LayoutFollowsTheCFAPattern) {
    const std::string grbg = builtFrame("cfa_1021.dng", {1, 0, 2, 1});
    const std::string rggb = builtFrame("cfa_0112.dng", {0, 1, 1, 2});
    const Outcome a = runFromFile(grbg);
    ASSERT_FALSE(a.failed) << a.code;
    const Outcome a0 = byHand(grbg, 0), a1 = byHand(grbg, 1);
    EXPECT_EQ(a.exposure, a0.exposure);
    EXPECT_EQ(a.whiteBalance, a0.whiteBalance);
    EXPECT_NE(a.whiteBalance, a1.whiteBalance);

    const Outcome b = runFromFile(rggb);
    ASSERT_FALSE(b.failed) << b.code;
    const Outcome b1 = byHand(rggb, 1), b0 = byHand(rggb, 0);
    EXPECT_EQ(b.exposure, b1.exposure);
    EXPECT_EQ(b.whiteBalance, b1.whiteBalance);
    EXPECT_NE(b.whiteBalance, b0.whiteBalance);
}

TEST(AutoDetectionFromFile, RealFramesPublishExposureAndWhiteBalance) {
    for (const char* name : {"tinydng_colorchart.dng", "fauxbolex_frame_000170.dng", "fauxbolex_frame_001045.dng"}) {
        const std::string path = std::string(CINEDNG_SAMPLES_DIR) + "/" + name;
        const Outcome o = runFromFile(path);
        ASSERT_FALSE(o.failed) << name << " code " << o.code;
        EXPECT_GE(o.exposure, 0.1f) << name;
        EXPECT_LE(o.exposure, 12.0f) << name;
        EXPECT_GE(o.whiteBalance, 2000.0f) << name;
        EXPECT_LE(o.whiteBalance, 50000.0f) << name;
        const Outcome h = byHand(path, std::string(name).rfind("tinydng", 0) == 0 ? 1 : 0);
        EXPECT_EQ(o.exposure, h.exposure) << name;
        EXPECT_EQ(o.whiteBalance, h.whiteBalance) << name;
    }
}

TEST(AutoDetectionFromFile, FramesThatCannotBeOpenedFailWithCodeTwo) {
    // No colour matrix, a strip past the end, an absurd size, a cut file: the sequence refuses them.
    for (const char* name : {"oiio_valid-32x32.dng", "oiio_truncated.dng", "oiio_bomb-32000x32000.dng",
                             "filetype_Leica-M10.dng"}) {
        testing::internal::CaptureStderr();
        const Outcome o = runFromFile(std::string(CINEDNG_SAMPLES_DIR) + "/" + name);
        testing::internal::GetCapturedStderr();
        EXPECT_TRUE(o.failed) << name;
        EXPECT_EQ(o.code, 2) << name;
    }
}

TEST(AutoDetectionFromFile, SideBySideOnTheQueueAsOneByOne) {
    const std::vector<std::string> paths = {
        std::string(CINEDNG_SAMPLES_DIR) + "/tinydng_colorchart.dng",
        std::string(CINEDNG_SAMPLES_DIR) + "/fauxbolex_frame_000185.dng",
        builtFrame("queue_1021.dng", {1, 0, 2, 1}),
        builtFrame("queue_0112.dng", {0, 1, 1, 2}),
    };
    std::vector<Outcome> alone;
    for (const auto& p : paths) alone.push_back(runFromFile(p));

    std::vector<std::shared_ptr<KRCinemaDNGAutoDetectionFromFileOperation>> ops;
    testing::internal::CaptureStdout();
    {
        KUOperationQueue queue(4);
        for (const auto& p : paths) {
            ops.push_back(std::make_shared<KRCinemaDNGAutoDetectionFromFileOperation>(p));
            queue.addOperation(ops.back());
        }
        queue.waitUntilAllOperationsAreFinished();
    }
    testing::internal::GetCapturedStdout();
    for (size_t i = 0; i < paths.size(); ++i) {
        ASSERT_TRUE(ops[i]->isFinished());
        EXPECT_FALSE(ops[i]->isFailed()) << paths[i];
        EXPECT_FALSE(alone[i].failed) << paths[i];
        EXPECT_EQ(ops[i]->exposure(), alone[i].exposure) << paths[i];
        EXPECT_EQ(ops[i]->whiteBalance(), alone[i].whiteBalance) << paths[i];
    }
}
