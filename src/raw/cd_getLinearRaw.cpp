#include "cinedng/cd_getLinearRaw.h"

#include <algorithm>
#include <cstring>

#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

// Machine byte order of 16-bit values: "II" on little-endian processors, "MM" otherwise.
constexpr uint16_t nativeByteOrder() {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return 0x4D4D;
#else
    return 0x4949;
#endif
}

// MSB-first bit reader: a 32-bit accumulator that grows a byte at a time while it holds fewer bits
// than one sample. Bits above the current sample are shifted out of the top and never matter.
struct BitReader {
    const unsigned char* p;
    uint32_t acc;
    int count;

    inline uint32_t next(int bits, uint32_t mask) {
        while (count < bits) {
            acc = (acc << 8) + *p++;
            count += 8;
        }
        count -= bits;
        return (acc >> count) & mask;
    }
};

// Fixed-width group decoders, used once the reader is on a byte boundary. Each gives exactly the
// values the bit reader would give for the same bytes.
inline void unpack10(const unsigned char* p, uint32_t* out, int64_t groups) {
    for (int64_t g = 0; g < groups; ++g) {
        const uint32_t b0 = p[0], b1 = p[1], b2 = p[2], b3 = p[3], b4 = p[4];
        out[0] = (b0 << 2) | (b1 >> 6);
        out[1] = ((b1 & 0x3Fu) << 4) | (b2 >> 4);
        out[2] = ((b2 & 0x0Fu) << 6) | (b3 >> 2);
        out[3] = ((b3 & 0x03u) << 8) | b4;
        p += 5;
        out += 4;
    }
}

inline void unpack12(const unsigned char* p, uint32_t* out, int64_t groups) {
    for (int64_t g = 0; g < groups; ++g) {
        const uint32_t b0 = p[0], b1 = p[1], b2 = p[2];
        out[0] = (b0 << 4) | (b1 >> 4);
        out[1] = ((b1 & 0x0Fu) << 8) | b2;
        p += 3;
        out += 2;
    }
}

inline void unpack14(const unsigned char* p, uint32_t* out, int64_t groups) {
    for (int64_t g = 0; g < groups; ++g) {
        const uint32_t b0 = p[0], b1 = p[1], b2 = p[2], b3 = p[3], b4 = p[4], b5 = p[5], b6 = p[6];
        out[0] = (b0 << 6) | (b1 >> 2);
        out[1] = ((b1 & 0x03u) << 12) | (b2 << 4) | (b3 >> 4);
        out[2] = ((b3 & 0x0Fu) << 10) | (b4 << 2) | (b5 >> 6);
        out[3] = ((b5 & 0x3Fu) << 8) | b6;
        p += 7;
        out += 4;
    }
}

}  // namespace

int cd_getLinearRaw::configure(linearParams& params) {
    cd_timing timer;

    bits = params.bitsPerSample;
    top = params.firstRow;
    left = params.firstCol;
    rows = params.inputRows;
    cols = params.inputCols;
    pRawImagePixels = params.pRawImagePixels;
    linearizationTable = params.linearizationTable;
    blackLevelRepeatDim = params.blackLevelRepeatDim;
    blackLevel = params.blackLevel;
    blackLevelDeltaH = params.blackLevelDeltaH;
    blackLevelDeltaV = params.blackLevelDeltaV;
    whiteLevel = params.whiteLevel;
    byteOrder = params.byteOrder;

    if (bits < 1) throw cd_exception("cd_getLinearRaw - bits per sample must be > 0");
    if (rows < 1) throw cd_exception("cd_getLinearRaw - input rows invalid");
    if (cols < 1) throw cd_exception("cd_getLinearRaw - input cols invalid");
    if (blackLevel.empty()) throw cd_exception("cd_getLinearRaw - no black levels present");
    if (blackLevelRepeatDim.size() != 2)
        throw cd_exception("cd_getLinearRaw - black level repeat dimension must be 2");

    // 2^bits - 1; a width of 32 or more gets the full 32-bit mask, so that such widths reach the
    // repacking refusal of getRow.
    sampleMask = bits >= 32 ? 0xFFFFFFFFu : (1u << bits) - 1u;
    bitsPerByte = 8;
    const int64_t leftBits = static_cast<int64_t>(left) * bits;
    leftByteOffset = leftBits / 8;
    leftBitSkip = static_cast<int>(0 - (leftBits % 8));

    hasTable = !linearizationTable.empty();
    tableSize = static_cast<uint32_t>(linearizationTable.size());
    table = hasTable ? linearizationTable.data() : nullptr;
    tableMax = hasTable ? linearizationTable.back() : 0;

    hasBlackPattern = blackLevel.size() > 1;
    blackPattern = blackLevel.data();
    patternRows = blackLevelRepeatDim[0];
    patternCols = blackLevelRepeatDim[1];
    hasDeltaH = blackLevelDeltaH.size() == static_cast<size_t>(cols);
    deltaH = hasDeltaH ? blackLevelDeltaH.data() : nullptr;
    hasDeltaV = blackLevelDeltaV.size() == static_cast<size_t>(rows);
    deltaV = hasDeltaV ? blackLevelDeltaV.data() : nullptr;
    baseBlack = blackLevel.size() == 1 ? static_cast<double>(blackLevel[0]) : 0.0;
    rowBlack = baseBlack;

    // The smallest black (not the largest) defines the range, so the darkest photosites map to 0.
    if (whiteLevel.empty()) throw cd_exception("cd_getLinearRaw - no white level present");
    float minBlack = *std::min_element(blackLevel.begin(), blackLevel.end());
    if (hasDeltaH) minBlack += *std::min_element(blackLevelDeltaH.begin(), blackLevelDeltaH.end());
    if (hasDeltaV) minBlack += *std::min_element(blackLevelDeltaV.begin(), blackLevelDeltaV.end());
    const float outputRange = static_cast<float>(whiteLevel[0]) - minBlack;
    if (outputRange <= 0.0f) throw cd_exception("cd_getLinearRaw - output range must be > 0");
    normalizeRawFactor = static_cast<double>(1.0f / outputRange);

    // Working storage, sized once here so that getRow never allocates.
    if (bits == 8 || bits == 16) {
        rowBytesNeeded_ = static_cast<int64_t>(cols) * (bits / 8);
    } else {
        rowBytesNeeded_ = (static_cast<int64_t>(-leftBitSkip) + static_cast<int64_t>(cols) * bits + 7) / 8;
    }
    samples_.assign(static_cast<size_t>(cols), 0);
    rowCopy_.assign(static_cast<size_t>(rowBytesNeeded_) + 8, 0);
    patternRow_.assign(hasBlackPattern ? static_cast<size_t>(cols) : 0, 0.0f);
    useLookup_ = bits <= 16 && !hasBlackPattern && !hasDeltaH && !hasDeltaV;
    buildLookup();

    stats_.timeConfigure += timer.time();
    return 0;
}

// For widths up to 16 bits without per-row or per-column terms every sample value has one result:
// tabulate it once with the very expression of the per-sample path.
void cd_getLinearRaw::buildLookup() {
    lookup_.clear();
    if (!useLookup_) return;
    const uint32_t n = 1u << bits;
    lookup_.resize(n);
    for (uint32_t s = 0; s < n; ++s) {
        uint32_t v = s;
        if (hasTable) v = v < tableSize ? table[v] : tableMax;
        lookup_[s] = static_cast<float>((static_cast<double>(v) - rowBlack) * normalizeRawFactor);
    }
}

void cd_getLinearRaw::unpackRow(const unsigned char* src) {
    uint32_t* out = samples_.data();
    const int64_t n = cols;
    if (bits == 8) {
        for (int64_t i = 0; i < n; ++i) out[i] = src[i];
        return;
    }
    if (bits == 16) {
        // 16-bit samples are stored in the frame's byte order.
        if (byteOrder == 0x4D4D) {
            for (int64_t i = 0; i < n; ++i) out[i] = (uint32_t(src[2 * i]) << 8) | src[2 * i + 1];
        } else {
            for (int64_t i = 0; i < n; ++i) out[i] = uint32_t(src[2 * i]) | (uint32_t(src[2 * i + 1]) << 8);
        }
        return;
    }

    BitReader reader{src, 0u, leftBitSkip};
    int64_t i = 0;
    int groupBytes = 0, groupSamples = 0;
    if (bits == 10) groupBytes = 5, groupSamples = 4;
    if (bits == 12) groupBytes = 3, groupSamples = 2;
    if (bits == 14) groupBytes = 7, groupSamples = 4;
    if (groupSamples) {
        // Read single samples until the next one starts on a byte boundary, then whole groups.
        while (i < n && reader.count != 0) out[i++] = reader.next(bits, sampleMask);
        const int64_t groups = (n - i) / groupSamples;
        if (bits == 10) unpack10(reader.p, out + i, groups);
        if (bits == 12) unpack12(reader.p, out + i, groups);
        if (bits == 14) unpack14(reader.p, out + i, groups);
        reader.p += groups * groupBytes;
        i += groups * groupSamples;
        reader.acc = 0;
        reader.count = 0;
    }
    for (; i < n; ++i) out[i] = reader.next(bits, sampleMask);
}

int cd_getLinearRaw::getRow(cd_ScanLineAccess& access, int row) {
    cd_timing timer;

    if (bits < 1) throw cd_exception("cd_getLinearRaw - bitsPerSample invalid");
    if (rows < 1) throw cd_exception("cd_getLinearRaw - input rows invalid");
    if (cols < 1) throw cd_exception("cd_getLinearRaw - input cols invalid");
    if (pRawImagePixels == nullptr) throw cd_exception("cd_getLinearRaw - raw iamge pixel pointer is invalid");
    if (sampleMask == 0) throw cd_exception("cd_getLinearRaw - sampleMask must be > 0");
    if (normalizeRawFactor <= 0.0) throw cd_exception("cd_getLinearRaw - normalize raw factor may not be zero");
    // row == rows passes here on purpose.
    if (row < 0 || row > rows) throw cd_exception("cd_getLinearRaw - input row index is invalid");

    const unsigned char* rowStart = access.getRow(static_cast<unsigned int>(static_cast<int64_t>(row) + top));
    if (bits + bitsPerByte - 1 > 32) throw cd_exception("cd_getLinearRaw - repacking buffer invalid");
    // The index check above lets row == rows through; that row has no place in the output image.
    if (row == rows) throw cd_exception("cd_getLinearRaw - output row lies outside the raw image");
    if (leftByteOffset < 0) throw cd_exception("cd_getLinearRaw - row data lies outside the frame buffer");

    // Locate the active part of the row; any part of it beyond the end of the frame reads as zero.
    const unsigned char* src = nullptr;
    if (access.hasFrameBounds()) {
        const uintptr_t begin = reinterpret_cast<uintptr_t>(access.frameBegin());
        const uintptr_t at = reinterpret_cast<uintptr_t>(rowStart);
        const uint64_t size = access.frameSize();
        if (at < begin) throw cd_exception("cd_getLinearRaw - row data lies outside the frame buffer");
        const uint64_t offset = (at - begin) + static_cast<uint64_t>(leftByteOffset);
        const uint64_t needed = static_cast<uint64_t>(rowBytesNeeded_);
        if (offset <= size && size - offset >= needed) {
            src = access.frameBegin() + offset;
        } else {
            std::fill(rowCopy_.begin(), rowCopy_.end(), static_cast<unsigned char>(0));
            if (offset < size) std::memcpy(rowCopy_.data(), access.frameBegin() + offset, static_cast<size_t>(size - offset));
            src = rowCopy_.data();
        }
    } else {
        src = rowStart + leftByteOffset;
    }

    if (hasDeltaV) rowBlack = static_cast<double>(deltaV[row]) + baseBlack;
    stats_.timeOpen += timer.time();

    unpackRow(src);
    const uint32_t* s = samples_.data();
    float* out = pRawImagePixels + static_cast<size_t>(row) * static_cast<size_t>(cols);
    const int64_t n = cols;
    const double black = rowBlack;
    const double factor = normalizeRawFactor;

    if (useLookup_) {
        const float* lut = lookup_.data();
        for (int64_t i = 0; i < n; ++i) out[i] = lut[s[i]];
    } else {
        if (hasTable) {
            uint32_t* t = samples_.data();
            for (int64_t i = 0; i < n; ++i) t[i] = t[i] < tableSize ? table[t[i]] : tableMax;
        }
        if (hasBlackPattern) {
            if (patternRows == 0 || patternCols == 0 ||
                static_cast<uint64_t>(patternRows) * patternCols > blackLevel.size())
                throw cd_exception("cd_getLinearRaw - black level pattern is smaller than its repeat dimensions");
            const float* pr = blackPattern + (static_cast<uint32_t>(row) % patternRows) * patternCols;
            float* expanded = patternRow_.data();
            for (int64_t i = 0; i < n; ++i) expanded[i] = pr[static_cast<uint32_t>(i) % patternCols];
        }
        const float* pat = patternRow_.data();
        const float* dh = deltaH;
        if (hasBlackPattern && hasDeltaH) {
            for (int64_t i = 0; i < n; ++i) {
                double v = static_cast<double>(static_cast<int32_t>(s[i])) - black;
                v -= pat[i];
                v -= dh[i];
                out[i] = static_cast<float>(v * factor);
            }
        } else if (hasBlackPattern) {
            for (int64_t i = 0; i < n; ++i) {
                double v = static_cast<double>(static_cast<int32_t>(s[i])) - black;
                v -= pat[i];
                out[i] = static_cast<float>(v * factor);
            }
        } else if (hasDeltaH) {
            for (int64_t i = 0; i < n; ++i) {
                double v = static_cast<double>(static_cast<int32_t>(s[i])) - black;
                v -= dh[i];
                out[i] = static_cast<float>(v * factor);
            }
        } else {
            for (int64_t i = 0; i < n; ++i) {
                const double v = static_cast<double>(static_cast<int32_t>(s[i])) - black;
                out[i] = static_cast<float>(v * factor);
            }
        }
    }

    stats_.timeDataProcessing += timer.time();
    stats_.bytesProcessed += static_cast<uint64_t>(cols) * 4;
    return 0;
}

}  // namespace cinedng
