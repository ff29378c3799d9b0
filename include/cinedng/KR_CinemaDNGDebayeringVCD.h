#pragma once
// Variance-of-colour-differences (VCD) demosaic of a one-channel float Bayer mosaic into RGBA floats.
//
// Stage 1 makes median-filtered horizontal and vertical green estimates (and their mean) at every
// red and blue site; stage 2 picks one of them per site, by a strong-edge rule on the gradient
// levels or, when the host raises sharpEdgeBlockFactor to 1 or more, by comparing the variances
// of colour differences over runs of nine samples; stage 3 fills red and blue from colour
// differences. Regions: stage 1 rows/columns 4 .. n-5; stage 2 rows 6 .. height-7 and columns
// 6 .. width-6 (one column wider, on purpose); stage 3 rows/columns 4 .. n-5.
//
// Before stage 2 the result buffer is filled with the mosaic: each pixel's own colour channel holds
// its sample and the other channels (alpha included) are 0. The variance runs read the colour of
// sites to the right and below that stage 2 has not reached yet; they see these samples.
#include <cstdint>
#include <memory>

#include "cinedng/KR_CinemaDNGDebayeringAHD.h"
#include "cinedng/KR_CinemaDNGDebayeringProtocol.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

// Geometry of the mosaic (stride 1) or of the RGBA result (stride 4).
struct debayerVCD_Geometry {
    int32_t width;
    int32_t height;
    int32_t stride;
    int32_t bayerPattern;
};

// ---- stages --------------------------------------------------------------------------------------

// estimates: width*height*3 floats (horizontal, vertical, mean) per pixel; only red and blue sites
// of the region are written.
void debayerVCD_preparationACPIMod(const float* mosaic, float* estimates, const debayerVCD_Geometry& mosaicGeometry);
// rgba: width*height*4 floats; filled with the mosaic first (see above), then green of the region.
void debayerVCD_InterpolateGreen(const float* mosaic, float* rgba, const float* estimates,
                                 const debayerVCD_Geometry& mosaicGeometry, float sharpEdgeBlockFactor);
// Red and blue from colour differences, in place.
void debayerVCD_InterpolateRedBlue(float* rgba, const debayerVCD_Geometry& outputGeometry);

// ---- helpers (mosaic geometry; channelOffset is added to every sample index) ----------------------

// (s(x-1)+s(x+1))/2 + (2s(x)-s(x-2)-s(x+2))/4 along the row / column, clipped below at 0.
float horizPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                      const debayerVCD_Geometry& g, int channelOffset);
float vertPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset);
// Mean of the four direct neighbours plus (4s - s(x,y-2) - s(x,y+2) - s(x-2,y) - s(x+2,y))/8, clipped
// below at 0.
float diagPrelimGreenEstimateForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset);
// Sums of 20 absolute same-row (horizontal) or same-column (vertical) differences over the 5x5
// neighbourhood, at least 1e-9.
float horizontalGradientLevelForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                     const debayerVCD_Geometry& g, int channelOffset);
float verticalGradientLevelForRedOrBlueCenterPixel(int x, int y, const float* mosaic,
                                                   const debayerVCD_Geometry& g, int channelOffset);
// Colour-difference variances over nine samples centred on (x, y) for a site of colour
// `colorChannel` (0 red, 2 blue); rgba and estimates as in debayerVCD_InterpolateGreen.
float horizColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                           const debayerVCD_Geometry& g, int colorChannel);
float vertColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel);
float diagColorVarDiffFor9x9BlockWithRedOrBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                          const debayerVCD_Geometry& g, int colorChannel);

float horizPrelimGreenEstimateForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float horizPrelimGreenEstimateForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float vertPrelimGreenEstimateForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float vertPrelimGreenEstimateForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float diagPrelimGreenEstimateForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float diagPrelimGreenEstimateForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float horizontalGradientLevelForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float horizontalGradientLevelForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float verticalGradientLevelForRedCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
float verticalGradientLevelForBlueCenterPixel(int x, int y, const float* mosaic, const debayerVCD_Geometry& g);
// The variances at a red site (colour channel 0) or a blue site (colour channel 2).
float horizColorVarDiffFor9x9BlockWithRedCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                     const debayerVCD_Geometry& g);
float horizColorVarDiffFor9x9BlockWithBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                      const debayerVCD_Geometry& g);
float vertColorVarDiffFor9x9BlockWithRedCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                    const debayerVCD_Geometry& g);
float vertColorVarDiffFor9x9BlockWithBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                     const debayerVCD_Geometry& g);
float diagColorVarDiffFor9x9BlockWithRedCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                    const debayerVCD_Geometry& g);
float diagColorVarDiffFor9x9BlockWithBlueCenterPixel(int x, int y, const float* rgba, const float* estimates,
                                                     const debayerVCD_Geometry& g);

// ---- the operation -------------------------------------------------------------------------------

class KR_CinemaDNGDebayeringVCD : public KR_CinemaDNGDebayeringProtocol {
public:
    KR_CinemaDNGDebayeringVCD() = default;

    // Below 1 (the default 0.0) the strong-edge rule decides every site.
    float sharpEdgeBlockFactor() const { return sharpEdgeBlockFactor_; }
    void setSharpEdgeBlockFactor(float f) { sharpEdgeBlockFactor_ = f; }

    // debayerInputImage:withError: as KR_CinemaDNGDebayeringAHD (same checks and error); the result
    // record (bayerPattern 0) and its buffer belong to the caller (freePatchImageBuffer).
    PatchImageBuffer* debayerInputImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) override;

private:
    float sharpEdgeBlockFactor_ = 0.0f;
};

}  // namespace cinedng
