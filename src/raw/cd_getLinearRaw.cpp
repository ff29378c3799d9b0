#include "cinedng/cd_getLinearRaw.h"

#include <algorithm>
#include <cstring>

#include "cd_simdRows.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

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

// What an unpacked sample becomes: the sample itself (for the per-sample path), or its tabulated
// output value (for widths up to 16 bits without per-row or per-column terms).
struct KeepSample {
    uint32_t operator()(uint32_t s) const { return s; }
};
struct LookUp {
    const float* __restrict table;
    float operator()(uint32_t s) const { return table[s]; }
};
// (sample - black) x factor: the same expression as the per-sample path without table or pattern.
struct Normalise {
    double black;
    double factor;
    float operator()(uint32_t s) const {
        return static_cast<float>((static_cast<double>(static_cast<int32_t>(s)) - black) * factor);
    }
};

// Normalise, with the vector kernels doing the bulk of the row. Used when the black is a whole
// number in [0, 2^24): then (s - black) is exact in single precision and the product with the
// (single-precision) factor is exact in double precision, so one rounding in either gives the same
// float as the per-sample expression.
struct NormaliseVector : Normalise {
    float blackF;
    float factorF;
    int64_t vector(const unsigned char* p, int64_t avail, float* out, int64_t n, int bits, bool bigEndian16) const {
        return simdrows::normalise(p, avail, out, n, bits, bigEndian16, blackF, factorF);
    }
};

template <typename Map>
concept VectorMap = requires(const Map& m, const unsigned char* p, float* o) { m.vector(p, int64_t{}, o, int64_t{}, 0, false); };

// Four samples of B bits (B = 10, 12 or 14: 5, 6 or 7 bytes) from one big-endian 64-bit word per
// group, for as many groups as may read 8 bytes without passing `avail` bytes from p. Returns the
// number of groups decoded.
template <int B, typename T, typename Map>
int64_t unpackWords(const unsigned char* __restrict p, T* __restrict o, int64_t groups, int64_t avail, Map map) {
    constexpr int64_t kGroupBytes = B / 2;
    constexpr uint64_t kMask = (uint64_t(1) << B) - 1;
    int64_t g = 0;
    for (; g < groups && g * kGroupBytes + 8 <= avail; ++g) {
        uint64_t w;
        std::memcpy(&w, p + g * kGroupBytes, 8);
#if !(defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__)
        w = __builtin_bswap64(w);
#endif
        o[4 * g] = map(static_cast<uint32_t>(w >> (64 - B)));
        o[4 * g + 1] = map(static_cast<uint32_t>((w >> (64 - 2 * B)) & kMask));
        o[4 * g + 2] = map(static_cast<uint32_t>((w >> (64 - 3 * B)) & kMask));
        o[4 * g + 3] = map(static_cast<uint32_t>((w >> (64 - 4 * B)) & kMask));
    }
    return g;
}

// Unpacks n samples of a row into out, mapped through `map`. 8-bit samples are bytes, 16-bit
// samples words in the frame's byte order; every other width is an MSB-first bit stream that starts
// `skip` bits into the first byte. Widths 10, 12 and 14 are decoded a byte-aligned group at a time
// once the stream reaches a byte boundary; each group decoder gives exactly the values of the bit
// reader for the same bytes.
template <typename T, typename Map>
void unpackSamples(const unsigned char* __restrict src, int64_t avail, T* __restrict out, int64_t n, int bits,
                   uint32_t mask, int leftBitSkip, bool bigEndian16, Map map) {
    if (bits == 8) {
        for (int64_t i = 0; i < n; ++i) out[i] = map(src[i]);
        return;
    }
    if (bits == 16) {
        int64_t i = 0;
        if constexpr (VectorMap<Map>) i = map.vector(src, avail, out, n, 16, bigEndian16);
        if (bigEndian16) {
            for (; i < n; ++i) out[i] = map((uint32_t(src[2 * i]) << 8) | src[2 * i + 1]);
        } else {
            for (; i < n; ++i) out[i] = map(uint32_t(src[2 * i]) | (uint32_t(src[2 * i + 1]) << 8));
        }
        return;
    }

    BitReader reader{src, 0u, leftBitSkip};
    int64_t i = 0;
    if (bits == 10 || bits == 12 || bits == 14) {
        // Single samples until the next one starts on a byte boundary (at most three).
        while (i < n && reader.count != 0) out[i++] = map(reader.next(bits, mask));
        if constexpr (VectorMap<Map>) {
            const int64_t done = map.vector(reader.p, avail - (reader.p - src), out + i, n - i, bits, false);
            reader.p += done / 4 * (bits / 2);
            i += done;
        }
        // Whole 64-bit words first, then byte-wise groups near the end of the readable bytes.
        {
            const int64_t left = avail - (reader.p - src);
            int64_t done = 0;
            if (bits == 10) done = unpackWords<10>(reader.p, out + i, (n - i) / 4, left, map);
            if (bits == 12) done = unpackWords<12>(reader.p, out + i, (n - i) / 4, left, map);
            if (bits == 14) done = unpackWords<14>(reader.p, out + i, (n - i) / 4, left, map);
            reader.p += done * (bits / 2);
            i += done * 4;
        }
        const unsigned char* __restrict p = reader.p;
        T* __restrict o = out + i;
        int64_t groups = 0;
        if (bits == 10) {
            groups = (n - i) / 4;
            for (int64_t g = 0; g < groups; ++g) {
                const uint32_t b0 = p[5 * g], b1 = p[5 * g + 1], b2 = p[5 * g + 2], b3 = p[5 * g + 3], b4 = p[5 * g + 4];
                o[4 * g] = map((b0 << 2) | (b1 >> 6));
                o[4 * g + 1] = map(((b1 & 0x3Fu) << 4) | (b2 >> 4));
                o[4 * g + 2] = map(((b2 & 0x0Fu) << 6) | (b3 >> 2));
                o[4 * g + 3] = map(((b3 & 0x03u) << 8) | b4);
            }
            reader.p += groups * 5;
            i += groups * 4;
        } else if (bits == 12) {
            groups = (n - i) / 2;
            for (int64_t g = 0; g < groups; ++g) {
                const uint32_t b0 = p[3 * g], b1 = p[3 * g + 1], b2 = p[3 * g + 2];
                o[2 * g] = map((b0 << 4) | (b1 >> 4));
                o[2 * g + 1] = map(((b1 & 0x0Fu) << 8) | b2);
            }
            reader.p += groups * 3;
            i += groups * 2;
        } else {
            groups = (n - i) / 4;
            for (int64_t g = 0; g < groups; ++g) {
                const uint32_t b0 = p[7 * g], b1 = p[7 * g + 1], b2 = p[7 * g + 2], b3 = p[7 * g + 3];
                const uint32_t b4 = p[7 * g + 4], b5 = p[7 * g + 5], b6 = p[7 * g + 6];
                o[4 * g] = map((b0 << 6) | (b1 >> 2));
                o[4 * g + 1] = map(((b1 & 0x03u) << 12) | (b2 << 4) | (b3 >> 4));
                o[4 * g + 2] = map(((b3 & 0x0Fu) << 10) | (b4 << 2) | (b5 >> 6));
                o[4 * g + 3] = map(((b5 & 0x3Fu) << 8) | b6);
            }
            reader.p += groups * 7;
            i += groups * 4;
        }
        reader.acc = 0;
        reader.count = 0;
    }
    for (; i < n; ++i) out[i] = map(reader.next(bits, mask));
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

    // 2^bits - 1 with the shift taken modulo 32. At exactly 32 bits that would be 0 and stop such
    // samples at the mask check; they get the full mask so that they reach the repacking refusal.
    sampleMask = bits == 32 ? 0xFFFFFFFFu : (1u << (bits % 32)) - 1u;
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
    // A table of results pays off up to 16 bits; at 16 bits without a linearisation table the
    // arithmetic is as fast as the lookup in a 256 KiB table, and is used instead.
    useLookup_ = bits <= 16 && !hasBlackPattern && !hasDeltaH && !hasDeltaV && !(bits == 16 && !hasTable);
    buildLookup();
    // The vector kernels cover the plain per-row-black case of the common widths.
    vectorRows_ = (bits == 10 || bits == 12 || bits == 14 || bits == 16) && !hasTable && !hasBlackPattern &&
                  !hasDeltaH && simdrows::available() &&
                  static_cast<double>(static_cast<float>(normalizeRawFactor)) == normalizeRawFactor;

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
    unpackSamples(src, rowBytesNeeded_, samples_.data(), cols, bits, sampleMask, leftBitSkip, byteOrder == 0x4D4D, KeepSample{});
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

    float* out = pRawImagePixels + static_cast<size_t>(row) * static_cast<size_t>(cols);
    const int64_t n = cols;
    const double black = rowBlack;
    const double factor = normalizeRawFactor;

    if (vectorRows_ && black >= 0.0 && black < 16777216.0 && black == static_cast<double>(static_cast<int64_t>(black))) {
        unpackSamples(src, rowBytesNeeded_, out, n, bits, sampleMask, leftBitSkip, byteOrder == 0x4D4D,
                      NormaliseVector{{black, factor}, static_cast<float>(black), static_cast<float>(factor)});
    } else if (useLookup_) {
        // Unpacked straight into the output through the table of results.
        unpackSamples(src, rowBytesNeeded_, out, n, bits, sampleMask, leftBitSkip, byteOrder == 0x4D4D, LookUp{lookup_.data()});
    } else if (!hasTable && !hasBlackPattern && !hasDeltaH) {
        // Only a per-row black: unpacked and normalised in one pass.
        unpackSamples(src, rowBytesNeeded_, out, n, bits, sampleMask, leftBitSkip, byteOrder == 0x4D4D,
                      Normalise{black, factor});
    } else {
        unpackRow(src);
        const uint32_t* s = samples_.data();
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
