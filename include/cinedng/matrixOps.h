#pragma once
// Small dense-matrix toolkit and CIE colorimetry on single-precision float arrays.
//
// Matrices and vectors are flat float arrays, row-major: element (r, c) of a matrix with N columns
// is at r*N + c. A 3x3 matrix is 9 floats, a colour triple 3 floats. Functions that need a shape
// are given one dimension and derive the other from the element count.
//
// Size errors are raised as cd_exception with a fixed message ("matrixOps::<function> - ...").
// invertMatrix of anything but a 3x3 matrix is a programming error (assertion "mtx.size() == 9").
//
// Colorimetry conventions: XYZ triples built from chromaticities or temperatures are normalised to
// X + Y + Z = 1 (xyToXYZ gives (x, y, 1 - x - y)); callers that need Y = 1 divide by element 1.
#include <cstdint>
#include <valarray>
#include <vector>

namespace cinedng {

struct chromaticities;

// The unit triple (1, 1, 1), a process-wide constant.
extern const std::valarray<float> unitTriple;

// ---- matrix operations -----------------------------------------------------------------------

// A * B with inner dimension n: A is (|A|/n) x n, B is n x (|B|/n). Any pairing of value array and
// float vector; all four behave identically.
std::valarray<float> multiplyMatrix(const std::valarray<float>& A, const std::valarray<float>& B, int n);
std::valarray<float> multiplyMatrix(const std::vector<float>& A, const std::valarray<float>& B, int n);
std::valarray<float> multiplyMatrix(const std::valarray<float>& A, const std::vector<float>& B, int n);
std::valarray<float> multiplyMatrix(const std::vector<float>& A, const std::vector<float>& B, int n);

// v := v * M, the triple taken as a ROW vector multiplied from the left (i.e. the transpose of M
// applied to v). Only a 3-element v with a 3x3 M (n = 3) is accepted.
void multiplyByMatrix(std::vector<float>& v, const std::valarray<float>& M, int n);

// Inverse of a 3x3 matrix by cofactors (no pivoting, no tolerance). A determinant equal to 0 is
// refused; a NaN determinant yields a NaN matrix.
std::valarray<float> invertMatrix(const std::valarray<float>& mtx);

// M read as n rows of |M|/n columns, transposed.
std::valarray<float> transpose(const std::valarray<float>& M, int n);

// n x n matrix with d (n elements) on the diagonal.
std::valarray<float> diagonalMatrix(const std::valarray<float>& d);

// n x n identity.
std::valarray<float> identityMatrix(int n);

// 2-D cross product a0*b1 - a1*b0; both arguments must hold exactly 2 elements.
float cross(const std::valarray<float>& a, const std::valarray<float>& b);

// destination := source (resized to the source's size first).
void valarrayassign(std::valarray<float>& destination, const std::valarray<float>& source);
void valarrayassign(std::valarray<float>& destination, const std::vector<float>& source);

// ---- colorimetry -----------------------------------------------------------------------------

// Mired values of Robertson's 31 isotemperature lines; the first is 1e-10 rather than 0 so that
// 1e6 / mired never divides by zero.
extern const float RobertsonMired[31];
// CIE 1960 (u, v) of each line's point on the Planckian locus and the line's slope t, as published.
extern const float Robertson_uvtTable[31][3];

std::valarray<float> XYZToxy(const std::valarray<float>& XYZ);
std::valarray<float> xyToXYZ(const std::valarray<float>& xy);
std::valarray<float> xyTouv(const std::valarray<float>& xy);
std::valarray<float> uvToxy(const std::valarray<float>& uv);
std::valarray<float> XYZTouv(const std::valarray<float>& XYZ);
std::valarray<float> uvToXYZ(const std::valarray<float>& uv);

// Fixed RGB -> XYZ matrices (rows give X, Y, Z) and the Bradford cone response matrix.
std::valarray<float> matrixsRGBtoXYZ();
std::valarray<float> matrixAppleGenericRGBToXYZ();
std::valarray<float> matrixBradford();

// RGB -> XYZ for the given primaries and white; RGB (1, 1, 1) maps to the white with Y = 1.
std::valarray<float> matrixRGBtoXYZ(const chromaticities& c);
// Same, from the eight floats red x, red y, green x, green y, blue x, blue y, white x, white y.
std::valarray<float> matrixRGBtoXYZ(const std::valarray<float>& c);

// Bradford adaptation from white 1 to white 2 (both XYZ in the same normalisation).
std::valarray<float> matrixChromaticAdaptation(const std::valarray<float>& white1,
                                               const std::valarray<float>& white2);

// EXIF LightSource code to kelvin (codes from 32768 carry the temperature + 32768).
float LightSourceToColorTemperature(uint16_t lightSource);

// Signed distance of uv from one isotemperature line (u, v, t).
float RobertsonDistance(const std::valarray<float>& uv, const float row[3]);

// Correlated colour temperature by Robertson's method, clamped to 2000 ... 50000 K.
float XYZToColorTemperature(const std::valarray<float>& XYZ);

// The Planckian locus point of a temperature as (x, y, 1 - x - y), linear between table lines.
std::valarray<float> ColorTemperatureToXYZ(float temperature);

// Linear luminance to an 8-bit sRGB code value.
uint8_t LuminanceTo8bitsRGB(float luminance);

// 0.5x + 4.1x^2 - 6.3x^3 + 2.7x^4.
float toneCurve1(float x);

}  // namespace cinedng
