#pragma once
// Iterative automatic white balance: estimates the colour temperature (kelvin) of the light in a
// demosaiced RGBA float frame (camera-neutral RGB after the white balance already applied).
//
// On a private copy of the frame it measures the mean R, G, B of the usable 8x8 blocks (sampling
// every third pixel of every third row, 20 pixels in from the border), computes the Bradford
// adaptation that would make that mean neutral in the generic RGB space, applies it to the sampled
// pixels and measures again, until the three means agree within 5 % or twenty rounds have run. The
// product of all adaptations, combined with the adaptation of alreadyAppliedWBTemperature, gives
// the scene white, whose correlated colour temperature is the result. Progress lines go to standard
// output.
//
// Samples in the last partial band of rows or columns (when width - 40 or height - 40 is not a
// multiple of 8) lie outside the block grid; they are treated as belonging to an excluded block and
// never counted.
#include <memory>
#include <string>

#include "cinedng/KR_CinemaDNGAutoWBProtocol.h"
#include "cinedng/KSError.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGAutoWBIterative : public KR_CinemaDNGAutoWBProtocol {
public:
    KR_CinemaDNGAutoWBIterative() = default;

    float alreadyAppliedWBTemperature() const { return alreadyAppliedWBTemperature_; }
    void setAlreadyAppliedWBTemperature(float kelvin) { alreadyAppliedWBTemperature_ = kelvin; }

    // The input is read as four floats per pixel and never changed. A buffer that is not 32-bit
    // float gives -1.0 and the error ("KR_CinemaDNGAutoWBIterative", -1).
    float computeAutoWBForInputImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) override;

    // debug_WriteImage:toFile: writes the RGBA float buffer (four 32-bit float samples per pixel) as
    // an uncompressed little-endian TIFF. A leading "~" is expanded from $HOME; an existing file is
    // removed first. Returns whether the whole file was written; false when the record has no
    // samples, fewer than four channels or a non-positive size.
    static bool debug_WriteImage(PatchImageBuffer image, const std::string& path);

private:
    float alreadyAppliedWBTemperature_ = 5000.0f;
};

}  // namespace cinedng
