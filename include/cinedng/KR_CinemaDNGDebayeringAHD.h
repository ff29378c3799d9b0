#pragma once
// Adaptive homogeneity-directed (AHD) demosaic of a one-channel float Bayer mosaic into RGBA floats.
//
// Two full-colour candidates are built, H (green interpolated along the row) and V (green
// interpolated along the column); both are converted to CIE L*a*b* (D50) through the camera-to-XYZ
// matrix; per pixel a homogeneity count is taken in each candidate and the output pixel is taken
// from the more homogeneous one (a tie goes to V).
//
// Every stage visits rows 2 .. height-3 and columns 2 .. width-2 inclusive (the last column is one
// further out than the last row, on purpose; at column width-2 the reach of two columns continues
// into the first samples of the next row). Nothing outside that region is written; all buffers of
// a run start zero-filled, so the border of the result is zero (alpha included).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include "cinedng/KR_CinemaDNGDebayeringProtocol.h"
#include "cinedng/KSValue.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

// Key under which a host passes the camera-to-XYZ matrix in its own option dictionaries.
extern const char* const KR_AHD_CamToXYZMtxKey;  // "AHD_CamToXYZMtxKey"

// 0 below 0, 1 above 1, else v.
inline float clamp(float v) {
    return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
}

// The middle one of three values: a + b + c - max - min, the extremes taken in double precision.
// (Any NaN makes the sum NaN, and the sign of a zero extreme never changes the result, so plain
// comparisons give the same bits as fmax/fmin here, and they vectorise.)
inline float medianOf3(float a, float b, float c) {
    const float sum = a + b + c;
    const float mxab = a > b ? a : b;
    const float mnab = a < b ? a : b;
    const double mx = c > mxab ? c : mxab;
    const double mn = c < mnab ? c : mnab;
    return static_cast<float>(static_cast<double>(sum) - mx - mn);
}

// Colour of photosite (x, y) in a layout: 0 red, 1 green, 2 blue. Layouts other than 0, 1, 2 are
// all green.
inline int debayerSiteColor(int x, int y, int bayerPattern) {
    const bool xo = (x & 1) != 0, yo = (y & 1) != 0;
    switch (bayerPattern) {
        case 0: return (xo && !yo) ? 0 : ((!xo && yo) ? 2 : 1);
        case 1: return (!xo && !yo) ? 0 : ((xo && yo) ? 2 : 1);
        case 2: return (!xo && yo) ? 0 : ((xo && !yo) ? 2 : 1);
        default: return 1;
    }
}

// Working record handed between the three stages. The mosaic sample of (x, y) is element
// (y * width + x) * stride.
struct debayerAHD_Info {
    int32_t width;
    int32_t height;
    int32_t stride;  // always 1
    int32_t bayerPattern;
    float camToXYZ[9];  // row-major, first row gives X
};

// ---- stages (each buffer holds width*height pixels; rgb and Lab buffers 3 floats per pixel) ----

// Fills the green, then the red and blue channels of both candidates inside the processed region.
void debayerAHD_InterpolateRGB(const float* mosaic, float* rgbH, float* rgbV, const debayerAHD_Info& info);
// A new zero-filled width*height*3 buffer (malloc, freed by the caller) holding L, a, b of the
// region's pixels of one candidate.
float* debayerAHD_RGBtoLAB(const float* rgb, const debayerAHD_Info& info);
// Homogeneity maps, their in-place 3x3 accumulation and the choice of candidate. Returns a new
// zero-filled width*height*4 RGBA buffer (malloc, owned by the caller).
float* debayerAHD_ComputeHomogeneityMapsAndFinalize(const float* labH, const float* labV, const debayerAHD_Info& info,
                                                    const float* rgbH, const float* rgbV);

// ---- helpers -------------------------------------------------------------------------------------

// Green estimates at a red or blue site, (s(x-1)+s(x+1))/2 + (2s(x)-s(x-2)-s(x+2))/4 along the row
// (horiz) or the column (vert), clipped below at 0. channelOffset is added to every sample index.
float horizGreenInterpolationForRedOrBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info,
                                                     int channelOffset);
float vertGreenInterpolationForRedOrBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info,
                                                    int channelOffset);
float horizGreenInterpolationForRedCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info);
float vertGreenInterpolationForRedCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info);
float horizGreenInterpolationForBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info);
float vertGreenInterpolationForBlueCenterPixel(int x, int y, const float* mosaic, const debayerAHD_Info& info);

// ---- the operation -------------------------------------------------------------------------------

class KR_CinemaDNGDebayeringAHD : public KR_CinemaDNGDebayeringProtocol {
public:
    // init: camToXYZMtx is the identity.
    KR_CinemaDNGDebayeringAHD();

    // Array of nine numbers, row-major camera RGB -> XYZ. Null keeps the identity in force.
    KSValuePtr camToXYZMtx() const { return camToXYZMtx_; }
    void setCamToXYZMtx(KSValuePtr matrix) { camToXYZMtx_ = std::move(matrix); }

    // debayerInputImage:withError: a monochrome 32-bit float mosaic in (read only), a new RGBA
    // record out (bayerPattern of the result is 0), owned by the caller (freePatchImageBuffer).
    // Wrong buffer kinds give null and the error ("KR_CinemaDNGDebayering", -1). A matrix with fewer
    // than nine entries raises cd_exception.
    PatchImageBuffer* debayerInputImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) override;

private:
    KSValuePtr camToXYZMtx_;
};

// Checks shared by both demosaics: the error object for a wrong buffer kind, or null when the input
// is a usable monochrome 32-bit float mosaic.
std::shared_ptr<KSError> debayerValidateMosaic(const PatchImageBuffer* input);

}  // namespace cinedng
