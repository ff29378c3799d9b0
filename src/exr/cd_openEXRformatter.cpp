#include "cinedng/cd_openEXRformatter.h"

#include <bit>
#include <cstring>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

// Selects x where c holds, else y, as bit operations: keeps the loops free of branches (a plain
// conditional around the float conversion would not be if-converted and would stop vectorisation).
inline int32_t select(bool c, int32_t x, int32_t y) {
    const int32_t m = -static_cast<int32_t>(c);
    return (x & m) | (y & ~m);
}

// Half bits of one float. With a the magnitude bits (sign cleared):
//   a >= 0x7F800000: 0x7C00 for infinity, 0x7D00 for NaN;
//   a >= 0x38800000 (2^-14 and up): ((a + 0x20) >> 13) - 0x1C000, the mantissa in effect truncated,
//     clamped to 0x7BFF (65504): finite values beyond the half range are not made infinite;
//   below: the float with bits a + 0x20, times 2^24, truncated to an integer (0 for a = 0).
// A negative value gives the conversion of its magnitude plus 0x8000.
// Every candidate is computed for every value. The small-value operand is clamped below to the
// smallest normal float: all operands that low give 0 anyway, and zeros then never cost a
// denormal multiply.
inline uint16_t halfBits(float v) {
    const int32_t u = std::bit_cast<int32_t>(v);
    const int32_t a = u & 0x7FFFFFFF;
    const int32_t sign = (u >> 16) & 0x8000;

    int32_t normal = static_cast<int32_t>((static_cast<uint32_t>(a) + 0x20u) >> 13) - 0x1C000;
    normal = normal < 0x7BFF ? normal : 0x7BFF;

    int32_t smallBits = (a < 0x38800000 ? a : 0x38800000) + 0x20;
    smallBits = smallBits > 0x00800000 ? smallBits : 0x00800000;
    const int32_t sub = static_cast<int32_t>(std::bit_cast<float>(smallBits) * 16777216.0f);

    int32_t h = select(a < 0x38800000, sub, normal);
    h = select(a >= 0x7F800000, a > 0x7F800000 ? 0x7D00 : 0x7C00, h);
    return static_cast<uint16_t>(h | sign);
}

// The file stores halves little-endian.
inline uint16_t toFileOrder(uint16_t h) {
    if constexpr (std::endian::native == std::endian::big) return static_cast<uint16_t>((h >> 8) | (h << 8));
    return h;
}

constexpr std::size_t kBlock = 128;

// One block of at most kBlock pixels. The matrix pass deinterleaves into three float planes, the
// half passes then run over contiguous data; both vectorise. Built for AVX-512, AVX2 and the
// baseline instruction set, chosen at load time. None of them uses FMA: the products and sums are
// rounded exactly as written, so every build gives the same bits.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("avx512f", "avx2", "default")))
#endif
void convertBlock(const float* __restrict rgb, const float* __restrict m, std::size_t n,
                  unsigned char* __restrict b, unsigned char* __restrict g, unsigned char* __restrict r) {
    const float m0 = m[0], m1 = m[1], m2 = m[2];
    const float m3 = m[3], m4 = m[4], m5 = m[5];
    const float m6 = m[6], m7 = m[7], m8 = m[8];
    float R[kBlock], G[kBlock], B[kBlock];
    for (std::size_t x = 0; x < n; ++x) {
        const float ri = rgb[3 * x];
        const float gi = rgb[3 * x + 1];
        const float bi = rgb[3 * x + 2];
        R[x] = m0 * ri + m1 * gi + m2 * bi;
        G[x] = m3 * ri + m4 * gi + m5 * bi;
        B[x] = m6 * ri + m7 * gi + m8 * bi;
    }
    // The planes may sit at any address: each half is stored with an unaligned 2-byte copy, which
    // the compiler merges into vector stores.
    for (std::size_t x = 0; x < n; ++x) {
        const uint16_t h = toFileOrder(halfBits(B[x]));
        std::memcpy(b + 2 * x, &h, 2);
    }
    for (std::size_t x = 0; x < n; ++x) {
        const uint16_t h = toFileOrder(halfBits(G[x]));
        std::memcpy(g + 2 * x, &h, 2);
    }
    for (std::size_t x = 0; x < n; ++x) {
        const uint16_t h = toFileOrder(halfBits(R[x]));
        std::memcpy(r + 2 * x, &h, 2);
    }
}

}  // namespace

cd_openEXRformatter::cd_openEXRformatter() = default;

uint16_t cd_openEXRformatter::floatToHalf(float v) { return halfBits(v); }

void cd_openEXRformatter::convertRow(const float* rgb, const float* m, unsigned int n, unsigned char* b,
                                     unsigned char* g, unsigned char* r) {
    for (std::size_t s = 0; s < n; s += kBlock) {
        const std::size_t k = n - s < kBlock ? n - s : kBlock;
        convertBlock(rgb + 3 * s, m, k, b + 2 * s, g + 2 * s, r + 2 * s);
    }
}

void cd_openEXRformatter::getImageDimensions() {
    const box2i& w = headerInfo.dataWindow;
    const int64_t h = static_cast<int64_t>(w.yMax) - w.yMin + 1;
    const int64_t wd = static_cast<int64_t>(w.xMax) - w.xMin + 1;
    if (h < 0 || wd < 0 || h > 0xFFFFFFFF || wd > 0xFFFFFFFF) {
        throw cd_exception("cd_openEXRformatter - invalid data window");
    }
    rows = static_cast<uint32_t>(h);
    cols = static_cast<uint32_t>(wd);
    numberOfLineOffsets = rows;
    firstY = w.yMin;
}

void cd_openEXRformatter::getSizes() {
    const openEXRHeaderInfo& hi = headerInfo;
    uint64_t bpp = 0;
    for (std::size_t i = 0; i < hi.channels.size(); ++i) {
        CD_ASSERT(hi.channels[i].pixelType <= 2);
        if (hi.channels[i].pixelType < 0) throw cd_exception("cd_openEXRformatter - invalid channel pixel type");
        bpp += hi.channels[i].pixelType == 1 ? 2 : 4;
    }
    const uint64_t dataSize = static_cast<uint64_t>(cols) * bpp;
    if (dataSize + 8 > 0xFFFFFFFFu) throw cd_exception("cd_openEXRformatter - scan line too large");
    bytesPerPixel = static_cast<uint32_t>(bpp);
    scanLineDataSize = static_cast<uint32_t>(dataSize);
    scanLineBlockSize = scanLineDataSize + 8;
}

void cd_openEXRformatter::createLineOffsetTableAndOffsets() {
    lineOffsetTableSize = numberOfLineOffsets * 8u;
    offsetToScanLineArea = offsetToLineOffsetTable + static_cast<uint64_t>(numberOfLineOffsets) * 8u;
    lineOffsets.resize(numberOfLineOffsets);
    for (uint32_t i = 0; i < numberOfLineOffsets; ++i) {
        lineOffsets[i] = offsetToScanLineArea + static_cast<uint64_t>(i) * scanLineBlockSize;
    }
    fileSize = offsetToScanLineArea + static_cast<uint64_t>(numberOfLineOffsets) * scanLineBlockSize;
}

uint64_t cd_openEXRformatter::writeAllButScanlines(openEXRHeaderInfo& hi, std::valarray<float>& colorMatrix_,
                                                   char* pOutputBuffer_, uint64_t outputBufferSize) {
    headerInfo = hi;
    colorMatrix.resize(colorMatrix_.size());
    colorMatrix = colorMatrix_;
    pOutputBuffer = pOutputBuffer_;
    outputBufferSize_ = outputBufferSize;

    getImageDimensions();
    getSizes();

    writeMagicNumberAndVersion();
    writeHeader(headerInfo);
    offsetToLineOffsetTable = StreamPosition();
    CD_ASSERT(offsetToLineOffsetTable > 100);
    CD_ASSERT(offsetToLineOffsetTable < 2000);

    createLineOffsetTableAndOffsets();
    writeLineOffsetTable(lineOffsets);
    CD_ASSERT(fileSize <= outputBufferSize);
    CD_ASSERT(offsetToScanLineArea > 0);

    if (pOutputBuffer == nullptr) throw cd_exception("cd_openEXRformatter - no output buffer");
    copyToBuffer(pOutputBuffer, offsetToScanLineArea);
    // The next frame's header overwrites this one from the start.
    SetStreamPosition(0);
    return fileSize;
}

void cd_openEXRformatter::writeScanLine(const float* rgb, unsigned int row) {
    CD_ASSERT(colorMatrix.size() > 0);
    if (colorMatrix.size() < 9) throw cd_exception("cd_openEXRformatter - colour matrix needs 9 entries");
    if (pOutputBuffer == nullptr || row >= numberOfLineOffsets || row >= lineOffsets.size()) {
        throw cd_exception("cd_openEXRformatter - scan line outside the image");
    }
    // Three half planes must fit the block (a header with other channels would overrun it).
    if (static_cast<uint64_t>(cols) * 6 > scanLineDataSize ||
        lineOffsets[row] + scanLineBlockSize > outputBufferSize_) {
        throw cd_exception("cd_openEXRformatter - scan line does not fit the block");
    }

    unsigned char* block = reinterpret_cast<unsigned char*>(pOutputBuffer) + lineOffsets[row];
    const int32_t y = static_cast<int32_t>(row);
    const int32_t size = static_cast<int32_t>(scanLineDataSize);
    const unsigned char yBytes[4] = {static_cast<unsigned char>(y), static_cast<unsigned char>(y >> 8),
                                     static_cast<unsigned char>(y >> 16), static_cast<unsigned char>(y >> 24)};
    const unsigned char sBytes[4] = {static_cast<unsigned char>(size), static_cast<unsigned char>(size >> 8),
                                     static_cast<unsigned char>(size >> 16), static_cast<unsigned char>(size >> 24)};
    std::memcpy(block, yBytes, 4);
    std::memcpy(block + 4, sBytes, 4);

    unsigned char* data = block + 8;
    convertRow(rgb, &colorMatrix[0], cols, data, data + 2 * static_cast<std::size_t>(cols),
               data + 4 * static_cast<std::size_t>(cols));
}

}  // namespace cinedng
