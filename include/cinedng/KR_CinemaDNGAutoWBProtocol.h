#pragma once
// What an automatic white balance offers: the colour temperature (kelvin) of an RGBA float frame.
#include <memory>

#include "cinedng/KSError.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGAutoWBProtocol {
public:
    virtual ~KR_CinemaDNGAutoWBProtocol();
    // computeAutoWBForInputImage:withError: the estimated temperature, or -1.0 with an error object
    // stored through `error` (which may be null).
    virtual float computeAutoWBForInputImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) = 0;
};

}  // namespace cinedng
