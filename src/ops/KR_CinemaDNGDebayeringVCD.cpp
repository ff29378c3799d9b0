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
#include <cstring>
#include <limits>
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

// Colour-difference runs of nine samples for a site of colour c at column x. `o` points at the
// site's row of the RGBA result (W4 floats per row); the first two points use O.c - O.ref, the
// others O.c - E.est with the estimate rows given.
inline float rowRun(const float* o, const float* e, int x, int c, int ref, int est) {
    const float d0 = o[4 * (x - 4) + c] - o[4 * (x - 4) + ref];
    const float d2 = o[4 * (x - 2) + c] - o[4 * (x - 2) + ref];
    const float d4 = o[4 * x + c] - e[3 * x + est];
    const float d6 = o[4 * (x + 2) + c] - e[3 * (x + 2) + est];
    const float d8 = o[4 * (x + 4) + c] - e[3 * (x + 4) + est];
    return runVariance(d0, d2, d4, d6, d8);
}

inline float columnRun(const float* o, long W4, const float* e0, const float* e2, const float* e4, int x, int c, int ref,
                       int est) {
    const float* u4 = o - 4 * W4;
    const float* u2 = o - 2 * W4;
    const float d0 = u4[4 * x + c] - u4[4 * x + ref];
    const float d2 = u2[4 * x + c] - u2[4 * x + ref];
    const float d4 = o[4 * x + c] - e0[3 * x + est];
    const float d6 = o[2 * W4 + 4 * x + c] - e2[3 * x + est];
    const float d8 = o[4 * W4 + 4 * x + c] - e4[3 * x + est];
    return runVariance(d0, d2, d4, d6, d8);
}

// Rows of the estimate buffer: the whole frame, or a ring of 16 rows.
struct FrameRows {
    const float* base;
    long W;
    const float* operator()(int y) const { return base + static_cast<long>(y) * W * 3; }
};
struct RingRows {
    const float* base;
    long W;
    const float* operator()(int y) const { return base + static_cast<long>(y & 15) * W * 3; }
};

template <class Rows>
float horizVariance(const float* rgba, const Rows& E, int x, int y, long W, int c) {
    return rowRun(rgba + y * W * 4, E(y), x, c, 1, 0);
}
template <class Rows>
float vertVariance(const float* rgba, const Rows& E, int x, int y, long W, int c) {
    return columnRun(rgba + y * W * 4, W * 4, E(y), E(y + 2), E(y + 4), x, c, 0, 1);  // red for d0, d2, on purpose
}
template <class Rows>
float diagVariance(const float* rgba, const Rows& E, int x, int y, long W, int c) {
    const float vRow = rowRun(rgba + y * W * 4, E(y), x, c, 1, 2);
    const float vCol = columnRun(rgba + y * W * 4, W * 4, E(y), E(y + 2), E(y + 4), x, c, 1, 2);
    return (vRow + vCol) / 2.0f;
}

void checkBuffers(const void* a, const void* b) {
    CD_ASSERT(a != nullptr && b != nullptr);
}

// ---- row workers ---------------------------------------------------------------------------------

// Stage 1 on row y (4 <= y <= height-5): estimates of the red and blue sites into `erow` (the
// row's 3*width floats). The estimates of one parity are made in a contiguous loop over the
// row's sites of that parity, then stored.
void prepRow(const float* mosaic, float* erow, const debayerVCD_Geometry& g, int y, float* rh, float* rv) {
    const long W = g.width;
    const int x0 = 4, x1 = g.width - 5;
    const int cEven = debayerSiteColor(0, y, g.bayerPattern);
    const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
    if (x1 < x0) return;
    const float* s = mosaic + y * W;
    for (int parity = 0; parity < 2; ++parity) {
        if ((parity ? cOdd : cEven) == 1) continue;
        const int xs = x0 + ((x0 & 1) != parity);
        const int count = (x1 - xs) / 2 + 1;
        for (int k = 0; k < count; ++k) {
            const float* p = s + xs + 2 * k;
            rh[k] = medianOf3(p[-1], prelimEstimate(p, 1), p[1]);
            rv[k] = medianOf3(p[-W], prelimEstimate(p, W), p[W]);
        }
        for (int k = 0; k < count; ++k) {
            float* e = erow + 3 * (xs + 2 * k);
            e[0] = rh[k];
            e[1] = rv[k];
            e[2] = (rh[k] + rv[k]) / 2.0f;
        }
    }
}

// Row y of the result before stage 2: each pixel's own channel holds its sample; the other
// channels are left as they are (zero in a fresh buffer).
void prefillRow(const float* mosaic, float* rgba, const debayerVCD_Geometry& g, int y) {
    const long W = g.width;
    const int cEven = debayerSiteColor(0, y, g.bayerPattern);
    const int cOdd = debayerSiteColor(1, y, g.bayerPattern);
    const float* s = mosaic + y * W;
    float* o = rgba + y * W * 4;
    for (int x = 0; x < g.width; x += 2) o[4 * x + cEven] = s[x];
    for (int x = 1; x < g.width; x += 2) o[4 * x + cOdd] = s[x];
}

// State of stage 2 kept from row to row: the absolute differences that the gradient levels add up,
// once per mosaic row (A1/A2 along the row: |s(x+1) - s(x)|, |s(x+2) - s(x)|; B1/B2 down the
// column: |s(y+1) - s(y)|, |s(y+2) - s(y)|) for the five rows around the current one, in a ring
// of eight, and the levels of the current row.
class GreenRowState {
public:
    explicit GreenRowState(const debayerVCD_Geometry& g)
        : g_(g), W_(static_cast<size_t>(g.width)), diffs_(8 * 4 * W_, 0.0f), levelH_(W_), levelV_(W_) {}

    template <class Rows>
    void run(const float* mosaic, float* rgba, const Rows& E, float factor, int y);

private:
    float* slot(int r, int k) { return diffs_.data() + (static_cast<size_t>(r & 7) * 4 + k) * W_; }
    void prepareRow(const float* mosaic, int r, int x0, int x1);

    debayerVCD_Geometry g_;
    size_t W_;
    std::vector<float> diffs_;
    int ringRow_[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    std::vector<float> levelH_, levelV_;
};

void GreenRowState::prepareRow(const float* mosaic, int r, int x0, int x1) {
    if (ringRow_[r & 7] == r) return;
    ringRow_[r & 7] = r;
    const long W = g_.width;
    const float* s = mosaic + r * W;
    float* a1 = slot(r, 0);
    float* a2 = slot(r, 1);
    float* b1 = slot(r, 2);
    float* b2 = slot(r, 3);
    for (int x = x0 - 2; x <= x1; ++x) {
        a1[x] = std::fabs(s[x + 1] - s[x]);
        a2[x] = std::fabs(s[x + 2] - s[x]);
    }
    for (int x = x0 - 2; x <= x1 + 2; ++x) {
        b1[x] = std::fabs(s[x + W] - s[x]);
        b2[x] = std::fabs(s[x + 2 * W] - s[x]);
    }
}

// Stage 2 on row y (6 <= y <= height-7), columns 6 .. width-6.
template <class Rows>
void GreenRowState::run(const float* mosaic, float* rgba, const Rows& E, float factor, int y) {
    const long W = g_.width;
    const int x0 = 6, x1 = g_.width - 6;
    if (x1 < x0) return;
    const int cEven = debayerSiteColor(0, y, g_.bayerPattern);
    const int cOdd = debayerSiteColor(1, y, g_.bayerPattern);
    const float* s = mosaic + y * W;
    float* lh = levelH_.data();
    float* lv = levelV_.data();
    if (cEven != 1 || cOdd != 1) {
        for (int r = y - 2; r <= y + 2; ++r) prepareRow(mosaic, r, x0, x1);
        // Same terms in the same order as gradientLevel().
        const float *__restrict a2m2 = slot(y - 2, 1), *__restrict a2m1 = slot(y - 1, 1), *__restrict a20 = slot(y, 1),
                                *__restrict a2p1 = slot(y + 1, 1), *__restrict a2p2 = slot(y + 2, 1);
        const float *__restrict a1m2 = slot(y - 2, 0), *__restrict a1m1 = slot(y - 1, 0), *__restrict a10 = slot(y, 0),
                                *__restrict a1p1 = slot(y + 1, 0), *__restrict a1p2 = slot(y + 2, 0);
        const float *__restrict b2u = slot(y - 2, 3), *__restrict b20 = slot(y, 3), *__restrict b1u = slot(y - 1, 2),
                                *__restrict b10 = slot(y, 2);
        float* __restrict lhr = lh;
        float* __restrict lvr = lv;
        for (int x = x0; x <= x1; ++x) {
            float h = 0.0f;
            h += a2m2[x]; h += a2m2[x - 2];
            h += a20[x];  h += a20[x - 2];
            h += a2p2[x]; h += a2p2[x - 2];
            h += a2m1[x]; h += a2m1[x - 2];
            h += a2p1[x]; h += a2p1[x - 2];
            h += a1m2[x]; h += a1m2[x - 1];
            h += a10[x];  h += a10[x - 1];
            h += a1p2[x]; h += a1p2[x - 1];
            h += a1m1[x]; h += a1m1[x - 1];
            h += a1p1[x]; h += a1p1[x - 1];
            float v = 0.0f;
            v += b20[x - 2]; v += b2u[x - 2];
            v += b20[x];     v += b2u[x];
            v += b20[x + 2]; v += b2u[x + 2];
            v += b20[x - 1]; v += b2u[x - 1];
            v += b20[x + 1]; v += b2u[x + 1];
            v += b10[x - 2]; v += b1u[x - 2];
            v += b10[x];     v += b1u[x];
            v += b10[x + 2]; v += b1u[x + 2];
            v += b10[x - 1]; v += b1u[x - 1];
            v += b10[x + 1]; v += b1u[x + 1];
            lhr[x] = atLeastTiny(h);
            lvr[x] = atLeastTiny(v);
        }
    }
    float* o = rgba + y * W * 4;
    const float* e = E(y);
    for (int x = x0; x <= x1; ++x) {
        float* p = o + 4 * x;
        const int c = (x & 1) ? cOdd : cEven;
        p[3] = 1.0f;
        p[c] = s[x];
        if (c == 1) continue;
        const float H = lh[x], V = lv[x];
        // For finite levels (at least 1e-9 each) the larger ratio is at least 1, so a factor below 1
        // always selects the strong-edge rule without dividing.
        const bool finite = H <= std::numeric_limits<float>::max() && V <= std::numeric_limits<float>::max();
        if ((factor < 1.0f && finite) || std::max(V / H, H / V) > factor) {
            p[1] = V >= H ? e[3 * x] : e[3 * x + 1];
        } else {
            const float vh = horizVariance(rgba, E, x, y, W, c);
            const float vv = vertVariance(rgba, E, x, y, W, c);
            const float vd = diagVariance(rgba, E, x, y, W, c);
            const float m = std::min(vh, std::min(vv, vd));
            const float green = m == vh ? e[3 * x] : (m == vv ? e[3 * x + 1] : e[3 * x + 2]);
            p[1] = std::max(0.0f, green);
        }
    }
}

// Stage 3 on row y (4 <= y <= height-5), in place.
void redBlueRow(float* rgba, const debayerVCD_Geometry& g, int y) {
    const long W = g.width;
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
    return horizVariance(rgba, FrameRows{estimates, g.width}, x, y, g.width, colorChannel);
}
float vertColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel) {
    return vertVariance(rgba, FrameRows{estimates, g.width}, x, y, g.width, colorChannel);
}
float diagColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel) {
    return diagVariance(rgba, FrameRows{estimates, g.width}, x, y, g.width, colorChannel);
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

#define CD_VCD_VARIANCE_VARIANTS(name)                                                                               \
    float name##WithRedCenterPixel(int x, int y, const float* rgba, const float* e, const debayerVCD_Geometry& g) {  \
        return name##WithRedOrBlueCenterPixel(x, y, rgba, e, g, 0);                                                  \
    }                                                                                                                \
    float name##WithBlueCenterPixel(int x, int y, const float* rgba, const float* e, const debayerVCD_Geometry& g) { \
        return name##WithRedOrBlueCenterPixel(x, y, rgba, e, g, 2);                                                  \
    }
CD_VCD_VARIANCE_VARIANTS(horizColorVarDiffFor9x9Block)
CD_VCD_VARIANCE_VARIANTS(vertColorVarDiffFor9x9Block)
CD_VCD_VARIANCE_VARIANTS(diagColorVarDiffFor9x9Block)
#undef CD_VCD_VARIANCE_VARIANTS

// ---- stages over the whole frame -----------------------------------------------------------------

void debayerVCD_preparationACPIMod(const float* mosaic, float* estimates, const debayerVCD_Geometry& g) {
    CD_ASSERT(g.stride == 1);
    checkBuffers(mosaic, estimates);
    const long W = g.width;
    std::vector<float> rh(static_cast<size_t>(std::max(g.width, 0))), rv(rh.size());
    for (int y = 4; y <= g.height - 5; ++y) prepRow(mosaic, estimates + y * W * 3, g, y, rh.data(), rv.data());
}

void debayerVCD_InterpolateGreen(const float* mosaic, float* rgba, const float* estimates,
                                 const debayerVCD_Geometry& g, float sharpEdgeBlockFactor) {
    CD_ASSERT(g.stride == 1);
    checkBuffers(mosaic, rgba);
    checkBuffers(estimates, rgba);
    std::memset(rgba, 0, static_cast<size_t>(std::max(g.width, 0)) * std::max(g.height, 0) * 4 * sizeof(float));
    for (int y = 0; y < g.height; ++y) prefillRow(mosaic, rgba, g, y);
    if (g.width - 6 < 6 || g.height - 7 < 6) return;
    GreenRowState state(g);
    const FrameRows E{estimates, g.width};
    for (int y = 6; y <= g.height - 7; ++y) state.run(mosaic, rgba, E, sharpEdgeBlockFactor, y);
}

void debayerVCD_InterpolateRedBlue(float* rgba, const debayerVCD_Geometry& g) {
    CD_ASSERT(g.stride == 4);
    CD_ASSERT(rgba != nullptr);
    for (int y = 4; y <= g.height - 5; ++y) redBlueRow(rgba, g, y);
}

// ---- the operation -------------------------------------------------------------------------------

namespace {

// The three stages in one pass down the frame, with the same results as running them one after the
// other. Stage 2 on row y reads estimates of rows y-4 .. y+4 (kept in a ring of 16 rows) and result
// rows y-4 .. y+4 (rows below y only as prefilled). Stage 3 rewrites channels that stage 2 reads in
// the rows above it, so it runs five rows behind the last row that stage 2 has finished.
void runVCD(const float* mosaic, float* out, const debayerVCD_Geometry& g, float factor) {
    const long W = g.width;
    const int H = g.height;
    std::vector<float> ring(16 * static_cast<size_t>(W) * 3, 0.0f);
    std::vector<float> rh(static_cast<size_t>(W)), rv(static_cast<size_t>(W));
    const RingRows E{ring.data(), W};
    const bool haveGreen = g.width - 6 >= 6 && H - 7 >= 6;
    GreenRowState state(g);
    for (int lead = 0; lead <= H + 9; ++lead) {
        if (lead < H) {
            prefillRow(mosaic, out, g, lead);  // the result buffer is a fresh zero-filled allocation
            float* slot = ring.data() + static_cast<size_t>(lead & 15) * W * 3;
            std::memset(slot, 0, static_cast<size_t>(W) * 3 * sizeof(float));
            if (lead >= 4 && lead <= H - 5) prepRow(mosaic, slot, g, lead, rh.data(), rv.data());
        }
        const int y2 = lead - 4;
        if (haveGreen && y2 >= 6 && y2 <= H - 7) state.run(mosaic, out, E, factor, y2);
        const int y3 = lead - 9;
        if (y3 >= 4 && y3 <= H - 5) redBlueRow(out, g, y3);
    }
}

}  // namespace

PatchImageBuffer* KR_CinemaDNGDebayeringVCD::debayerInputImage(const PatchImageBuffer* input,
                                                                std::shared_ptr<KSError>* error) {
    if (auto e = debayerValidateMosaic(input)) {
        KSSetError(error, e);
        return nullptr;
    }
    const size_t n = static_cast<size_t>(input->width) * static_cast<size_t>(input->height);
    PatchImageBuffer* result = allocPatchImageBuffer();
    float* rgba = allocPatchSamples(n * 4);
    if (!result || !rgba) {
        std::free(result);
        std::free(rgba);
        throw cd_exception("KR_CinemaDNGDebayeringVCD - out of memory");
    }
    const debayerVCD_Geometry g{input->width, input->height, 1, input->bayerPattern};
    if (n > 0) runVCD(static_cast<const float*>(input->imageBuffer), rgba, g, sharpEdgeBlockFactor_);
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
