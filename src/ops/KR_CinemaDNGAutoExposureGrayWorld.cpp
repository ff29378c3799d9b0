#include "cinedng/KR_CinemaDNGAutoExposureGrayWorld.h"

#include <cmath>

namespace cinedng {

namespace {
constexpr const char* kDomain = "KR_CinemaDNGAutoExposureGrayWorld";
}

float KR_CinemaDNGAutoExposureGrayWorld::computeAutoExposureFactorForImage(const PatchImageBuffer* input,
                                                                            std::shared_ptr<KSError>* error) {
    if (!input || input->bufferType != 0 || input->bitsPerChannel != 32) {
        KSSetError(error, KSError::errorWithDomain(kDomain, -1, "This patch needs a 32 bit float buffer as input."));
        return -1.0f;
    }
    const int W = input->width, H = input->height;
    if (W < 0 || H < 0 || (W > 0 && H > 0 && (!input->imageBuffer || input->numChannels < 4))) {
        // Four floats per pixel are read: a smaller (or missing) buffer is refused rather than overrun.
        KSSetError(error, KSError::errorWithDomain(
                              kDomain, -1, "KR_CinemaDNGAutoExposureGrayWorld - the input needs four samples per pixel"));
        return -1.0f;
    }
    const float* buf = static_cast<const float*>(input->imageBuffer);
    const int stride = 4;  // four floats per pixel, whatever numChannels says
    const int tx = static_cast<int>(W / 3.0);
    const int ty = static_cast<int>(H / 3.0);
    const float weight = middleWeightingFactor_;
    double sum = 0.0;
    for (int y = 0; y < H; ++y) {
        const float* row = buf + static_cast<size_t>(y) * W * stride;
        const bool midRow = ty < y && y < 2 * ty;
        for (int x = 0; x < W; ++x) {
            const float g = row[static_cast<size_t>(x) * stride + 1];
            if (midRow && tx < x && x < 2 * tx)
                sum += g * weight;
            else
                sum += g;
        }
    }
    const double n = static_cast<double>(W) * H - 1.0;
    const double mean = sum / (0.8888888888888888 * n + 0.1111111111111111 * n * weight);
    double factor = 1.0;
    if (exposureThresholdLo_ > mean)
        factor = exposureThresholdLo_ / mean;
    else if (mean > exposureThresholdHi_)
        factor = exposureThresholdHi_ / mean;
    if (factor > 12.0) factor = 12.0;
    if (factor < 0.1) factor = 0.1;
    return static_cast<float>(factor);
}

}  // namespace cinedng
