#include "cinedng/KSImageProcessingInfo.h"

#include <cstdio>

#include "cinedng/KSLog.h"

namespace cinedng {

std::shared_ptr<KSImageProcessingInfo> KSImageProcessingInfo::initWithCamToOutRGBMatrix(
    KSValuePtr camToOutRGBMatrix, KSValuePtr camToXYZMatrix, KSValuePtr cameraMaxValuesRGB) {
    auto info = std::make_shared<KSImageProcessingInfo>();
    info->camToOutRGBMatrix_ = std::move(camToOutRGBMatrix);
    info->camToXYZMatrix_ = std::move(camToXYZMatrix);
    info->cameraMaxValuesRGB_ = std::move(cameraMaxValuesRGB);
    return info;
}

std::string KSImageProcessingInfo::description() const {
    // The object's own identity first, as every host object describes itself.
    char base[64];
    std::snprintf(base, sizeof base, "<KSImageProcessingInfo: %p>", static_cast<const void*>(this));
    return KSFormat("%@\ncamToOutRGBMatrix: %@ \n\n camToXYZMatrix: %@ \n\n cameraMaxValuesRGB: %@", std::string(base),
                    camToOutRGBMatrix_, camToXYZMatrix_, cameraMaxValuesRGB_);
}

}  // namespace cinedng
