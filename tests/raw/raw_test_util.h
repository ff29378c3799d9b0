#pragma once
// Helpers shared by the raw pipeline tests: an MSB-first bit packer, an independent reference of the
// unpacking and normalisation rules, and a scan-line table over hand-made rows.
#include <cstdint>
#include <vector>

#include "cinedng/cd_ScanLineAccess.h"

namespace rawtest {

// Packs samples MSB first into a byte stream of the given width (any width 1..32), starting
// `skipBits` bits into the first byte; the skipped bits and the padding of the last byte are `fill`.
inline std::vector<uint8_t> packMSB(const std::vector<uint32_t>& samples, int bits, int skipBits = 0, int fill = 0) {
    const uint64_t totalBits = static_cast<uint64_t>(skipBits) + samples.size() * static_cast<uint64_t>(bits);
    std::vector<uint8_t> out((totalBits + 7) / 8, fill ? 0xFF : 0x00);
    uint64_t pos = static_cast<uint64_t>(skipBits);
    for (uint32_t s : samples) {
        for (int b = bits - 1; b >= 0; --b, ++pos) {
            const uint8_t bit = (s >> b) & 1u;
            const uint64_t byte = pos / 8;
            const int shift = 7 - static_cast<int>(pos % 8);
            out[byte] = static_cast<uint8_t>((out[byte] & ~(1u << shift)) | (bit << shift));
        }
    }
    return out;
}

// Reads sample i of an MSB-first stream bit by bit (independent of the library's accumulator).
inline uint32_t readMSB(const uint8_t* p, uint64_t firstBit, int bits) {
    uint32_t v = 0;
    for (int b = 0; b < bits; ++b) {
        const uint64_t pos = firstBit + static_cast<uint64_t>(b);
        v = (v << 1) | ((p[pos / 8] >> (7 - pos % 8)) & 1u);
    }
    return v;
}

// A scan-line table whose rows are consecutive slices of one buffer.
struct RowsOverBuffer {
    std::vector<uint8_t> bytes;
    std::vector<unsigned char*> rows;
    cinedng::cd_ScanLineAccess access;

    RowsOverBuffer(const RowsOverBuffer&) = delete;
    RowsOverBuffer& operator=(const RowsOverBuffer&) = delete;
    RowsOverBuffer(std::vector<uint8_t> data, size_t rowBytes, size_t nRows, bool withBounds = true)
        : bytes(std::move(data)) {
        for (size_t r = 0; r < nRows; ++r) rows.push_back(bytes.data() + r * rowBytes);
        if (withBounds)
            access.configure(rows, bytes.data(), bytes.size());
        else
            access.configure(rows);
    }
};

}  // namespace rawtest

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_parseTiff.h"

namespace rawtest {

// Reads the frame's tags and derives the active-area and crop geometry the way the colour decoding
// does (active area clipped to the image; crop relative to the active area), without needing colour
// tags, so that frames without colour matrices can be converted too.
inline cinedng::cd_DNGTags tagsOf(const std::vector<uint8_t>& frame) {
    cinedng::cd_parseTiff tiff;
    tiff.configure(reinterpret_cast<const char*>(frame.data()), frame.size());
    cinedng::cd_DNGTags tags;
    tags.readAllTags(tiff, false);
    const auto& aa = tags.activeArea;
    tags.activeTop = static_cast<int32_t>(aa[0]);
    tags.activeLeft = static_cast<int32_t>(aa[1]);
    tags.inputRows = static_cast<int32_t>(std::min(aa[2], tags.imageHeight)) - tags.activeTop;
    tags.inputCols = static_cast<int32_t>(std::min(aa[3], tags.imageWidth)) - tags.activeLeft;
    tags.cropOriginRow = static_cast<int32_t>(std::lround(tags.defaultCropOrigin[1]));
    tags.cropOriginCol = static_cast<int32_t>(std::lround(tags.defaultCropOrigin[0]));
    tags.outputRows = static_cast<int32_t>(
        std::min<int64_t>(std::lround(tags.defaultCropSize[1]), tags.inputRows - tags.cropOriginRow));
    tags.outputCols = static_cast<int32_t>(
        std::min<int64_t>(std::lround(tags.defaultCropSize[0]), tags.inputCols - tags.cropOriginCol));
    return tags;
}

inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace rawtest
