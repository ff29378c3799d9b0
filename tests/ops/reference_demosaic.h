#pragma once
// Plain, literal readings of the two demosaics, written for clarity rather than speed: one pass per
// rule, pow for the L*a*b* cube root, the in-place homogeneity accumulation without shortcuts. The
// library's stages must agree with these bit for bit.
#include <algorithm>
#include <cmath>
#include <vector>

namespace refdemosaic {

// 0 red, 1 green, 2 blue. Red sits at these (x, y) parities, blue at the opposite ones, green at mixed ones.
inline int site(int x, int y, int layout) {
    static const int red[3][2] = {{1, 0}, {0, 0}, {0, 1}};
    if (layout < 0 || layout > 2 || (x % 2 == red[layout][0]) != (y % 2 == red[layout][1])) return 1;
    return x % 2 == red[layout][0] ? 0 : 2;
}

inline float clampRef(float v) { return v < 0 ? 0 : (v > 1 ? 1 : v); }

// Mosaic samples; x = W reads the first sample of the next row, as the AHD region does.
struct Mosaic {
    const std::vector<float>& m;
    int W;
    float operator()(int x, int y) const { return m[(size_t)((long)y * W + x)]; }
    // Green estimate along (dx, dy), clipped below at 0.
    float est(int x, int y, int dx, int dy) const {
        const Mosaic& s = *this;
        return std::max(0.0f, (s(x - dx, y - dy) + s(x + dx, y + dy)) / 2 +
                                  (2 * s(x, y) - s(x - 2 * dx, y - 2 * dy) - s(x + 2 * dx, y + 2 * dy)) / 4);
    }
};

inline float median3(float a, float b, float c) {
    const float s = a + b + c;
    return (float)((double)s - std::fmax(c, std::fmax(a, b)) - std::fmin(c, std::fmin(a, b)));  // in double
}

// L*a*b* (D50) of camera RGB through M.
inline void lab(const float* rgb, const float M[9], float* out) {
    auto f = [](float t) {  // the exponent 1/3 rounded to single precision
        return (double)t > 0.008856451679035631 ? std::pow((double)t, (double)(1.0f / 3.0f)) : (903.2962962962963 * t + 16) / 116;
    };
    const float R = rgb[0], G = rgb[1], B = rgb[2], X = M[0] * R + M[1] * G + M[2] * B,
                Y = M[3] * R + M[4] * G + M[5] * B, Z = M[6] * R + M[7] * G + M[8] * B;
    const double fx = f(X / 0.964221f), fy = f(Y / 1.0f), fz = f(Z / 0.825211f);
    out[0] = (float)(116 * fy - 16), out[1] = (float)(500 * (fx - fy)), out[2] = (float)(200 * (fy - fz));
}

struct AHDResult { std::vector<float> H, V, labH, labV, homH, homV, out; };

inline AHDResult ahd(const std::vector<float>& mos, int W, int Hh, int layout, const float M[9]) {
    const std::vector<float> z1((size_t)W * Hh), z3(z1.size() * 3);
    AHDResult r{z3, z3, z3, z3, z1, z1, std::vector<float>(z1.size() * 4)};
    const Mosaic s{mos, W};
    auto at = [&](std::vector<float>& b, int x, int y, int c) -> float& { return b[((long)y * W + x) * 3 + c]; };
    auto region = [&](auto&& visit) { for (int y = 2; y <= Hh - 3; ++y) for (int x = 2; x <= W - 2; ++x) visit(x, y); };
    // Interpolation, pass 1: the sample in its own channel, green estimates at red and blue sites.
    region([&](int x, int y) {
        const int c = site(x, y, layout);
        at(r.H, x, y, c) = at(r.V, x, y, c) = s(x, y);
        if (c == 1) return;
        at(r.H, x, y, 1) = clampRef(median3(s(x - 1, y), s.est(x, y, 1, 0), s(x + 1, y)));
        at(r.V, x, y, 1) = clampRef(median3(s(x, y - 1), s.est(x, y, 0, 1), s(x, y + 1)));
    });
    // Pass 2, per candidate: red and blue from that candidate's greens.
    for (std::vector<float>* K : {&r.H, &r.V})
        region([&](int x, int y) {
            auto G = [&](int xx, int yy) { return at(*K, xx, yy, 1); };
            const int c = site(x, y, layout);
            if (c != 1) {
                at(*K, x, y, 2 - c) =
                    clampRef(0.25f * (s(x - 1, y - 1) + s(x + 1, y - 1) + s(x - 1, y + 1) + s(x + 1, y + 1)) +
                             0.25f * (4 * G(x, y) - G(x - 1, y - 1) - G(x + 1, y - 1) - G(x - 1, y + 1) - G(x + 1, y + 1)));
                return;
            }
            auto along = [&](int dx, int dy) {
                return clampRef(0.5f * (s(x - dx, y - dy) + s(x + dx, y + dy)) +
                                0.5f * (2 * s(x, y) - G(x - dx, y - dy) - G(x + dx, y + dy)));
            };
            const bool redAlongRow = x % 2 == 0 || y % 2 == 0;  // parity only, whatever the layout
            at(*K, x, y, 0) = redAlongRow ? along(1, 0) : along(0, 1);
            at(*K, x, y, 2) = redAlongRow ? along(0, 1) : along(1, 0);
        });
    region([&](int x, int y) {
        lab(&at(r.H, x, y, 0), M, &at(r.labH, x, y, 0));
        lab(&at(r.V, x, y, 0), M, &at(r.labV, x, y, 0));
    });
    // Homogeneity counts.
    region([&](int x, int y) {
        const int nx[4] = {x - 1, x + 1, x, x}, ny[4] = {y, y, y - 1, y + 1};  // left, right, up, down
        float dL[2][4], dC[2][4];
        for (int m = 0; m < 2; ++m) for (int k = 0; k < 4; ++k) {
            std::vector<float>& L = m ? r.labV : r.labH;
            auto nb = [&](int c) { return at(L, nx[k], ny[k], c); };
            auto ce = [&](int c) { return at(L, x, y, c); };
            dL[m][k] = std::fabs(nb(0) - ce(0));
            dC[m][k] = (nb(1) - ce(1) * nb(1) - ce(1)) + (nb(2) - ce(2) * nb(2) - ce(2));  // as written
        }
        const float epsL = std::min(std::max(dL[0][0], dL[0][1]), std::max(dL[1][2], dL[1][3]));
        const float epsC = std::min(std::max(dC[0][0], dC[0][1]), std::max(dC[0][2], dC[0][3]));  // both in H
        int hom[2] = {0, 0};
        for (int m = 0; m < 2; ++m) for (int k = 0; k < 4; ++k) hom[m] += dL[m][k] <= epsL && dC[m][k] <= epsC;
        r.homH[(long)y * W + x] = (float)hom[0], r.homV[(long)y * W + x] = (float)hom[1];
    });
    // 3x3 sums written back in place, raster order; the more homogeneous candidate, ties to V.
    region([&](int x, int y) {
        const long i = (long)y * W + x;
        for (std::vector<float>* map : {&r.homH, &r.homV}) {
            float sum = 0;
            for (int dy = -1; dy <= 1; ++dy) for (int dx = -1; dx <= 1; ++dx) sum += (*map)[i + dy * W + dx];
            (*map)[i] = sum;
        }
        const std::vector<float>& src = r.homH[i] > r.homV[i] ? r.H : r.V;
        for (int c = 0; c < 3; ++c) r.out[i * 4 + c] = src[i * 3 + c];
        r.out[i * 4 + 3] = 1.0f;
    });
    return r;
}

struct VCDResult { std::vector<float> E, out; };

inline float variance9(float d0, float d2, float d4, float d6, float d8) {
    float d1 = 0;
    d1 = (d1 + d2) / 2;
    const float d[9] = {d0, d1, d2, (d2 + d4) / 2, d4, (d4 + d6) / 2, d6, (d6 + d8) / 2, d8};
    float sum = 0, sq = 0;
    for (float v : d) sum += v;
    for (float v : d) sq += (v - 0.11111111f * sum) * (v - 0.11111111f * sum);
    return 0.11111111f * sq;
}

inline VCDResult vcd(const std::vector<float>& mos, int W, int Hh, int layout, float factor) {
    VCDResult r{std::vector<float>((size_t)W * Hh * 3), std::vector<float>((size_t)W * Hh * 4)};
    const Mosaic s{mos, W};
    auto E = [&](int x, int y, int k) -> float& { return r.E[((long)y * W + x) * 3 + k]; };
    auto O = [&](int x, int y, int c) -> float& { return r.out[((long)y * W + x) * 4 + c]; };
    for (int y = 4; y <= Hh - 5; ++y) for (int x = 4; x <= W - 5; ++x) {
        if (site(x, y, layout) == 1) continue;
        E(x, y, 0) = median3(s(x - 1, y), s.est(x, y, 1, 0), s(x + 1, y));
        E(x, y, 1) = median3(s(x, y - 1), s.est(x, y, 0, 1), s(x, y + 1));
        E(x, y, 2) = (E(x, y, 0) + E(x, y, 1)) / 2;
    }
    // The result starts as the mosaic in each site's own channel.
    for (int y = 0; y < Hh; ++y) for (int x = 0; x < W; ++x) O(x, y, site(x, y, layout)) = s(x, y);
    for (int y = 6; y <= Hh - 7; ++y) for (int x = 6; x <= W - 6; ++x) {
        const int c = site(x, y, layout);
        O(x, y, 3) = 1.0f, O(x, y, c) = s(x, y);
        if (c == 1) continue;
        // Distance 2 on the lines -2, 0, 2, then -1, 1; distance 1 likewise; + side, then - side.
        float Hg = 0, Vg = 0;
        for (int d : {2, 1}) for (int o : {-2, 0, 2, -1, 1}) {
            Hg += std::fabs(s(x + d, y + o) - s(x, y + o));
            Hg += std::fabs(s(x - d, y + o) - s(x, y + o));
            Vg += std::fabs(s(x + o, y + d) - s(x + o, y));
            Vg += std::fabs(s(x + o, y - d) - s(x + o, y));
        }
        Hg = Hg < 1e-9f ? 1e-9f : Hg, Vg = Vg < 1e-9f ? 1e-9f : Vg;
        if (std::max(Vg / Hg, Hg / Vg) > factor) {  // strong edge: horizontal when V >= H
            O(x, y, 1) = Vg >= Hg ? E(x, y, 0) : E(x, y, 1);
            continue;
        }
        // Nine samples along (dx, dy): the first two O.c - O.ref, the others O.c - E.est.
        auto run = [&](int dx, int dy, int ref, int est) {
            auto P = [&](int k, int ch) -> float { return O(x + k * dx, y + k * dy, ch); };
            return variance9(P(-4, c) - P(-4, ref), P(-2, c) - P(-2, ref), P(0, c) - E(x, y, est),
                             P(2, c) - E(x + 2 * dx, y + 2 * dy, est), P(4, c) - E(x + 4 * dx, y + 4 * dy, est));
        };
        const float vh = run(1, 0, 1, 0), vv = run(0, 1, 0, 1);  // vertical: red for d0, d2
        const float vd = (run(1, 0, 1, 2) + run(0, 1, 1, 2)) / 2, m = std::min(vh, std::min(vv, vd));
        O(x, y, 1) = std::max(0.0f, m == vh ? E(x, y, 0) : (m == vv ? E(x, y, 1) : E(x, y, 2)));
    }
    // Red and blue from colour differences, in place, raster order.
    for (int y = 4; y <= Hh - 5; ++y) for (int x = 4; x <= W - 5; ++x) {
        const int c = site(x, y, layout);
        const float G = O(x, y, 1);
        auto diff = [&](int xx, int yy, int ch) { return O(xx, yy, ch) - O(xx, yy, 1); };
        if (c == 1) {
            const int rowC = site(x + 1, y, layout) == 0 ? 0 : 2, colC = 2 - rowC;  // row neighbours red or not
            O(x, y, rowC) = G + (diff(x - 1, y, rowC) + diff(x + 1, y, rowC)) / 2;
            O(x, y, colC) = G + (diff(x, y - 1, colC) + diff(x, y + 1, colC)) / 2;
        } else {
            double sum = 0;
            for (int dy : {-1, 1}) for (int dx : {-1, 1}) sum += (double)diff(x + dx, y + dy, 2 - c);
            O(x, y, 2 - c) = (float)((double)G + 0.25 * sum);
        }
    }
    return r;
}

}  // namespace refdemosaic
