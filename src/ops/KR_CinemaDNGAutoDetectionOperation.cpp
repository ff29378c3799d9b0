#include "cinedng/KR_CinemaDNGAutoDetectionOperation.h"

#include <cstdlib>
#include <exception>

#include "cinedng/KR_CinemaDNGColorConvUtil.h"
#include "cinedng/KSLog.h"

namespace cinedng {

KR_CinemaDNGAutoDetectionOperation::KR_CinemaDNGAutoDetectionOperation(const PatchImageBuffer& image,
                                                                       float userWhiteColorTemp,
                                                                       KSValuePtr colorConvMatrix)
    : awbIterative_(std::make_unique<KR_CinemaDNGAutoWBIterative>()),
      autoExpGrayWorld_(std::make_unique<KR_CinemaDNGAutoExposureGrayWorld>()),
      inputImage_(image),
      inputUserWB_(userWhiteColorTemp),
      colorConvMatrix_(std::move(colorConvMatrix)) {}

void KR_CinemaDNGAutoDetectionOperation::detect() {
    if (!inputImage_.imageBuffer) {
        resultAvailable_ = false;
        return;
    }
    PatchImageBuffer* conv = KR_CinemaDNGColorConvUtil::applyColorConvMatrix(colorConvMatrix_, &inputImage_);
    if (!conv) {
        resultAvailable_ = false;
        return;
    }
    // A converted frame is ours to release; the frame itself (null matrix) is released only after
    // a complete detection, as the conversion's contract has it.
    const bool ownCopy = conv != &inputImage_;
    auto dropConversion = [&] {
        if (ownCopy) freePatchImageBuffer(conv);
    };

    std::shared_ptr<KSError> error;
    float temperature = 0.0f;
    try {
        temperature = awbIterative_->computeAutoWBForInputImage(conv, &error);
    } catch (const std::exception& e) {
        KSLog("### %@::%@ ### an exception occured: \n\t%s", "KR_CinemaDNGAutoDetectionOperation", "detect", e.what());
        resultAvailable_ = false;
        dropConversion();
        return;
    }
    if (error) {
        KSLog("\n\nERROR in AutoWB iterative component: %@", error->localizedDescription());
        resultAvailable_ = false;
        dropConversion();
        return;
    }
    const float factor = autoExpGrayWorld_->computeAutoExposureFactorForImage(conv, &error);
    if (error) {
        KSLog("\n\nERROR in Auto exposure gray world component: %@", error->localizedDescription());
        resultAvailable_ = false;
        dropConversion();
        return;
    }
    if (ownCopy) {
        freePatchImageBuffer(conv);
    } else {
        std::free(inputImage_.imageBuffer);
        inputImage_.imageBuffer = nullptr;
    }
    autoWBColorTemp_ = temperature;
    autoExposureFactor_ = factor;
    resultAvailable_ = true;
}

}  // namespace cinedng
