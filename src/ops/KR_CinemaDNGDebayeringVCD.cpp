// VCD demosaic: preliminary estimates, green by edge strength or colour-difference variance, then
// red and blue from colour differences.
//
// The gradient levels of a whole row are computed first in one contiguous loop (every column,
// whatever its colour, so that the loop vectorises), then the row is walked in raster order to pick
// the green of each red and blue site; the variance rule needs that order because its runs read the
// greens already chosen to the left.
#include "cinedng/KR_CinemaDNGDebayeringVCD.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

// p points at the centre sample, st is the distance to the next sample along the direction.
inline float prelimEstimate(const float* p, long st) {
    const float g = (p[-st] + p[st]) / 2.0f + (2.0f * p[0] - p[-2 * st] - p[2 * st]) / 4.0f;
    return std::max(0.0f, g);
}

inline float diagEstimate(const float* p, long W) {
    const float g = (p[-W] + p[W] + p[-1] + p[1]) / 4.0f + (4.0f * p[0] - p[-2 * W] - p[2 * W] - p[-2] - p[2]) / 8.0f;
    return std::max(0.0f, g);
}

// Sum of the 20 absolute differences along the direction `a` (distance to the next sample along
// the lines), over the lines at -2..2 in the direction `b` across them. Same order for both
// directions: distance 2 on the lines at offsets -2, 0, 2, then -1, 1; distance 1 likewise.
inline float gradientLevel(const float* p, long a, long b) {
    float sum = 0.0f;
    const long even[3] = {-2 * b, 0, 2 * b};
    const long odd[2] = {-b, b};
    for (long o : even) {
        sum += std::fabs(p[o + 2 * a] - p[o]);
        sum += std::fabs(p[o - 2 * a] - p[o]);
    }
    for (long o : odd) {
        sum += std::fabs(p[o + 2 * a] - p[o]);
        sum += std::fabs(p[o - 2 * a] - p[o]);
    }
    for (long o : even) {
        sum += std::fabs(p[o + a] - p[o]);
        sum += std::fabs(p[o - a] - p[o]);
    }
    for (long o : odd) {
        sum += std::fabs(p[o + a] - p[o]);
        sum += std::fabs(p[o - a] - p[o]);
    }
    return sum;
}

inline float atLeastTiny(float v) {
    return v < 1e-9f ? 1e-9f : v;
}

// Variance of nine colour differences, of which d0, d2, d4, d6, d8 are given; the odd ones are
// interpolated (d1 only from d2, on purpose).
inline float runVariance(float d0, float d2, float d4, float d6, float d8) {
    float d1 = 0.0f;
    d1 = (d1 + d2) / 2.0f;
    const float d3 = (d2 + d4) / 2.0f;
    const float d5 = (d4 + d6) / 2.0f;
    const float d7 = (d6 + d8) / 2.0f;
    const float d[9] = {d0, d1, d2, d3, d4, d5, d6, d7, d8};
    float sum = 0.0f;
    for (float v : d) sum += v;
    const float mean = 0.11111111f * sum;
    float sq = 0.0f;
    for (float v : d) sq += (v - mean) * (v - mean);
    return 0.11111111f * sq;
}

// Run of nine samples through (x, y) along `step` (1: row, W: column), in RGBA pixels; the first
// two points use O.c - O.<ref> with ref the given channel, the others O.c - E.<est>.
inline float colourRun(const float* rgba, const float* est, long i, long step, int c, int ref, int estIndex) {
    const float* o = rgba;
    const float d0 = o[4 * (i - 4 * step) + c] - o[4 * (i - 4 * step) + ref];
    const float d2 = o[4 * (i - 2 * step) + c] - o[4 * (i - 2 * step) + ref];
    const float d4 = o[4 * i + c] - est[3 * i + estIndex];
    const float d6 = o[4 * (i + 2 * step) + c] - est[3 * (i + 2 * step) + estIndex];
    const float d8 = o[4 * (i + 4 * step) + c] - est[3 * (i + 4 * step) + estIndex];
    return runVariance(d0, d2, d4, d6, d8);
}

inline float horizVariance(const float* rgba, const float* est, long i, long W, int c) {
    return colourRun(rgba, est, i, 1, c, 1, 0);
}
inline float vertVariance(const float* rgba, const float* est, long i, long W, int c) {
    return colourRun(rgba, est, i, W, c, 0, 1);  // red channel for d0, d2, on purpose
}
inline float diagVariance(const float* rgba, const float* est, long i, long W, int c) {
    const float vRow = colourRun(rgba, est, i, 1, c, 1, 2);
    const float vCol = colourRun(rgba, est, i, W, c, 1, 2);
    return (vRow + vCol) / 2.0f;
}

void checkBuffers(const void* a, const void* b) {
    CD_ASSERT(a != nullptr && b != nullptr);
}

}  // namespace

// ---- helpers -------------------------------------------------------------------------------------

float horizPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                      const debayerVCD_Geometry& g, int channelOffset) {
    const long st = g.stride;
    return prelimEstimate(mosaic + (static_cast<long>(y) * g.width + x) * st + channelOffset, st);
}
float vertPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset) {
    const long st = g.stride;
    return prelimEstimate(mosaic + (static_cast<long>(y) * g.width + x) * st + channelOffset, st * g.width);
}
float diagPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset) {
    CD_ASSERT(g.stride == 1);
    return diagEstimate(mosaic + static_cast<long>(y) * g.width + x + channelOffset, g.width);
}
float horizontalGradientLevelForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset) {
    const long st = g.stride;
    return atLeastTiny(
        gradientLevel(mosaic + (static_cast<long>(y) * g.width + x) * st + channelOffset, st, st * g.width));
}
float verticalGradientLevelForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                   const debayerVCD_Geometry& g, int channelOffset) {
    const long st = g.stride;
    return atLeastTiny(
        gradientLevel(mosaic + (static_cast<long>(y) * g.width + x) * st + channelOffset, st * g.width, st));
}
float horizColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                           const debayerVCD_Geometry& g, int colorChannel) {
    return horizVariance(rgba, estimates, static_cast<long>(y) * g.width + x, g.width, colorChannel);
}
float vertColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel) {
    return vertVariance(rgba, estimates, static_cast<long>(y) * g.width + x, g.width, colorChannel);
}
float diagColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel) {
    return diagVariance(rgba, estimates, static_cast<long>(y) * g.width + x, g.width, colorChannel);
}

#define CD_VCD_VARIANTS(name)                                                                        \
    float name##ForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g) {  \
        return name##ForRedOrBlueCenterPixel(x, y, mosaic, g, 0);                                    \
    }                                                                                                \
    float name##ForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g) { \
        return name##ForRedOrBlueCenterPixel(x, y, mosaic, g, 0);                                    \
    }
CD_VCD_VARIANTS(horizPrelimGreenEstimate)
CD_VCD_VARIANTS(vertPrelimGreenEstimate)
CD_VCD_VARIANTS(diagPrelimGreenEstimate)
CD_VCD_VARIANTS(horizontalGradientLevel)
CD_VCD_VARIANTS(verticalGradientLevel)
#undef CD_VCD_VARIANTS

// ---- stages --------------------------------------------------------------------------------------

void debayerVCD_preparationACPIMod(const float* mosaic, float* estimates, const debayerVCD_Geometry& g) {
    CD_ASSERT(g.stride == 1);
    checkBuffers(mosaic, estimates);
    const long W = g.width;
    for (int y = 4; y <= g.height - 5; ++y) {
        const int cEven = debayerSiteColor(0, y, g.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
        const float* s = mosaic + y * W;
        float* e = estimates + y * W * 3;
        for (int x = 4; x <= g.width - 5; ++x) {
            const int c = (x & 1) ? cOdd : cEven;
            if (c == 1) continue;
            const float h = medianOf3(s[x - 1], prelimEstimate(s + x, 1), s[x + 1]);
            const float v = medianOf3(s[x - W], prelimEstimate(s + x, W), s[x + W]);
            e[3 * x] = h;
            e[3 * x + 1] = v;
            e[3 * x + 2] = (h + v) / 2.0f;
        }
    }
}

void debayerVCD_InterpolateGreen(const float* mosaic, float* rgba, const float* estimates,
                                 const debayerVCD_Geometry& g, float sharpEdgeBlockFactor) {
    CD_ASSERT(g.stride == 1);
    checkBuffers(mosaic, rgba);
    checkBuffers(estimates, rgba);
    const long W = g.width;
    // Start from the mosaic: each pixel's own channel holds its sample, the rest 0.
    for (int y = 0; y < g.height; ++y) {
        const int cEven = debayerSiteColor(0, y, g.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
        const float* s = mosaic + y * W;
        float* o = rgba + y * W * 4;
        for (int x = 0; x < g.width; ++x) {
            float* p = o + 4 * x;
            p[0] = p[1] = p[2] = p[3] = 0.0f;
            p[(x & 1) ? cOdd : cEven] = s[x];
        }
    }
    const int x0 = 6, x1 = g.width - 6, y0 = 6, y1 = g.height - 7;
    if (x1 < x0 || y1 < y0) return;
    std::vector<float> levelH(static_cast<size_t>(W)), levelV(static_cast<size_t>(W));
    for (int y = y0; y <= y1; ++y) {
        const int cEven = debayerSiteColor(0, y, g.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
        const float* s = mosaic + y * W;
        float* lh = levelH.data();
        float* lv = levelV.data();
        if (cEven != 1 || cOdd != 1) {
            for (int x = x0; x <= x1; ++x) {
                lh[x] = atLeastTiny(gradientLevel(s + x, 1, W));
                lv[x] = atLeastTiny(gradientLevel(s + x, W, 1));
            }
        }
        float* o = rgba + y * W * 4;
        const float* e = estimates + y * W * 3;
        for (int x = x0; x <= x1; ++x) {
            float* p = o + 4 * x;
            const int c = (x & 1) ? cOdd : cEven;
            p[3] = 1.0f;
            p[c] = s[x];
            if (c == 1) continue;
            const float H = lh[x], V = lv[x];
            if (std::max(V / H, H / V) > sharpEdgeBlockFactor) {
                p[1] = V >= H ? e[3 * x] : e[3 * x + 1];
            } else {
                const long i = y * W + x;
                const float vh = horizVariance(rgba, estimates, i, W, c);
                const float vv = vertVariance(rgba, estimates, i, W, c);
                const float vd = diagVariance(rgba, estimates, i, W, c);
                const float m = std::min(vh, std::min(vv, vd));
                const float green = m == vh ? e[3 * x] : (m == vv ? e[3 * x + 1] : e[3 * x + 2]);
                p[1] = std::max(0.0f, green);
            }
        }
    }
}

void debayerVCD_InterpolateRedBlue(float* rgba, const debayerVCD_Geometry& g) {
    CD_ASSERT(g.stride == 4);
    CD_ASSERT(rgba != nullptr);
    const long W = g.width;
    for (int y = 4; y <= g.height - 5; ++y) {
        const int cEven = debayerSiteColor(0, y, g.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
        // Green sites of this row whose row neighbours are red have this column parity (-1: none).
        int redRowParity = -1;
        if (cEven == 1 && cOdd == 0) redRowParity = 0;
        if (cOdd == 1 && cEven == 0) redRowParity = 1;
        float* row = rgba + y * W * 4;
        for (int x = 4; x <= g.width - 5; ++x) {
            float* p = row + 4 * x;
            const int c = (x & 1) ? cOdd : cEven;
            const float G = p[1];
            if (c == 1) {
                const float* l = p - 4;
                const float* r = p + 4;
                const float* u = p - 4 * W;
                const float* d = p + 4 * W;
                if ((x & 1) == redRowParity) {
                    p[0] = G + ((l[0] - l[1]) + (r[0] - r[1])) / 2.0f;
                    p[2] = G + ((u[2] - u[1]) + (d[2] - d[1])) / 2.0f;
                } else {
                    p[0] = G + ((u[0] - u[1]) + (d[0] - d[1])) / 2.0f;
                    p[2] = G + ((l[2] - l[1]) + (r[2] - r[1])) / 2.0f;
                }
            } else {
                const int t = c == 0 ? 2 : 0;  // the missing colour
                const float* q[4] = {p - 4 * W - 4, p - 4 * W + 4, p + 4 * W - 4, p + 4 * W + 4};
                double sum = 0.0;
                for (const float* n : q) sum += static_cast<double>(n[t] - n[1]);
                p[t] = static_cast<float>(static_cast<double>(G) + 0.25 * sum);
            }
        }
    }
}

// ---- the operation -------------------------------------------------------------------------------

PatchImageBuffer* KR_CinemaDNGDebayeringVCD::debayerInputImage(const PatchImageBuffer* input,
                                                                std::shared_ptr<KSError>* error) {
    if (auto e = debayerValidateMosaic(input)) {
        KSSetError(error, e);
        return nullptr;
    }
    const size_t n = static_cast<size_t>(input->width) * static_cast<size_t>(input->height);
    PatchImageBuffer* result = allocPatchImageBuffer();
    float* estimates = static_cast<float*>(std::calloc(n ? n * 3 : 1, sizeof(float)));
    float* rgba = static_cast<float*>(std::malloc((n ? n * 4 : 1) * sizeof(float)));
    if (!result || !estimates || !rgba) {
        std::free(result);
        std::free(estimates);
        std::free(rgba);
        throw cd_exception("KR_CinemaDNGDebayeringVCD - out of memory");
    }
    const float* mosaic = static_cast<const float*>(input->imageBuffer);
    const debayerVCD_Geometry mg{input->width, input->height, 1, input->bayerPattern};
    const debayerVCD_Geometry og{input->width, input->height, 4, input->bayerPattern};
    if (n > 0) {
        debayerVCD_preparationACPIMod(mosaic, estimates, mg);
        debayerVCD_InterpolateGreen(mosaic, rgba, estimates, mg, sharpEdgeBlockFactor_);
        debayerVCD_InterpolateRedBlue(rgba, og);
    }
    std::free(estimates);
    result->width = input->width;
    result->height = input->height;
    result->numChannels = 4;
    result->bitsPerChannel = 32;
    result->bayerPattern = 0;
    result->bufferType = 0;
    result->imageBuffer = rgba;
    return result;
}

}  // namespace cinedng
