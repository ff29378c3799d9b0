#pragma once
// The colour-processing information that the host needs to render a frame for one colour
// temperature: the camera-to-output-RGB matrix, the camera-to-XYZ matrix and the camera RGB of white.
// Each is an array of float numbers (KSValue arrays, row-major for the matrices).
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KSValue.h"

namespace cinedng {

class KSImageProcessingInfo {
public:
    // initWithCamToOutRGBMatrix:camToXYZMatrix:andCameraMaxValuesRGB: (the arrays are shared).
    static std::shared_ptr<KSImageProcessingInfo> initWithCamToOutRGBMatrix(KSValuePtr camToOutRGBMatrix,
                                                                             KSValuePtr camToXYZMatrix,
                                                                             KSValuePtr cameraMaxValuesRGB);

    // 9 floats: camera RGB to output RGB, scaled so that its largest row sum is 1.
    const KSValuePtr& camToOutRGBMatrix() const { return camToOutRGBMatrix_; }
    void setCamToOutRGBMatrix(KSValuePtr v) { camToOutRGBMatrix_ = std::move(v); }
    // 9 floats: camera RGB to XYZ.
    const KSValuePtr& camToXYZMatrix() const { return camToXYZMatrix_; }
    void setCamToXYZMatrix(KSValuePtr v) { camToXYZMatrix_ = std::move(v); }
    // 3 floats: the camera RGB of white, divided by its largest component.
    const KSValuePtr& cameraMaxValuesRGB() const { return cameraMaxValuesRGB_; }
    void setCameraMaxValuesRGB(KSValuePtr v) { cameraMaxValuesRGB_ = std::move(v); }

    // "<KSImageProcessingInfo: 0x...>\ncamToOutRGBMatrix: (...) \n\n camToXYZMatrix: (...) \n\n
    // cameraMaxValuesRGB: (...)".
    std::string description() const;

private:
    KSValuePtr camToOutRGBMatrix_;
    KSValuePtr camToXYZMatrix_;
    KSValuePtr cameraMaxValuesRGB_;
};

}  // namespace cinedng
