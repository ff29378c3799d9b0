#include "cinedng/KRCinemaDNGAutoDetectionFromFileOperation.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "cinedng/KR_CinemaDNGAutoDetectionOperation.h"
#include "cinedng/KR_CinemaDNGDebayeringVCD.h"
#include "cinedng/KSCinemaDNGFileSequence.h"

namespace cinedng {

namespace {

constexpr const char* kDomain = "DNGDecode";

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

std::shared_ptr<KSError> noResult() {
    return KUOperation::errorWithDomain(kDomain, 2, "No Auto Detection Result available");
}

}  // namespace

void KRCinemaDNGAutoDetectionFromFileOperation::main() {
    struct stat st;
    if (filePath_.empty() || ::stat(filePath_.c_str(), &st) != 0) {
        fail(errorWithDomain(kDomain, 1, "file does not exist at path: %@", filePath_));
        return;
    }
    auto sequence = KSCinemaDNGFileSequence::initWithFilenames({filePath_});
    if (!sequence) {  // the sequence has logged why
        fail(noResult());
        return;
    }
    auto info = sequence->imageProcessingInfoWithCustomWhiteBalance(5000.0f);
    KSValuePtr matrix = info ? info->camToOutRGBMatrix() : nullptr;

    auto metadata = sequence->metadata();
    KSValuePtr widthValue = metadata ? metadata->objectForKey("imageWidth") : nullptr;
    KSValuePtr heightValue = metadata ? metadata->objectForKey("imageHeight") : nullptr;
    KSValuePtr cfa = metadata ? metadata->objectForKey("CFAPattern") : nullptr;
    const float width = widthValue ? widthValue->floatValue() : 0.0f;
    const float height = heightValue ? heightValue->floatValue() : 0.0f;
    std::string pattern;
    if (cfa && cfa->isArray()) {
        for (size_t i = 0; i < cfa->count(); ++i) {
            if (i) pattern += ",";
            pattern += cfa->objectAtIndex(i)->description();
        }
    }

    const int w = static_cast<int>(width), h = static_cast<int>(height);
    if (w <= 0 || h <= 0) {
        fail(noResult());
        return;
    }
    const size_t count = static_cast<size_t>(w) * static_cast<size_t>(h);
    std::unique_ptr<float, FreeDeleter> raw(allocPatchSamples(count));
    if (!raw) {
        fail(errorWithDomain(kDomain, 2, "KRCinemaDNGAutoDetectionFromFileOperation - out of memory"));
        return;
    }
    sequence->writeRawImageDataForIndex(0, raw.get(), count);

    PatchImageBuffer mosaic{w, h, 1, 32, pattern == "0,1,1,2" ? 1 : 0, 0, raw.get()};
    KR_CinemaDNGDebayeringVCD vcd;
    std::shared_ptr<KSError> error;
    std::unique_ptr<PatchImageBuffer, decltype(&freePatchImageBuffer)> rgba(vcd.debayerInputImage(&mosaic, &error),
                                                                            &freePatchImageBuffer);
    if (error || !rgba) {
        fail(error ? error : noResult());
        return;
    }
    raw.reset();

    KR_CinemaDNGAutoDetectionOperation detection(*rgba, 5000.0f, matrix);
    detection.detect();
    // Without a matrix the detection releases the frame's samples itself.
    if (!detection.inputImage().imageBuffer) rgba->imageBuffer = nullptr;
    if (!detection.isResultAvailable()) {
        fail(noResult());
        return;
    }
    exposure_ = detection.autoExposureFactor();
    whiteBalance_ = detection.autoWhiteBalanceColorTemp();
}

}  // namespace cinedng
