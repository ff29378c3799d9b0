#pragma once
// The image record that every float-buffer operation (demosaics, detectors, colour conversion)
// takes and returns. Plain C layout: six 32-bit integers followed by the sample pointer.
//
// Samples are interleaved per pixel, rows top to bottom, no gap between rows. bufferType 0 means
// 32-bit floating-point samples. bayerPattern names the colour layout of a one-channel mosaic by its
// first two rows: 0 = G R / B G, 1 = R G / G B, 2 = G B / R G; any other value makes every
// photosite green.
//
// Ownership: a record returned by an operation, and its imageBuffer, are allocated with malloc and
// belong to the caller, who releases both with freePatchImageBuffer() (or free() on each).
#include <cstddef>
#include <cstdint>

namespace cinedng {

struct PatchImageBuffer {
    int32_t width;
    int32_t height;
    int32_t numChannels;
    int32_t bitsPerChannel;
    int32_t bayerPattern;
    int32_t bufferType;
    void* imageBuffer;
};

// A malloc-allocated record with all fields zero and no sample buffer.
PatchImageBuffer* allocPatchImageBuffer();

// Frees the sample buffer and then the record itself (both from malloc). Null is ignored.
void freePatchImageBuffer(PatchImageBuffer* image);

// A zero-filled buffer of `count` floats from the system allocator (release it with free()). Large
// buffers are advised to the kernel for huge pages, which makes first touches far cheaper. Null
// when the allocation fails.
float* allocPatchSamples(size_t count);

// Number of samples width * height * numChannels, 0 when any of them is not positive.
size_t patchImageSampleCount(const PatchImageBuffer& image);

}  // namespace cinedng
