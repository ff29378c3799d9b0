// AHD demosaic: candidate interpolation, L*a*b* conversion, homogeneity maps and final choice.
//
// Speed notes. The interpolation passes read the mosaic row by row with no allocation. The L*a*b*
// stage needs t^(1/3) (the exponent 1/3 rounded to single precision) for up to six values per
// pixel; the C library's pow costs more than everything else together, so it is evaluated from a
// table of exact pow results (one entry per exponent and 10 leading mantissa bits, built per call
// with pow itself) times a short binomial series. That value is within a few units in the last
// place of pow's; the stage then checks that this uncertainty cannot change the rounding of L, a
// and b to single precision and, where it could (or where t is out of the table's range), computes
// the pixel again with pow. The stored floats are therefore exactly those of a plain evaluation.
#include "cinedng/KR_CinemaDNGDebayeringAHD.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

const char* const KR_AHD_CamToXYZMtxKey = "AHD_CamToXYZMtxKey";

namespace {

constexpr const char* kDomain = "KR_CinemaDNGDebayering";
constexpr const char* kWrongInput = "This patch needs a monochrome 32 bit float buffer as input.";

// D50 reference white; the divisions by it are single precision.
constexpr float kXn = 0.964221f;
constexpr float kYn = 1.0f;
constexpr float kZn = 0.825211f;
constexpr double kThird = static_cast<double>(1.0f / 3.0f);  // 0.3333333432674408
constexpr double kLabEpsilon = 0.008856451679035631;
constexpr double kLabKappa = 903.2962962962963;

inline double labF(float t) {
    const double td = t;
    return td > kLabEpsilon ? std::pow(td, kThird) : (kLabKappa * td + 16.0) / 116.0;
}

// t^kThird for t in [2^-7, 2^7) from a table of pow values at the centres of 1024 mantissa
// intervals per binary exponent, corrected by the binomial series of (1 + eps)^kThird.
class CubeRootTable {
public:
    static constexpr int kFirstExponent = 120;  // biased float exponent of 2^-7
    static constexpr int kExponents = 14;
    static constexpr int kBits = 10;
    static constexpr int kEntries = 1 << kBits;
    // Bound on the relative difference between fast() and pow (a few units in the last place
    // each; generous margin).
    static constexpr double kRelError = 4e-15;

    CubeRootTable() : values_(static_cast<size_t>(kExponents) * kEntries), reciprocal_(kEntries) {
        for (int i = 0; i < kEntries; ++i) {
            const double centre = 1.0 + (i + 0.5) / kEntries;
            reciprocal_[i] = 1.0 / centre;
            for (int e = 0; e < kExponents; ++e)
                values_[static_cast<size_t>(e) * kEntries + i] =
                    std::pow(std::ldexp(centre, kFirstExponent + e - 127), kThird);
        }
        const double a = kThird;
        c_[0] = a;
        c_[1] = c_[0] * (a - 1.0) / 2.0;
        c_[2] = c_[1] * (a - 2.0) / 3.0;
        c_[3] = c_[2] * (a - 3.0) / 4.0;
        c_[4] = c_[3] * (a - 4.0) / 5.0;
    }

    // False when t is outside the table's range (negative, tiny, huge, infinite or NaN).
    inline bool fast(float t, double& out) const {
        const uint32_t bits = std::bit_cast<uint32_t>(t);
        const uint32_t e = (bits >> 23) - static_cast<uint32_t>(kFirstExponent);
        if (e >= static_cast<uint32_t>(kExponents)) return false;
        const uint32_t mant = bits & 0x7fffffu;
        const uint32_t hi = mant >> (23 - kBits);
        const double m = 1.0 + mant * 0x1p-23;
        const double centre = 1.0 + (hi + 0.5) / kEntries;
        const double eps = (m - centre) * reciprocal_[hi];
        const double series = 1.0 + eps * (c_[0] + eps * (c_[1] + eps * (c_[2] + eps * (c_[3] + eps * c_[4]))));
        out = values_[e * kEntries + hi] * series;
        return true;
    }

private:
    std::vector<double> values_;
    std::vector<double> reciprocal_;
    double c_[5];
};

// The rounding of v to float is the same for every value within +-bound of v.
inline bool roundingStable(double v, double bound) {
    return static_cast<float>(v - bound) == static_cast<float>(v + bound);
}

float* allocFloats(size_t count) {
    float* p = allocPatchSamples(count);
    if (!p) throw cd_exception("KR_CinemaDNGDebayeringAHD - out of memory");
    return p;
}

struct Region {
    int x0, x1, y0, y1;  // inclusive bounds
    bool empty() const { return x1 < x0 || y1 < y0; }
};

Region ahdRegion(const debayerAHD_Info& info) {
    return Region{2, info.width - 2, 2, info.height - 3};
}

}  // namespace

// ---- helpers -------------------------------------------------------------------------------------

float horizGreenInterpolationForRedOrBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info,
                                                     int channelOffset) {
    const long st = info.stride;
    const float* s = mosaic + (static_cast<long>(y) * info.width + x) * st + channelOffset;
    const float g = (s[-st] + s[st]) / 2.0f + (2.0f * s[0] - s[-2 * st] - s[2 * st]) / 4.0f;
    return std::max(0.0f, g);
}

float vertGreenInterpolationForRedOrBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info,
                                                    int channelOffset) {
    const long st = static_cast<long>(info.stride) * info.width;
    const float* s = mosaic + (static_cast<long>(y) * info.width + x) * info.stride + channelOffset;
    const float g = (s[-st] + s[st]) / 2.0f + (2.0f * s[0] - s[-2 * st] - s[2 * st]) / 4.0f;
    return std::max(0.0f, g);
}

float horizGreenInterpolationForRedCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info) {
    return horizGreenInterpolationForRedOrBlueCenterPixel(x, y, mosaic, info, 0);
}
float vertGreenInterpolationForRedCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info) {
    return vertGreenInterpolationForRedOrBlueCenterPixel(x, y, mosaic, info, 0);
}
float horizGreenInterpolationForBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info) {
    return horizGreenInterpolationForRedOrBlueCenterPixel(x, y, mosaic, info, 0);
}
float vertGreenInterpolationForBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info) {
    return vertGreenInterpolationForRedOrBlueCenterPixel(x, y, mosaic, info, 0);
}

// ---- row-range workers ---------------------------------------------------------------------------
//
// Each stage is written for a range of rows so that the operation can run the stages interleaved,
// a band of rows at a time; the exported stage functions run them over the whole region. PS is the
// pixel stride of the candidate buffer (3 for the RGB candidates, 4 when a candidate is built
// directly in the RGBA result).

namespace {

// Stage 1, pass 1, rows ya..yb: green of the chosen candidates, and a red or blue site's sample in
// its own channel.
template <int PS, bool DoH, bool DoV>
void greenRows(const float* mosaic, float* rgbH, float* rgbV, const debayerAHD_Info& info, const Region& r, int ya,
               int yb) {
    const long W = info.width;
    for (int y = std::max(ya, r.y0); y <= std::min(yb, r.y1); ++y) {
        const float* s = mosaic + y * W;
        float* h = rgbH + y * W * PS;
        float* v = rgbV + y * W * PS;
        const int cEven = debayerSiteColor(0, y, info.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, info.bayerPattern);
        for (int parity = 0; parity < 2; ++parity) {
            const int c = parity ? cOdd : cEven;
            const int xs = r.x0 + ((r.x0 & 1) != parity);
            if (c == 1) {
                for (int x = xs; x <= r.x1; x += 2) {
                    if (DoH) h[PS * x + 1] = s[x];
                    if (DoV) v[PS * x + 1] = s[x];
                }
                continue;
            }
            for (int x = xs; x <= r.x1; x += 2) {
                if (DoH) {
                    const float gh = std::max(0.0f, (s[x - 1] + s[x + 1]) / 2.0f + (2.0f * s[x] - s[x - 2] - s[x + 2]) / 4.0f);
                    h[PS * x + 1] = clamp(medianOf3(s[x - 1], gh, s[x + 1]));
                    h[PS * x + c] = s[x];
                }
                if (DoV) {
                    const float gv = std::max(0.0f, (s[x - W] + s[x + W]) / 2.0f +
                                                        (2.0f * s[x] - s[x - 2 * W] - s[x + 2 * W]) / 4.0f);
                    v[PS * x + 1] = clamp(medianOf3(s[x - W], gv, s[x + W]));
                    v[PS * x + c] = s[x];
                }
            }
        }
    }
}

// Stage 1, pass 2, rows ya..yb: red and blue of one candidate K from its greens (rows y-1..y+1 of K
// must hold their greens). Red and blue sites take the missing colour from the four diagonals;
// green sites use their parity only (x or y even: red along the row, blue along the column; both
// odd: the other way round).
template <int PS>
void redBlueRows(const float* mosaic, float* K, const debayerAHD_Info& info, const Region& r, int ya, int yb) {
    const long W = info.width;
    for (int y = std::max(ya, r.y0); y <= std::min(yb, r.y1); ++y) {
        const float* s = mosaic + y * W;
        const float* g = K + y * W * PS + 1;  // green of row y
        float* k = K + y * W * PS;
        const int cEven = debayerSiteColor(0, y, info.bayerPattern);
        const int cOdd = debayerSiteColor(1, y, info.bayerPattern);
        const bool yEven = (y & 1) == 0;
        for (int parity = 0; parity < 2; ++parity) {
            const int c = parity ? cOdd : cEven;
            const int xs = r.x0 + ((r.x0 & 1) != parity);
            if (c != 1) {
                const int t = c == 0 ? 2 : 0;
                for (int x = xs; x <= r.x1; x += 2) {
                    const float diag = s[x - 1 - W] + s[x + 1 - W] + s[x - 1 + W] + s[x + 1 + W];
                    const float gd = 4.0f * g[PS * x] - g[PS * (x - 1 - W)] - g[PS * (x + 1 - W)] -
                                     g[PS * (x - 1 + W)] - g[PS * (x + 1 + W)];
                    k[PS * x + t] = clamp(0.25f * diag + 0.25f * gd);
                }
                continue;
            }
            const bool rowGivesRed = yEven || parity == 0;
            for (int x = xs; x <= r.x1; x += 2) {
                const float alongRow =
                    clamp(0.5f * (s[x - 1] + s[x + 1]) + 0.5f * (2.0f * s[x] - g[PS * (x - 1)] - g[PS * (x + 1)]));
                const float alongCol =
                    clamp(0.5f * (s[x - W] + s[x + W]) + 0.5f * (2.0f * s[x] - g[PS * (x - W)] - g[PS * (x + W)]));
                k[PS * x] = rowGivesRed ? alongRow : alongCol;
                k[PS * x + 2] = rowGivesRed ? alongCol : alongRow;
            }
        }
    }
}

// Stage 2, rows ya..yb of one candidate.
void labRows(const float* rgb, float* lab, const debayerAHD_Info& info, const Region& r, const CubeRootTable& table,
             int ya, int yb) {
    const float* m = info.camToXYZ;
    const double E = CubeRootTable::kRelError;
    const long W = info.width;
    for (int y = std::max(ya, r.y0); y <= std::min(yb, r.y1); ++y) {
        const float* p = rgb + y * W * 3;
        float* o = lab + y * W * 3;
        for (int x = r.x0; x <= r.x1; ++x) {
            const float R = p[3 * x], G = p[3 * x + 1], B = p[3 * x + 2];
            const float X = m[0] * R + m[1] * G + m[2] * B;
            const float Y = m[3] * R + m[4] * G + m[5] * B;
            const float Z = m[6] * R + m[7] * G + m[8] * B;
            const float t[3] = {X / kXn, Y / kYn, Z / kZn};
            // Each f with its error bound (0 where it is computed exactly).
            double f[3] = {0.0, 0.0, 0.0}, err[3];
            bool ok = true;
            for (int i = 0; i < 3; ++i) {
                const double td = t[i];
                if (td > kLabEpsilon) {
                    ok = table.fast(t[i], f[i]) && ok;
                    err[i] = std::fabs(f[i]) * E;
                } else {
                    f[i] = (kLabKappa * td + 16.0) / 116.0;
                    err[i] = 0.0;
                }
            }
            double L = 0, a = 0, b = 0;
            if (ok) {
                L = 116.0 * f[1] - 16.0;
                a = 500.0 * (f[0] - f[1]);
                b = 200.0 * (f[1] - f[2]);
                const double bL = 116.0 * err[1] + 1e-15 * (116.0 * std::fabs(f[1]) + 16.0);
                const double ba = 500.0 * (err[0] + err[1] + 1e-15 * (std::fabs(f[0]) + std::fabs(f[1])));
                const double bb = 200.0 * (err[1] + err[2] + 1e-15 * (std::fabs(f[1]) + std::fabs(f[2])));
                ok = roundingStable(L, bL) && roundingStable(a, ba) && roundingStable(b, bb);
            }
            if (!ok) {
                const double fx = labF(t[0]), fy = labF(t[1]), fz = labF(t[2]);
                L = 116.0 * fy - 16.0;
                a = 500.0 * (fx - fy);
                b = 200.0 * (fy - fz);
            }
            o[3 * x] = static_cast<float>(L);
            o[3 * x + 1] = static_cast<float>(a);
            o[3 * x + 2] = static_cast<float>(b);
        }
    }
}

// Stage 3, pass 1, rows ya..yb: homogeneity counts.
void countRows(const float* labH, const float* labV, float* homH, float* homV, const debayerAHD_Info& info,
               const Region& r, int ya, int yb) {
    const long W = info.width;
    for (int y = std::max(ya, r.y0); y <= std::min(yb, r.y1); ++y) {
        for (int x = r.x0; x <= r.x1; ++x) {
            const long i = y * W + x;
            const long nb[4] = {i - 1, i + 1, i - W, i + W};  // left, right, up, down
            const float* cH = labH + 3 * i;
            const float* cV = labV + 3 * i;
            float dLH[4], dLV[4], dCH[4], dCV[4];
            for (int k = 0; k < 4; ++k) {
                const float* nH = labH + 3 * nb[k];
                const float* nV = labV + 3 * nb[k];
                dLH[k] = std::fabs(nH[0] - cH[0]);
                dLV[k] = std::fabs(nV[0] - cV[0]);
                dCH[k] = (nH[1] - cH[1] * nH[1] - cH[1]) + (nH[2] - cH[2] * nH[2] - cH[2]);
                dCV[k] = (nV[1] - cV[1] * nV[1] - cV[1]) + (nV[2] - cV[2] * nV[2] - cV[2]);
            }
            const float epsL = std::min(std::max(dLH[0], dLH[1]), std::max(dLV[2], dLV[3]));
            const float epsC = std::min(std::max(dCH[0], dCH[1]), std::max(dCH[2], dCH[3]));
            int h = 0, v = 0;
            for (int k = 0; k < 4; ++k) {
                h += (dLH[k] <= epsL && dCH[k] <= epsC) ? 1 : 0;
                v += (dLV[k] <= epsL && dCV[k] <= epsC) ? 1 : 0;
            }
            homH[i] = static_cast<float>(h);
            homV[i] = static_cast<float>(v);
        }
    }
}

// Stage 3, pass 2, row y: each map cell becomes the sum of its 3x3 block, written in place (the
// cells above and to the left are already sums). All terms are non-negative, so once a sum is
// infinite every later cell of the row is infinite too, which is filled directly.
void accumulateRow(float* map, const debayerAHD_Info& info, const Region& r, int y) {
    const float inf = std::numeric_limits<float>::infinity();
    const long W = info.width;
    float* row = map + y * W;
    for (int x = r.x0; x <= r.x1; ++x) {
        if (row[x - 1] == inf) {
            for (int xx = x; xx <= r.x1; ++xx) row[xx] = inf;
            return;
        }
        const float* c = row + x;
        float sum = c[-W - 1];
        sum += c[-W];
        sum += c[-W + 1];
        sum += c[-1];
        sum += c[0];
        sum += c[1];
        sum += c[W - 1];
        sum += c[W];
        sum += c[W + 1];
        row[x] = sum;
    }
}

// Output row y from the summed maps: H where its sum is greater, else V; alpha 1.
void selectRow(const float* homH, const float* homV, const float* rgbH, const float* rgbV, float* out,
               const debayerAHD_Info& info, const Region& r, int y) {
    const long W = info.width;
    const float* hh = homH + y * W;
    const float* hv = homV + y * W;
    const float* pH = rgbH + y * W * 3;
    const float* pV = rgbV + y * W * 3;
    float* o = out + y * W * 4;
    for (int x = r.x0; x <= r.x1; ++x) {
        const float* src = hh[x] > hv[x] ? pH + 3 * x : pV + 3 * x;
        o[4 * x] = src[0];
        o[4 * x + 1] = src[1];
        o[4 * x + 2] = src[2];
        o[4 * x + 3] = 1.0f;
    }
}

}  // namespace

// ---- exported stages -----------------------------------------------------------------------------

void debayerAHD_InterpolateRGB(const float* mosaic, float* rgbH, float* rgbV, const debayerAHD_Info& info) {
    CD_ASSERT(info.stride == 1);
    const Region r = ahdRegion(info);
    if (r.empty()) return;
    greenRows<3, true, true>(mosaic, rgbH, rgbV, info, r, r.y0, r.y1);
    redBlueRows<3>(mosaic, rgbH, info, r, r.y0, r.y1);
    redBlueRows<3>(mosaic, rgbV, info, r, r.y0, r.y1);
}

float* debayerAHD_RGBtoLAB(const float* rgb, const debayerAHD_Info& info) {
    const size_t n = static_cast<size_t>(std::max(info.width, 0)) * static_cast<size_t>(std::max(info.height, 0));
    float* lab = allocFloats(n * 3);
    const Region r = ahdRegion(info);
    if (r.empty()) return lab;
    const CubeRootTable table;
    labRows(rgb, lab, info, r, table, r.y0, r.y1);
    return lab;
}

float* debayerAHD_ComputeHomogeneityMapsAndFinalize(const float* labH, const float* labV, const debayerAHD_Info& info,
                                                    const float* rgbH, const float* rgbV) {
    const size_t n = static_cast<size_t>(std::max(info.width, 0)) * static_cast<size_t>(std::max(info.height, 0));
    float* out = allocFloats(n * 4);
    const Region r = ahdRegion(info);
    if (r.empty()) return out;
    float* homH = allocPatchSamples(n);
    float* homV = allocPatchSamples(n);
    if (!homH || !homV) {
        std::free(homH);
        std::free(homV);
        std::free(out);
        throw cd_exception("KR_CinemaDNGDebayeringAHD - out of memory");
    }
    countRows(labH, labV, homH, homV, info, r, r.y0, r.y1);
    for (int y = r.y0; y <= r.y1; ++y) {
        accumulateRow(homH, info, r, y);
        accumulateRow(homV, info, r, y);
        selectRow(homH, homV, rgbH, rgbV, out, info, r, y);
    }
    std::free(homH);
    std::free(homV);
    return out;
}

// ---- the operation -------------------------------------------------------------------------------

std::shared_ptr<KSError> debayerValidateMosaic(const PatchImageBuffer* input) {
    if (!input || input->bufferType != 0 || input->bitsPerChannel != 32 || input->numChannels != 1)
        return KSError::errorWithDomain(kDomain, -1, kWrongInput);
    if (input->width < 0 || input->height < 0)
        return KSError::errorWithDomain(kDomain, -1, "KR_CinemaDNGDebayering - negative image size");
    if (!input->imageBuffer && input->width > 0 && input->height > 0)
        return KSError::errorWithDomain(kDomain, -1, "KR_CinemaDNGDebayering - the input image has no samples");
    return nullptr;
}

KR_CinemaDNGDebayeringAHD::KR_CinemaDNGDebayeringAHD() {
    KSArray identity;
    for (int i = 0; i < 9; ++i) identity.push_back(KSValue::numberWithFloat(i % 4 == 0 ? 1.0f : 0.0f));
    camToXYZMtx_ = KSValue::arrayWithArray(std::move(identity));
}

namespace {

// The three stages interleaved a band of rows at a time, with the same results as running them
// one after the other over the whole frame. The 3x3 sums of the homogeneity maps grow at least
// twofold from row to row at the left edge, so after some dozens of rows the first sum of a row is
// infinite in both maps; from there on every sum of both maps is infinite (each includes its
// infinite left or upper neighbour), every pixel is a tie, and the output is the V candidate. The
// remaining rows then need only V, which is built directly in the result buffer.
void runAHD(const float* mosaic, const debayerAHD_Info& info, float* out) {
    const Region r = ahdRegion(info);
    if (r.empty()) return;
    const size_t n = static_cast<size_t>(info.width) * static_cast<size_t>(info.height);
    struct Buffers {
        float* p[6] = {};
        ~Buffers() {
            for (float* b : p) std::free(b);
        }
    } buf;
    // Fresh zero pages: only the rows actually visited are ever touched.
    for (int i = 0; i < 6; ++i) buf.p[i] = allocFloats(i < 4 ? n * 3 : n);
    float *rgbH = buf.p[0], *rgbV = buf.p[1], *labH = buf.p[2], *labV = buf.p[3], *homH = buf.p[4], *homV = buf.p[5];
    const CubeRootTable table;
    const float inf = std::numeric_limits<float>::infinity();
    constexpr int kBand = 16;
    // Rows through which each stage is done.
    int greenDone = r.y0 - 1, redBlueDone = r.y0 - 1, labDone = r.y0 - 1, countsDone = r.y0 - 1;
    int saturatedRow = -1;
    for (int y = r.y0; y <= r.y1; ++y) {
        // The sums of row y read the counts of row y + 1, which read L*a*b* of rows y .. y + 2,
        // which read red and blue of the same rows, which read green of rows y - 1 .. y + 3.
        if (countsDone < std::min(y + 1, r.y1)) {
            const int counts = std::min(y + kBand, r.y1);
            const int lab = std::min(counts + 1, r.y1);
            const int green = std::min(lab + 1, r.y1);
            greenRows<3, true, true>(mosaic, rgbH, rgbV, info, r, greenDone + 1, green);
            redBlueRows<3>(mosaic, rgbH, info, r, redBlueDone + 1, lab);
            redBlueRows<3>(mosaic, rgbV, info, r, redBlueDone + 1, lab);
            labRows(rgbH, labH, info, r, table, labDone + 1, lab);
            labRows(rgbV, labV, info, r, table, labDone + 1, lab);
            countRows(labH, labV, homH, homV, info, r, countsDone + 1, counts);
            greenDone = green;
            redBlueDone = labDone = lab;
            countsDone = counts;
        }
        accumulateRow(homH, info, r, y);
        accumulateRow(homV, info, r, y);
        selectRow(homH, homV, rgbH, rgbV, out, info, r, y);
        const long first = static_cast<long>(y) * info.width + r.x0;
        if (homH[first] == inf && homV[first] == inf) {
            saturatedRow = y;
            break;
        }
    }
    if (saturatedRow < 0 || saturatedRow == r.y1) return;
    // Rows below: the V candidate only, in the RGBA result (row saturatedRow there already holds
    // V's greens, and the rows past the region hold zeros, as in the candidate buffers).
    const int ya = saturatedRow + 1;
    for (int y = ya; y <= r.y1; y += kBand) {
        const int yb = std::min(y + kBand - 1, r.y1);
        greenRows<4, false, true>(mosaic, nullptr, out, info, r, (y == ya ? y : y + 1), yb + 1);
        redBlueRows<4>(mosaic, out, info, r, y, yb);
        for (int yy = y; yy <= yb; ++yy) {
            float* o = out + static_cast<long>(yy) * info.width * 4;
            for (int x = r.x0; x <= r.x1; ++x) o[4 * x + 3] = 1.0f;
        }
    }
}

}  // namespace

PatchImageBuffer* KR_CinemaDNGDebayeringAHD::debayerInputImage(const PatchImageBuffer* input,
                                                                std::shared_ptr<KSError>* error) {
    if (auto e = debayerValidateMosaic(input)) {
        KSSetError(error, e);
        return nullptr;
    }
    debayerAHD_Info info{input->width, input->height, 1, input->bayerPattern, {1, 0, 0, 0, 1, 0, 0, 0, 1}};
    if (camToXYZMtx_) {
        if (camToXYZMtx_->count() < 9)
            throw cd_exception("KR_CinemaDNGDebayeringAHD - camToXYZMtx needs nine elements");
        for (int i = 0; i < 9; ++i) info.camToXYZ[i] = camToXYZMtx_->objectAtIndex(i)->floatValue();
    }
    const size_t n = static_cast<size_t>(info.width) * static_cast<size_t>(info.height);
    PatchImageBuffer* result = allocPatchImageBuffer();
    float* out = allocPatchSamples(n * 4);
    if (!result || !out) {
        std::free(result);
        std::free(out);
        throw cd_exception("KR_CinemaDNGDebayeringAHD - out of memory");
    }
    try {
        runAHD(static_cast<const float*>(input->imageBuffer), info, out);
    } catch (...) {
        std::free(out);
        std::free(result);
        throw;
    }
    result->width = info.width;
    result->height = info.height;
    result->numChannels = 4;
    result->bitsPerChannel = 32;
    result->bayerPattern = 0;
    result->bufferType = 0;
    result->imageBuffer = out;
    return result;
}

}  // namespace cinedng
