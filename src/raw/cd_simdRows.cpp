#include "cd_simdRows.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define CINEDNG_HAVE_X86_KERNELS 1
#endif

namespace cinedng::simdrows {

#ifdef CINEDNG_HAVE_X86_KERNELS

bool available() { return __builtin_cpu_supports("avx2"); }

namespace {

// Groups of four samples take bits / 2 bytes. One 128-bit lane holds the 32-bit big-endian window
// that contains each of the four samples of a group; a per-sample right shift and the mask then
// leave the sample. Two groups (eight samples) go through one 256-bit register.
struct Layout {
    __m256i shuffle;
    __m256i shift;
    __m256i mask;
};

template <int B>
__attribute__((target("avx2"))) inline Layout layoutFor() {
    char idx[16];
    int shifts[4];
    for (int k = 0; k < 4; ++k) {
        const int bit = k * B;
        const int first = bit / 8;
        for (int j = 0; j < 4; ++j) idx[4 * k + j] = static_cast<char>(first + 3 - j);  // little-endian lane of 4 bytes
        shifts[k] = 32 - (bit % 8) - B;
    }
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(idx));
    return {_mm256_broadcastsi128_si256(s),
            _mm256_setr_epi32(shifts[0], shifts[1], shifts[2], shifts[3], shifts[0], shifts[1], shifts[2], shifts[3]),
            _mm256_set1_epi32((1 << B) - 1)};
}

template <int B>
__attribute__((target("avx2"))) int64_t packed(const unsigned char* p, int64_t avail, float* out, int64_t n,
                                              __m256 black, __m256 factor) {
    constexpr int64_t kGroupBytes = B / 2;
    const Layout l = layoutFor<B>();
    int64_t i = 0;
    // Eight samples read 16 bytes from p + kGroupBytes at most.
    for (; i + 8 <= n && (i / 4) * kGroupBytes + kGroupBytes + 16 <= avail; i += 8) {
        const unsigned char* g = p + (i / 4) * kGroupBytes;
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g + kGroupBytes));
        __m256i w = _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
        w = _mm256_shuffle_epi8(w, l.shuffle);
        w = _mm256_and_si256(_mm256_srlv_epi32(w, l.shift), l.mask);
        const __m256 x = _mm256_sub_ps(_mm256_cvtepi32_ps(w), black);
        _mm256_storeu_ps(out + i, _mm256_mul_ps(x, factor));
    }
    return i;
}

__attribute__((target("avx2"))) int64_t words16(const unsigned char* p, int64_t avail, float* out, int64_t n,
                                               bool bigEndian, __m256 black, __m256 factor) {
    const __m128i swap = _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    int64_t i = 0;
    for (; i + 8 <= n && 2 * i + 16 <= avail; i += 8) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2 * i));
        if (bigEndian) v = _mm_shuffle_epi8(v, swap);
        const __m256 x = _mm256_sub_ps(_mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(v)), black);
        _mm256_storeu_ps(out + i, _mm256_mul_ps(x, factor));
    }
    return i;
}

}  // namespace

__attribute__((target("avx2"))) int64_t normalise(const unsigned char* p, int64_t avail, float* out, int64_t n,
                                                 int bits, bool bigEndian16, float black, float factor) {
    const __m256 b = _mm256_set1_ps(black);
    const __m256 f = _mm256_set1_ps(factor);
    switch (bits) {
        case 10: return packed<10>(p, avail, out, n, b, f);
        case 12: return packed<12>(p, avail, out, n, b, f);
        case 14: return packed<14>(p, avail, out, n, b, f);
        case 16: return words16(p, avail, out, n, bigEndian16, b, f);
        default: return 0;
    }
}

#else

bool available() { return false; }
int64_t normalise(const unsigned char*, int64_t, float*, int64_t, int, bool, float, float) { return 0; }

#endif

}  // namespace cinedng::simdrows
