#include "cinedng/PatchImageBuffer.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

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

float* allocPatchSamples(size_t count) {
    const size_t bytes = (count ? count : 1) * sizeof(float);
    void* p = std::calloc(1, bytes);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    // Whole 2 MiB blocks inside the allocation (calloc of this size maps fresh, untouched pages).
    constexpr uintptr_t kHuge = uintptr_t(1) << 21;
    if (p && bytes >= 4 * kHuge) {
        const uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHuge - 1) & ~(kHuge - 1);
        const uintptr_t end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(kHuge - 1);
        if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    }
#endif
    return static_cast<float*>(p);
}

size_t patchImageSampleCount(const PatchImageBuffer& image) {
    if (image.width <= 0 || image.height <= 0 || image.numChannels <= 0) return 0;
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height) *
           static_cast<size_t>(image.numChannels);
}

}  // namespace cinedng
