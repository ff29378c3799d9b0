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
