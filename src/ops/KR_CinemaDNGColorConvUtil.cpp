#include "cinedng/KR_CinemaDNGColorConvUtil.h"

#include <cstdlib>

#include "cinedng/KSLog.h"

namespace cinedng {

PatchImageBuffer* KR_CinemaDNGColorConvUtil::applyColorConvMatrix(const KSValuePtr& matrix, PatchImageBuffer* image) {
    if (!image) return nullptr;
    if (image->imageBuffer && !matrix) return image;

    PatchImageBuffer* out = allocPatchImageBuffer();
    if (!out) return nullptr;
    out->width = image->width;
    out->height = image->height;
    out->numChannels = image->numChannels;
    out->bufferType = image->bufferType;
    out->bitsPerChannel = image->bitsPerChannel;

    const size_t count = matrix ? matrix->count() : 0;
    if (count != 9) {
        freePatchImageBuffer(out);
        KSLog("KR_CinemaDNGColorConvUtil: The conversion matrix needs to be 3x3 but the array size is %i!",
              static_cast<int>(count));
        return nullptr;
    }
    if (image->numChannels != 4 || image->bufferType != 0) {
        freePatchImageBuffer(out);
        KSLog("KR_CinemaDNGColorConvUtil: The conversion matrix utility expects a RGBA float buffer as input!");
        return nullptr;
    }
    if (image->width < 0 || image->height < 0) {
        freePatchImageBuffer(out);
        KSLog("KR_CinemaDNGColorConvUtil - invalid image size %ix%i", image->width, image->height);
        return nullptr;
    }
    const size_t pixels = static_cast<size_t>(image->width) * static_cast<size_t>(image->height);
    if (pixels > 0 && !image->imageBuffer) {
        freePatchImageBuffer(out);
        KSLog("KR_CinemaDNGColorConvUtil - the input image has no samples");
        return nullptr;
    }
    float m[9];
    for (int i = 0; i < 9; ++i) m[i] = matrix->objectAtIndex(i)->floatValue();

    float* dst = allocPatchSamples(pixels * 4);
    if (!dst) {
        freePatchImageBuffer(out);
        KSLog("KR_CinemaDNGColorConvUtil - out of memory");
        return nullptr;
    }
    const float* src = static_cast<const float*>(image->imageBuffer);
    for (size_t i = 0; i < pixels; ++i) {
        const float r = src[4 * i], g = src[4 * i + 1], b = src[4 * i + 2];
        dst[4 * i] = m[0] * r + m[1] * g + m[2] * b;
        dst[4 * i + 1] = m[3] * r + m[4] * g + m[5] * b;
        dst[4 * i + 2] = m[6] * r + m[7] * g + m[8] * b;
        dst[4 * i + 3] = 1.0f;
    }
    out->imageBuffer = dst;
    return out;
}

}  // namespace cinedng
