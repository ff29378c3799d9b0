#pragma once
// Vector kernels of the lineariser for x86-64 processors with AVX2, chosen at run time. Every
// kernel gives exactly the floats of the lineariser's per-sample expression for the same bytes.

#include <cstdint>

namespace cinedng::simdrows {

// True when the processor runs the AVX2 kernels.
bool available();

// Unpacks and normalises samples of `bits` bits (10, 12 or 14: an MSB-first bit stream that starts
// on a byte boundary at p; 16: words in the frame's byte order) into out[i] = (s - black) * factor,
// eight samples at a time, for as many of the n samples as can be read without passing `avail`
// bytes from p. black must be a whole number in [0, 2^24), which makes the single-precision
// arithmetic round exactly as the double-precision expression does. Returns the number of samples
// written (a multiple of 8).
int64_t normalise(const unsigned char* p, int64_t avail, float* out, int64_t n, int bits, bool bigEndian16,
                  float black, float factor);

}  // namespace cinedng::simdrows
