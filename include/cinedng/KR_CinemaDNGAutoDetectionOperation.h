#pragma once
// Runs colour conversion, automatic white balance and automatic exposure on one demosaiced RGBA
// float frame held in memory, and keeps the two results.
#include <memory>

#include "cinedng/KR_CinemaDNGAutoExposureGrayWorld.h"
#include "cinedng/KR_CinemaDNGAutoWBIterative.h"
#include "cinedng/KSValue.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGAutoDetectionOperation {
public:
    // initWithImage:userWhiteColorTemp:andColorConvMatrix: the record is copied; its sample buffer
    // stays the caller's (but see detect() for a null matrix). Both detectors get their defaults.
    KR_CinemaDNGAutoDetectionOperation(const PatchImageBuffer& image, float userWhiteColorTemp,
                                       KSValuePtr colorConvMatrix);

    // Converts the frame with the matrix, then runs the white balance and the exposure detectors.
    // Failures are logged and leave isResultAvailable() false (earlier results stay in place).
    // With a null matrix the conversion hands back the frame itself, and detect() then releases the
    // caller's sample buffer with free() once the detectors are done (the record keeps a null
    // buffer afterwards, so a second detect() finds no samples).
    void detect();

    bool isResultAvailable() const { return resultAvailable_; }
    float autoWhiteBalanceColorTemp() const { return autoWBColorTemp_; }
    void setAutoWhiteBalanceColorTemp(float kelvin) { autoWBColorTemp_ = kelvin; }
    float autoExposureFactor() const { return autoExposureFactor_; }
    void setAutoExposureFactor(float factor) { autoExposureFactor_ = factor; }

    KR_CinemaDNGAutoWBIterative& autoWhiteBalance() { return *awbIterative_; }
    KR_CinemaDNGAutoExposureGrayWorld& autoExposure() { return *autoExpGrayWorld_; }

    // Settings of the detectors.
    float autoWB_alreadyAppliedWBColorTemp() const { return awbIterative_->alreadyAppliedWBTemperature(); }
    void setAutoWB_alreadyAppliedWBColorTemp(float v) { awbIterative_->setAlreadyAppliedWBTemperature(v); }
    float autoExpo_middleWeightingFactor() const { return autoExpGrayWorld_->middleWeightingFactor(); }
    void setAutoExpo_middleWeightingFactor(float v) { autoExpGrayWorld_->setMiddleWeightingFactor(v); }
    float autoExpo_exposureThresholdHi() const { return autoExpGrayWorld_->exposureThresholdHi(); }
    void setAutoExpo_exposureThresholdHi(float v) { autoExpGrayWorld_->setExposureThresholdHi(v); }
    float autoExpo_exposureThresholdLo() const { return autoExpGrayWorld_->exposureThresholdLo(); }
    void setAutoExpo_exposureThresholdLo(float v) { autoExpGrayWorld_->setExposureThresholdLo(v); }

    float inputUserWB() const { return inputUserWB_; }
    const PatchImageBuffer& inputImage() const { return inputImage_; }
    const KSValuePtr& colorConvMatrix() const { return colorConvMatrix_; }

private:
    std::unique_ptr<KR_CinemaDNGAutoWBIterative> awbIterative_;
    std::unique_ptr<KR_CinemaDNGAutoExposureGrayWorld> autoExpGrayWorld_;
    PatchImageBuffer inputImage_;
    float inputUserWB_;
    KSValuePtr colorConvMatrix_;
    bool resultAvailable_ = false;
    float autoWBColorTemp_ = 0.0f;
    float autoExposureFactor_ = 0.0f;
};

}  // namespace cinedng
