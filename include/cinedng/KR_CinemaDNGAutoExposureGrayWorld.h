#pragma once
// Gray-world automatic exposure: the factor that brings the centre-weighted mean of the green channel
// of an RGBA float frame into [exposureThresholdLo, exposureThresholdHi], clamped to [0.1, 12.0].
#include <memory>

#include "cinedng/KR_CinemaDNGAutoExposureProtocol.h"
#include "cinedng/KSError.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGAutoExposureGrayWorld : public KR_CinemaDNGAutoExposureProtocol {
public:
    KR_CinemaDNGAutoExposureGrayWorld() = default;

    // Pixels strictly inside the central ninth (tx < x < 2tx, ty < y < 2ty) weigh this much.
    float middleWeightingFactor() const { return middleWeightingFactor_; }
    void setMiddleWeightingFactor(float v) { middleWeightingFactor_ = v; }
    float exposureThresholdLo() const { return exposureThresholdLo_; }
    void setExposureThresholdLo(float v) { exposureThresholdLo_ = v; }
    float exposureThresholdHi() const { return exposureThresholdHi_; }
    void setExposureThresholdHi(float v) { exposureThresholdHi_ = v; }

    // The buffer is read as four floats per pixel and only green (the second) is used. A buffer that
    // is not 32-bit float gives -1.0 and the error ("KR_CinemaDNGAutoExposureGrayWorld", -1).
    float computeAutoExposureFactorForImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) override;

private:
    float middleWeightingFactor_ = 5.0f;
    float exposureThresholdLo_ = 0.15f;
    float exposureThresholdHi_ = 0.5f;
};

}  // namespace cinedng
