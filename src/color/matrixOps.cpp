// Dense 3x3 matrix helpers and CIE colorimetry. Everything is single precision and row-major.
// Matrices here are a few dozen elements at most: plain loops, results returned by value.
#include "cinedng/matrixOps.h"

#include <cmath>
#include <cstddef>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"

namespace cinedng {

const std::valarray<float> unitTriple{1.0f, 1.0f, 1.0f};

namespace {

// Shared body of the four multiplyMatrix overloads; a and b are the element pointers and counts.
std::valarray<float> multiply(const float* a, size_t sizeA, const float* b, size_t sizeB, int n) {
    if (n <= 0) {
        // A zero (or negative) inner dimension cannot describe either operand.
        throw cd_exception("matrixOps::multiplyMatrix - matrix size mismatch");
    }
    const size_t inner = static_cast<size_t>(n);
    const size_t rows = sizeA / inner;
    const size_t cols = sizeB / inner;
    if (rows * inner != sizeA || inner * cols != sizeB) {
        throw cd_exception("matrixOps::multiplyMatrix - matrix size mismatch");
    }
    std::valarray<float> result(0.0f, rows * cols);
    for (size_t i = 0; i < rows; ++i) {
        for (size_t k = 0; k < inner; ++k) {
            const float aik = a[i * inner + k];
            for (size_t j = 0; j < cols; ++j) {
                result[i * cols + j] += aik * b[k * cols + j];
            }
        }
    }
    return result;
}

const float* data(const std::valarray<float>& v) { return v.size() ? &v[0] : nullptr; }
const float* data(const std::vector<float>& v) { return v.data(); }

void requireSize(const std::valarray<float>& v, size_t minimum, const char* message) {
    if (v.size() < minimum) {
        throw cd_exception(message);
    }
}

}  // namespace

std::valarray<float> multiplyMatrix(const std::valarray<float>& A, const std::valarray<float>& B, int n) {
    return multiply(data(A), A.size(), data(B), B.size(), n);
}

std::valarray<float> multiplyMatrix(const std::vector<float>& A, const std::valarray<float>& B, int n) {
    return multiply(data(A), A.size(), data(B), B.size(), n);
}

std::valarray<float> multiplyMatrix(const std::valarray<float>& A, const std::vector<float>& B, int n) {
    return multiply(data(A), A.size(), data(B), B.size(), n);
}

std::valarray<float> multiplyMatrix(const std::vector<float>& A, const std::vector<float>& B, int n) {
    return multiply(data(A), A.size(), data(B), B.size(), n);
}

void multiplyByMatrix(std::vector<float>& v, const std::valarray<float>& M, int n) {
    // Only a triple times a 3x3 matrix makes sense; the element reads below need all nine entries.
    if (n <= 0 || (v.size() / static_cast<size_t>(n)) * static_cast<size_t>(n) != 3 || v.size() != 3 ||
        static_cast<size_t>(n) * static_cast<size_t>(n) != M.size() || M.size() != 9) {
        throw cd_exception("matrixOps::multiplyByMatrix - matrix size mismatch");
    }
    const float a = v[0];
    const float b = v[1];
    const float c = v[2];
    // Row vector times M: callers rely on this orientation.
    v[0] = a * M[0] + b * M[3] + c * M[6];
    v[1] = a * M[1] + b * M[4] + c * M[7];
    v[2] = a * M[2] + b * M[5] + c * M[8];
}

std::valarray<float> invertMatrix(const std::valarray<float>& mtx) {
    CD_ASSERT(mtx.size() == 9);
    const std::valarray<float>& M = mtx;
    std::valarray<float> adj(9);
    adj[0] = M[4] * M[8] - M[5] * M[7];
    adj[1] = M[2] * M[7] - M[1] * M[8];
    adj[2] = M[1] * M[5] - M[2] * M[4];
    adj[3] = M[5] * M[6] - M[3] * M[8];
    adj[4] = M[0] * M[8] - M[2] * M[6];
    adj[5] = M[2] * M[3] - M[0] * M[5];
    adj[6] = M[3] * M[7] - M[4] * M[6];
    adj[7] = M[1] * M[6] - M[0] * M[7];
    adj[8] = M[0] * M[4] - M[1] * M[3];
    const float det = M[0] * adj[0] + M[1] * adj[3] + M[2] * adj[6];
    if (det == 0.0f) {
        throw cd_exception("matrixOps::invertMatrix - determinant may not be zero");
    }
    for (size_t i = 0; i < 9; ++i) {
        adj[i] /= det;
    }
    return adj;
}

std::valarray<float> transpose(const std::valarray<float>& M, int n) {
    if (n <= 0) {
        throw cd_exception("matrixOps::transpose - matrix size mismatch");
    }
    const size_t rows = static_cast<size_t>(n);
    const size_t cols = M.size() / rows;
    if (rows * cols != M.size()) {
        throw cd_exception("matrixOps::transpose - matrix size mismatch");
    }
    std::valarray<float> result(0.0f, M.size());
    for (size_t i = 0; i < rows; ++i) {
        for (size_t j = 0; j < cols; ++j) {
            result[j * rows + i] = M[i * cols + j];
        }
    }
    return result;
}

std::valarray<float> diagonalMatrix(const std::valarray<float>& d) {
    const size_t n = d.size();
    std::valarray<float> result(0.0f, n * n);
    for (size_t i = 0; i < n; ++i) {
        result[i * (n + 1)] = d[i];
    }
    return result;
}

std::valarray<float> identityMatrix(int n) {
    return diagonalMatrix(std::valarray<float>(1.0f, n > 0 ? static_cast<size_t>(n) : 0));
}

float cross(const std::valarray<float>& a, const std::valarray<float>& b) {
    if (a.size() != 2 || b.size() != 2) {
        throw cd_exception("matrixOps::cross - matrix size mismatch");
    }
    return a[0] * b[1] - a[1] * b[0];
}

void valarrayassign(std::valarray<float>& destination, const std::valarray<float>& source) {
    destination.resize(source.size(), 0.0f);
    for (size_t i = 0; i < source.size(); ++i) {
        destination[i] = source[i];
    }
}

void valarrayassign(std::valarray<float>& destination, const std::vector<float>& source) {
    destination.resize(source.size(), 0.0f);
    for (size_t i = 0; i < source.size(); ++i) {
        destination[i] = source[i];
    }
}

// ---- colorimetry -----------------------------------------------------------------------------

const float RobertsonMired[31] = {1.0e-10f, 10.0f,  20.0f,  30.0f,  40.0f,  50.0f,  60.0f,  70.0f,
                                  80.0f,    90.0f,  100.0f, 125.0f, 150.0f, 175.0f, 200.0f, 225.0f,
                                  250.0f,   275.0f, 300.0f, 325.0f, 350.0f, 375.0f, 400.0f, 425.0f,
                                  450.0f,   475.0f, 500.0f, 525.0f, 550.0f, 575.0f, 600.0f};

// Robertson (1968) as reproduced by Wyszecki and Stiles, digits as published (including the
// published u of the 325-mired line).
const float Robertson_uvtTable[31][3] = {
    {0.18006f, 0.26352f, -0.24341f}, {0.18066f, 0.26589f, -0.25479f}, {0.18133f, 0.26846f, -0.26876f},
    {0.18208f, 0.27119f, -0.28539f}, {0.18293f, 0.27407f, -0.30470f}, {0.18388f, 0.27709f, -0.32675f},
    {0.18494f, 0.28021f, -0.35156f}, {0.18611f, 0.28342f, -0.37915f}, {0.18740f, 0.28668f, -0.40955f},
    {0.18880f, 0.28997f, -0.44278f}, {0.19032f, 0.29326f, -0.47888f}, {0.19462f, 0.30141f, -0.58204f},
    {0.19962f, 0.30921f, -0.70471f}, {0.20525f, 0.31647f, -0.84901f}, {0.21142f, 0.32312f, -1.0182f},
    {0.21807f, 0.32909f, -1.2168f},  {0.22511f, 0.33439f, -1.4512f},  {0.23247f, 0.33904f, -1.7298f},
    {0.24010f, 0.34308f, -2.0637f},  {0.24702f, 0.34655f, -2.4681f},  {0.25591f, 0.34951f, -2.9641f},
    {0.26400f, 0.35200f, -3.5814f},  {0.27218f, 0.35407f, -4.3633f},  {0.28039f, 0.35577f, -5.3762f},
    {0.28863f, 0.35714f, -6.7262f},  {0.29685f, 0.35823f, -8.5955f},  {0.30505f, 0.35907f, -11.324f},
    {0.31320f, 0.35968f, -15.628f},  {0.32129f, 0.36011f, -23.325f},  {0.32931f, 0.36038f, -40.770f},
    {0.33724f, 0.36051f, -116.45f}};

std::valarray<float> XYZToxy(const std::valarray<float>& XYZ) {
    requireSize(XYZ, 2, "matrixOps::XYZToxy - matrix size mismatch");
    const float s = XYZ.sum();
    return {XYZ[0] / s, XYZ[1] / s};
}

std::valarray<float> xyToXYZ(const std::valarray<float>& xy) {
    requireSize(xy, 2, "matrixOps::xyToXYZ - matrix size mismatch");
    return {xy[0], xy[1], 1.0f - xy[0] - xy[1]};
}

std::valarray<float> xyTouv(const std::valarray<float>& xy) {
    requireSize(xy, 2, "matrixOps::xyTouv - matrix size mismatch");
    const float d = -2.0f * xy[0] + 12.0f * xy[1] + 3.0f;
    return {4.0f * xy[0] / d, 6.0f * xy[1] / d};
}

std::valarray<float> uvToxy(const std::valarray<float>& uv) {
    requireSize(uv, 2, "matrixOps::uvToxy - matrix size mismatch");
    const float d = 2.0f * uv[0] - 8.0f * uv[1] + 4.0f;
    return {3.0f * uv[0] / d, 2.0f * uv[1] / d};
}

std::valarray<float> XYZTouv(const std::valarray<float>& XYZ) {
    requireSize(XYZ, 3, "matrixOps::XYZTouv - matrix size mismatch");
    const float d = XYZ[0] + 15.0f * XYZ[1] + 3.0f * XYZ[2];
    return {4.0f * XYZ[0] / d, 6.0f * XYZ[1] / d};
}

std::valarray<float> uvToXYZ(const std::valarray<float>& uv) { return xyToXYZ(uvToxy(uv)); }

std::valarray<float> matrixsRGBtoXYZ() {
    return {0.4124f, 0.3576f, 0.1805f,  //
            0.2126f, 0.7152f, 0.0722f,  //
            0.0193f, 0.1192f, 0.9505f};
}

// Used exactly as listed: a D50-relative space whose rows sum to (0.964, 1.0, 0.824).
std::valarray<float> matrixAppleGenericRGBToXYZ() {
    return {0.4540f, 0.3530f, 0.1570f,  //
            0.2430f, 0.6740f, 0.0830f,  //
            0.0150f, 0.0900f, 0.7190f};
}

std::valarray<float> matrixBradford() {
    return {0.8951f,  0.2664f,  -0.1614f,  //
            -0.7502f, 1.7135f,  0.0367f,   //
            0.0389f,  -0.0685f, 1.0296f};
}

std::valarray<float> matrixRGBtoXYZ(const std::valarray<float>& c) {
    requireSize(c, 8, "matrixOps::matrixRGBtoXYZ - matrix size mismatch");
    const std::valarray<float> r = xyToXYZ({c[0], c[1]});
    const std::valarray<float> g = xyToXYZ({c[2], c[3]});
    const std::valarray<float> b = xyToXYZ({c[4], c[5]});
    // Primaries as columns.
    const std::valarray<float> P{r[0], g[0], b[0],  //
                                 r[1], g[1], b[1],  //
                                 r[2], g[2], b[2]};
    std::valarray<float> W = xyToXYZ({c[6], c[7]});
    const float whiteY = W[1];  // by value: W /= W[1] would alias the divisor
    W /= whiteY;
    const std::valarray<float> S = multiplyMatrix(invertMatrix(P), W, 3);
    return multiplyMatrix(P, diagonalMatrix(S), 3);
}

std::valarray<float> matrixRGBtoXYZ(const chromaticities& c) {
    return matrixRGBtoXYZ(std::valarray<float>{c.redX, c.redY, c.greenX, c.greenY, c.blueX, c.blueY,
                                               c.whiteX, c.whiteY});
}

std::valarray<float> matrixChromaticAdaptation(const std::valarray<float>& white1,
                                               const std::valarray<float>& white2) {
    // The element-wise ratio of the two cone responses needs whites of one size; any other shape
    // problem is reported by the products below.
    if (white1.size() != white2.size()) {
        throw cd_exception("matrixOps::matrixChromaticAdaptation - matrix size mismatch");
    }
    const std::valarray<float> B = matrixBradford();
    const std::valarray<float> rho1 = multiplyMatrix(B, white1, 3);
    const std::valarray<float> rho2 = multiplyMatrix(B, white2, 3);
    const std::valarray<float> D = diagonalMatrix(rho2 / rho1);
    return multiplyMatrix(multiplyMatrix(invertMatrix(B), D, 3), B, 3);
}

float LightSourceToColorTemperature(uint16_t lightSource) {
    if (lightSource >= 32768) {
        return static_cast<float>(lightSource - 32768);
    }
    switch (lightSource) {
        case 0: return 5500.0f;   // unknown
        case 1: return 5500.0f;   // daylight
        case 2: return 3500.0f;   // fluorescent
        case 3: return 3400.0f;   // tungsten
        case 10: return 5550.0f;  // cloudy
        case 17: return 2856.0f;  // standard light A
        case 18: return 4874.0f;  // standard light B
        case 19: return 6774.0f;  // standard light C
        case 20: return 5500.0f;  // D55
        case 21: return 6500.0f;  // D65
        case 22: return 7500.0f;  // D75
        default: return 5500.0f;
    }
}

float RobertsonDistance(const std::valarray<float>& uv, const float row[3]) {
    requireSize(uv, 2, "matrixOps::RobertsonDistance - matrix size mismatch");
    const float t = row[2];
    const float s = t > 0.0f ? -1.0f : (t < 0.0f ? 1.0f : 0.0f);
    const float len = std::sqrt(1.0f + t * t);
    const std::valarray<float> direction{s / len, t * s / len};
    const std::valarray<float> delta{uv[0] - row[0], uv[1] - row[1]};
    return cross(direction, delta);
}

float XYZToColorTemperature(const std::valarray<float>& XYZ) {
    const std::valarray<float> uv = XYZTouv(XYZ);
    float previous = 0.0f;
    float distance = 0.0f;
    int i = 0;
    for (; i < 31; ++i) {
        previous = distance;
        distance = RobertsonDistance(uv, Robertson_uvtTable[i]);
        if (!(distance > 0.0f)) {
            break;  // first line on or past the point (a NaN stops here too)
        }
    }
    float mired;
    if (i == 0) {
        mired = RobertsonMired[0];
    } else if (i < 31) {
        mired = RobertsonMired[i - 1] +
                previous * (RobertsonMired[i] - RobertsonMired[i - 1]) / (previous - distance);
    } else {
        mired = RobertsonMired[30];
    }
    float temperature = 1.0e6f / mired;
    if (temperature < 2000.0f) temperature = 2000.0f;
    if (temperature > 50000.0f) temperature = 50000.0f;
    return temperature;
}

std::valarray<float> ColorTemperatureToXYZ(float temperature) {
    const float mired = 1.0e6f / temperature;
    int i = 0;
    while (i < 31 && !(RobertsonMired[i] >= mired)) {
        ++i;
    }
    std::valarray<float> uv(2);
    if (i == 0) {
        uv = {Robertson_uvtTable[0][0], Robertson_uvtTable[0][1]};
    } else if (i < 31) {
        const float f = (mired - RobertsonMired[i - 1]) / (RobertsonMired[i] - RobertsonMired[i - 1]);
        uv = {f * Robertson_uvtTable[i][0] + (1.0f - f) * Robertson_uvtTable[i - 1][0],
              f * Robertson_uvtTable[i][1] + (1.0f - f) * Robertson_uvtTable[i - 1][1]};
    } else {
        uv = {Robertson_uvtTable[30][0], Robertson_uvtTable[30][1]};
    }
    return uvToXYZ(uv);
}

uint8_t LuminanceTo8bitsRGB(float luminance) {
    float L = luminance;
    if (!(L >= 0.0f)) L = 0.0f;  // negative, and NaN (whose conversion to 8 bits is undefined)
    if (L > 1.0f) L = 1.0f;
    float V;
    if (L > 0.0031308f) {
        V = 1.055f * std::pow(L, 1.0f / 2.4f) - 0.055f;
    } else {
        V = 12.92f * L;
    }
    return static_cast<uint8_t>(255.0f * V + 0.5f);
}

float toneCurve1(float x) {
    return 0.5f * x + 4.1f * x * x - 6.3f * x * x * x + 2.7f * x * x * x * x;
}

}  // namespace cinedng
