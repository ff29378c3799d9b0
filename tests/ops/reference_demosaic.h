#pragma once
// Plain, literal readings of the two demosaic algorithms, written for clarity rather than speed:
// one pass per rule, pow for the L*a*b* cube root, the in-place homogeneity accumulation without
// shortcuts. The optimised library stages must agree with these bit for bit.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace refdemosaic {

// 0 red, 1 green, 2 blue.
inline int site(int x, int y, int layout) {
    const bool xo = x % 2 == 1, yo = y % 2 == 1;
    if (layout == 0) {
        if (xo && !yo) return 0;
        if (!xo && yo) return 2;
        return 1;
    }
    if (layout == 1) {
        if (!xo && !yo) return 0;
        if (xo && yo) return 2;
        return 1;
    }
    if (layout == 2) {
        if (!xo && yo) return 0;
        if (xo && !yo) return 2;
        return 1;
    }
    return 1;
}

inline float clampRef(float v) {
    if (v < 0) return 0;
    if (v > 1) return 1;
    return v;
}

inline float median3(float a, float b, float c) {
    double mx = std::fmax(c, std::fmax(a, b));
    double mn = std::fmin(c, std::fmin(a, b));
    float s = a + b + c;
    return (float)(s - mx - mn);
}

// ---- AHD -----------------------------------------------------------------------------------------

struct AHDResult {
    std::vector<float> H, V, labH, labV, homH, homV, out;
};

inline AHDResult ahd(const std::vector<float>& mos, int W, int Hh, int layout, const float M[9]) {
    AHDResult r;
    const size_t n = (size_t)W * Hh;
    r.H.assign(n * 3, 0.0f);
    r.V.assign(n * 3, 0.0f);
    r.labH.assign(n * 3, 0.0f);
    r.labV.assign(n * 3, 0.0f);
    r.homH.assign(n, 0.0f);
    r.homV.assign(n, 0.0f);
    r.out.assign(n * 4, 0.0f);
    auto s = [&](int x, int y) { return mos[(size_t)((long)y * W + x)]; };  // flat index: x may be W
    auto at = [&](std::vector<float>& b, int x, int y, int c) -> float& { return b[((long)y * W + x) * 3 + c]; };

    // Stage 1, pass 1.
    for (int y = 2; y <= Hh - 3; ++y)
        for (int x = 2; x <= W - 2; ++x) {
            int c = site(x, y, layout);
            if (c == 1) {
                at(r.H, x, y, 1) = s(x, y);
                at(r.V, x, y, 1) = s(x, y);
            } else {
                float gh = (s(x - 1, y) + s(x + 1, y)) / 2 + (2 * s(x, y) - s(x - 2, y) - s(x + 2, y)) / 4;
                gh = std::max(0.0f, gh);
                float gv = (s(x, y - 1) + s(x, y + 1)) / 2 + (2 * s(x, y) - s(x, y - 2) - s(x, y + 2)) / 4;
                gv = std::max(0.0f, gv);
                at(r.H, x, y, c) = s(x, y);
                at(r.V, x, y, c) = s(x, y);
                at(r.H, x, y, 1) = clampRef(median3(s(x - 1, y), gh, s(x + 1, y)));
                at(r.V, x, y, 1) = clampRef(median3(s(x, y - 1), gv, s(x, y + 1)));
            }
        }
    // Stage 1, pass 2.
    for (std::vector<float>* K : {&r.H, &r.V})
        for (int y = 2; y <= Hh - 3; ++y)
            for (int x = 2; x <= W - 2; ++x) {
                auto G = [&](int xx, int yy) { return at(*K, xx, yy, 1); };
                int c = site(x, y, layout);
                if (c == 0 || c == 2) {
                    float v = clampRef(0.25f * (s(x - 1, y - 1) + s(x + 1, y - 1) + s(x - 1, y + 1) + s(x + 1, y + 1)) +
                                       0.25f * (4 * G(x, y) - G(x - 1, y - 1) - G(x + 1, y - 1) - G(x - 1, y + 1) -
                                                G(x + 1, y + 1)));
                    at(*K, x, y, c == 0 ? 2 : 0) = v;
                } else {
                    float rowV = clampRef(0.5f * (s(x - 1, y) + s(x + 1, y)) +
                                          0.5f * (2 * s(x, y) - G(x - 1, y) - G(x + 1, y)));
                    float colV = clampRef(0.5f * (s(x, y - 1) + s(x, y + 1)) +
                                          0.5f * (2 * s(x, y) - G(x, y - 1) - G(x, y + 1)));
                    if (x % 2 == 0 || y % 2 == 0) {
                        at(*K, x, y, 0) = rowV;
                        at(*K, x, y, 2) = colV;
                    } else {
                        at(*K, x, y, 0) = colV;
                        at(*K, x, y, 2) = rowV;
                    }
                }
            }
    // Stage 2.
    const float Xn = 0.964221f, Yn = 1.0f, Zn = 0.825211f;
    const double e = (double)(1.0f / 3.0f);
    auto f = [&](float t) -> double {
        if ((double)t > 0.008856451679035631) return std::pow((double)t, e);
        return (903.2962962962963 * t + 16) / 116;
    };
    for (int k = 0; k < 2; ++k) {
        std::vector<float>& src = k == 0 ? r.H : r.V;
        std::vector<float>& lab = k == 0 ? r.labH : r.labV;
        for (int y = 2; y <= Hh - 3; ++y)
            for (int x = 2; x <= W - 2; ++x) {
                float R = at(src, x, y, 0), G = at(src, x, y, 1), B = at(src, x, y, 2);
                float X = M[0] * R + M[1] * G + M[2] * B;
                float Y = M[3] * R + M[4] * G + M[5] * B;
                float Z = M[6] * R + M[7] * G + M[8] * B;
                double fx = f(X / Xn), fy = f(Y / Yn), fz = f(Z / Zn);
                at(lab, x, y, 0) = (float)(116 * fy - 16);
                at(lab, x, y, 1) = (float)(500 * (fx - fy));
                at(lab, x, y, 2) = (float)(200 * (fy - fz));
            }
    }
    // Stage 3, pass 1.
    for (int y = 2; y <= Hh - 3; ++y)
        for (int x = 2; x <= W - 2; ++x) {
            const int nx[4] = {x - 1, x + 1, x, x};
            const int ny[4] = {y, y, y - 1, y + 1};
            float dLH[4], dLV[4], dCH[4], dCV[4];
            for (int k = 0; k < 4; ++k) {
                dLH[k] = std::fabs(at(r.labH, nx[k], ny[k], 0) - at(r.labH, x, y, 0));
                dLV[k] = std::fabs(at(r.labV, nx[k], ny[k], 0) - at(r.labV, x, y, 0));
                float ak = at(r.labH, nx[k], ny[k], 1), ac = at(r.labH, x, y, 1);
                float bk = at(r.labH, nx[k], ny[k], 2), bc = at(r.labH, x, y, 2);
                dCH[k] = (ak - ac * ak - ac) + (bk - bc * bk - bc);
                ak = at(r.labV, nx[k], ny[k], 1), ac = at(r.labV, x, y, 1);
                bk = at(r.labV, nx[k], ny[k], 2), bc = at(r.labV, x, y, 2);
                dCV[k] = (ak - ac * ak - ac) + (bk - bc * bk - bc);
            }
            float epsL = std::min(std::max(dLH[0], dLH[1]), std::max(dLV[2], dLV[3]));
            float epsC = std::min(std::max(dCH[0], dCH[1]), std::max(dCH[2], dCH[3]));
            int h = 0, v = 0;
            for (int k = 0; k < 4; ++k) {
                if (dLH[k] <= epsL && dCH[k] <= epsC) h++;
                if (dLV[k] <= epsL && dCV[k] <= epsC) v++;
            }
            r.homH[(long)y * W + x] = (float)h;
            r.homV[(long)y * W + x] = (float)v;
        }
    // Stage 3, pass 2: in place, raster order.
    for (int y = 2; y <= Hh - 3; ++y)
        for (int x = 2; x <= W - 2; ++x) {
            for (std::vector<float>* map : {&r.homH, &r.homV}) {
                float sum = 0;
                bool first = true;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        float v = (*map)[(long)(y + dy) * W + x + dx];
                        sum = first ? v : sum + v;
                        first = false;
                    }
                (*map)[(long)y * W + x] = sum;
            }
            long i = (long)y * W + x;
            std::vector<float>& src = r.homH[i] > r.homV[i] ? r.H : r.V;
            for (int c = 0; c < 3; ++c) r.out[i * 4 + c] = src[i * 3 + c];
            r.out[i * 4 + 3] = 1.0f;
        }
    return r;
}

// ---- VCD -----------------------------------------------------------------------------------------

struct VCDResult {
    std::vector<float> E, out;
};

inline float variance9(float d0, float d2, float d4, float d6, float d8) {
    float d[9];
    d[0] = d0;
    d[2] = d2;
    d[4] = d4;
    d[6] = d6;
    d[8] = d8;
    d[1] = 0;
    d[1] = (d[1] + d[2]) / 2;
    d[3] = (d[2] + d[4]) / 2;
    d[5] = (d[4] + d[6]) / 2;
    d[7] = (d[6] + d[8]) / 2;
    float sum = 0;
    for (int k = 0; k < 9; ++k) sum += d[k];
    float mean = 0.11111111f * sum;
    float sq = 0;
    for (int k = 0; k < 9; ++k) sq += (d[k] - mean) * (d[k] - mean);
    return 0.11111111f * sq;
}

inline VCDResult vcd(const std::vector<float>& mos, int W, int Hh, int layout, float factor) {
    VCDResult r;
    const size_t n = (size_t)W * Hh;
    r.E.assign(n * 3, 0.0f);
    r.out.assign(n * 4, 0.0f);
    auto s = [&](int x, int y) { return mos[(size_t)((long)y * W + x)]; };
    auto E = [&](int x, int y, int k) -> float& { return r.E[((long)y * W + x) * 3 + k]; };
    auto O = [&](int x, int y, int c) -> float& { return r.out[((long)y * W + x) * 4 + c]; };

    // Stage 1.
    for (int y = 4; y <= Hh - 5; ++y)
        for (int x = 4; x <= W - 5; ++x) {
            if (site(x, y, layout) == 1) continue;
            float h = (s(x - 1, y) + s(x + 1, y)) / 2 + (2 * s(x, y) - s(x - 2, y) - s(x + 2, y)) / 4;
            h = std::max(0.0f, h);
            float v = (s(x, y - 1) + s(x, y + 1)) / 2 + (2 * s(x, y) - s(x, y - 2) - s(x, y + 2)) / 4;
            v = std::max(0.0f, v);
            E(x, y, 0) = median3(s(x - 1, y), h, s(x + 1, y));
            E(x, y, 1) = median3(s(x, y - 1), v, s(x, y + 1));
            E(x, y, 2) = (E(x, y, 0) + E(x, y, 1)) / 2;
        }
    // The result starts as the mosaic in each site's own channel.
    for (int y = 0; y < Hh; ++y)
        for (int x = 0; x < W; ++x) O(x, y, site(x, y, layout)) = s(x, y);
    // Stage 2.
    for (int y = 6; y <= Hh - 7; ++y)
        for (int x = 6; x <= W - 6; ++x) {
            int c = site(x, y, layout);
            O(x, y, 3) = 1.0f;
            O(x, y, c) = s(x, y);
            if (c == 1) continue;
            float Hg = 0, Vg = 0;
            // Horizontal: distance 2 on rows y-2, y, y+2 then y-1, y+1; distance 1 likewise.
            for (int dy : {-2, 0, 2}) {
                Hg += std::fabs(s(x + 2, y + dy) - s(x, y + dy));
                Hg += std::fabs(s(x - 2, y + dy) - s(x, y + dy));
            }
            for (int dy : {-1, 1}) {
                Hg += std::fabs(s(x + 2, y + dy) - s(x, y + dy));
                Hg += std::fabs(s(x - 2, y + dy) - s(x, y + dy));
            }
            for (int dy : {-2, 0, 2}) {
                Hg += std::fabs(s(x + 1, y + dy) - s(x, y + dy));
                Hg += std::fabs(s(x - 1, y + dy) - s(x, y + dy));
            }
            for (int dy : {-1, 1}) {
                Hg += std::fabs(s(x + 1, y + dy) - s(x, y + dy));
                Hg += std::fabs(s(x - 1, y + dy) - s(x, y + dy));
            }
            for (int dx : {-2, 0, 2}) {
                Vg += std::fabs(s(x + dx, y + 2) - s(x + dx, y));
                Vg += std::fabs(s(x + dx, y - 2) - s(x + dx, y));
            }
            for (int dx : {-1, 1}) {
                Vg += std::fabs(s(x + dx, y + 2) - s(x + dx, y));
                Vg += std::fabs(s(x + dx, y - 2) - s(x + dx, y));
            }
            for (int dx : {-2, 0, 2}) {
                Vg += std::fabs(s(x + dx, y + 1) - s(x + dx, y));
                Vg += std::fabs(s(x + dx, y - 1) - s(x + dx, y));
            }
            for (int dx : {-1, 1}) {
                Vg += std::fabs(s(x + dx, y + 1) - s(x + dx, y));
                Vg += std::fabs(s(x + dx, y - 1) - s(x + dx, y));
            }
            if (Hg < 1e-9f) Hg = 1e-9f;
            if (Vg < 1e-9f) Vg = 1e-9f;
            if (std::max(Vg / Hg, Hg / Vg) > factor) {
                O(x, y, 1) = Vg >= Hg ? E(x, y, 0) : E(x, y, 1);
                continue;
            }
            float vh = variance9(O(x - 4, y, c) - O(x - 4, y, 1), O(x - 2, y, c) - O(x - 2, y, 1),
                                 O(x, y, c) - E(x, y, 0), O(x + 2, y, c) - E(x + 2, y, 0),
                                 O(x + 4, y, c) - E(x + 4, y, 0));
            float vv = variance9(O(x, y - 4, c) - O(x, y - 4, 0), O(x, y - 2, c) - O(x, y - 2, 0),
                                 O(x, y, c) - E(x, y, 1), O(x, y + 2, c) - E(x, y + 2, 1),
                                 O(x, y + 4, c) - E(x, y + 4, 1));
            float vrow = variance9(O(x - 4, y, c) - O(x - 4, y, 1), O(x - 2, y, c) - O(x - 2, y, 1),
                                   O(x, y, c) - E(x, y, 2), O(x + 2, y, c) - E(x + 2, y, 2),
                                   O(x + 4, y, c) - E(x + 4, y, 2));
            float vcol = variance9(O(x, y - 4, c) - O(x, y - 4, 1), O(x, y - 2, c) - O(x, y - 2, 1),
                                   O(x, y, c) - E(x, y, 2), O(x, y + 2, c) - E(x, y + 2, 2),
                                   O(x, y + 4, c) - E(x, y + 4, 2));
            float vd = (vrow + vcol) / 2;
            float m = std::min(vh, std::min(vv, vd));
            float g;
            if (m == vh)
                g = E(x, y, 0);
            else if (m == vv)
                g = E(x, y, 1);
            else
                g = E(x, y, 2);
            O(x, y, 1) = std::max(0.0f, g);
        }
    // Stage 3, in place, raster order.
    for (int y = 4; y <= Hh - 5; ++y)
        for (int x = 4; x <= W - 5; ++x) {
            int c = site(x, y, layout);
            float G = O(x, y, 1);
            if (c == 1) {
                bool redRow = (layout == 0 && x % 2 == 0 && y % 2 == 0) || (layout == 1 && x % 2 == 1 && y % 2 == 0) ||
                              (layout == 2 && x % 2 == 1 && y % 2 == 1);
                float rowR = G + ((O(x - 1, y, 0) - O(x - 1, y, 1)) + (O(x + 1, y, 0) - O(x + 1, y, 1))) / 2;
                float colR = G + ((O(x, y - 1, 0) - O(x, y - 1, 1)) + (O(x, y + 1, 0) - O(x, y + 1, 1))) / 2;
                float rowB = G + ((O(x - 1, y, 2) - O(x - 1, y, 1)) + (O(x + 1, y, 2) - O(x + 1, y, 1))) / 2;
                float colB = G + ((O(x, y - 1, 2) - O(x, y - 1, 1)) + (O(x, y + 1, 2) - O(x, y + 1, 1))) / 2;
                if (redRow) {
                    O(x, y, 0) = rowR;
                    O(x, y, 2) = colB;
                } else {
                    // Computed one after the other, as the rule reads, in place.
                    O(x, y, 0) = colR;
                    O(x, y, 2) = G + ((O(x - 1, y, 2) - O(x - 1, y, 1)) + (O(x + 1, y, 2) - O(x + 1, y, 1))) / 2;
                    (void)rowB;
                }
            } else {
                int t = c == 0 ? 2 : 0;
                double sum = 0;
                sum += (double)(O(x - 1, y - 1, t) - O(x - 1, y - 1, 1));
                sum += (double)(O(x + 1, y - 1, t) - O(x + 1, y - 1, 1));
                sum += (double)(O(x - 1, y + 1, t) - O(x - 1, y + 1, 1));
                sum += (double)(O(x + 1, y + 1, t) - O(x + 1, y + 1, 1));
                O(x, y, t) = (float)((double)G + 0.25 * sum);
            }
        }
    return r;
}

}  // namespace refdemosaic
