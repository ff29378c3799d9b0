#include "cinedng/cd_openEXRformatter.h"

#include <bit>
#include <cstring>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

// Half bits of one float, written without branches so that the row loop vectorises. Every
// candidate result is computed and the right one selected:
//   magnitude bits above 0x477FF000 (beyond 65520): 0x7BFF if finite (clamped on purpose), 0x7C00
//     for infinity, 0x7D00 for NaN;
//   at least 0x38800000 (2^-14): ((bits + 0x20) >> 13) - 0x1C000, i.e. the mantissa truncated;
//   zero: 0;
//   otherwise (below the smallest normal half): the float with bits + 0x20, times 2^24, truncated.
// Negative values are the conversion of the magnitude with the sign bit 0x8000 added.
inline uint16_t halfBits(float v) {
    const uint32_t u = std::bit_cast<uint32_t>(v);
    const uint32_t sign = (u >> 16) & 0x8000u;
    const uint32_t a = u & 0x7FFFFFFFu;

    // All-ones masks pick one candidate per case; the cases are disjoint.
    const uint32_t isBig = 0u - static_cast<uint32_t>(a > 0x477FF000u);
    const uint32_t isInf = 0u - static_cast<uint32_t>(a == 0x7F800000u);
    const uint32_t isNaN = 0u - static_cast<uint32_t>(a > 0x7F800000u);
    const uint32_t isNormal = 0u - static_cast<uint32_t>(a >= 0x38800000u && a <= 0x477FF000u);
    const uint32_t isSmall = 0u - static_cast<uint32_t>(a < 0x38800000u && a != 0u);

    const uint32_t big = (0x7BFFu & ~isInf & ~isNaN) | (0x7C00u & isInf) | (0x7D00u & isNaN);
    const uint32_t normal = ((a + 0x20u) >> 13) - 0x1C000u;
    // Lanes that are not small get a harmless normal operand, so zeros never cost a denormal
    // multiply; the result of those lanes is masked away.
    const uint32_t smallBits = ((a & isSmall) | (0x38000000u & ~isSmall)) + 0x20u;
    const uint32_t sub = static_cast<uint32_t>(static_cast<int32_t>(std::bit_cast<float>(smallBits) * 16777216.0f));

    const uint32_t h = (big & isBig) | (normal & isNormal) | (sub & isSmall);
    return static_cast<uint16_t>((h | sign) & 0xFFFFu);
}

// The file stores halves little-endian; the row loop copies them from memory as they are.
inline uint16_t toFileOrder(uint16_t h) {
    if constexpr (std::endian::native == std::endian::big) return static_cast<uint16_t>((h >> 8) | (h << 8));
    return h;
}

}  // namespace

cd_openEXRformatter::cd_openEXRformatter() = default;

uint16_t cd_openEXRformatter::floatToHalf(float v) { return halfBits(v); }

void cd_openEXRformatter::convertRow(const float* __restrict rgb, const float* __restrict m, unsigned int n,
                                     unsigned char* __restrict b, unsigned char* __restrict g,
                                     unsigned char* __restrict r) {
    const float m0 = m[0], m1 = m[1], m2 = m[2];
    const float m3 = m[3], m4 = m[4], m5 = m[5];
    const float m6 = m[6], m7 = m[7], m8 = m[8];
    const std::size_t count = n;
    for (std::size_t x = 0; x < count; ++x) {
        const float ri = rgb[3 * x];
        const float gi = rgb[3 * x + 1];
        const float bi = rgb[3 * x + 2];
        const uint16_t ro = toFileOrder(halfBits(m0 * ri + m1 * gi + m2 * bi));
        const uint16_t go = toFileOrder(halfBits(m3 * ri + m4 * gi + m5 * bi));
        const uint16_t bo = toFileOrder(halfBits(m6 * ri + m7 * gi + m8 * bi));
        std::memcpy(b + 2 * x, &bo, 2);
        std::memcpy(g + 2 * x, &go, 2);
        std::memcpy(r + 2 * x, &ro, 2);
    }
}

void cd_openEXRformatter::getImageDimensions() {
    const box2i& w = headerInfo.dataWindow;
    const int64_t h = static_cast<int64_t>(w.yMax) - w.yMin + 1;
    const int64_t wd = static_cast<int64_t>(w.xMax) - w.xMin + 1;
    if (h <= 0 || wd <= 0 || h > 0xFFFFFFFF || wd > 0xFFFFFFFF) {
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
