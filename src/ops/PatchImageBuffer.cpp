#include "cinedng/PatchImageBuffer.h"

#include <cstdlib>

namespace cinedng {

PatchImageBuffer* allocPatchImageBuffer() {
    return static_cast<PatchImageBuffer*>(std::calloc(1, sizeof(PatchImageBuffer)));
}

void freePatchImageBuffer(PatchImageBuffer* image) {
    if (!image) return;
    std::free(image->imageBuffer);
    image->imageBuffer = nullptr;
    std::free(image);
}

size_t patchImageSampleCount(const PatchImageBuffer& image) {
    if (image.width <= 0 || image.height <= 0 || image.numChannels <= 0) return 0;
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height) *
           static_cast<size_t>(image.numChannels);
}

}  // namespace cinedng
