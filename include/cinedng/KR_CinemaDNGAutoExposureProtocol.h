#pragma once
// What an automatic exposure offers: the factor by which an RGBA float frame should be multiplied.
#include <memory>

#include "cinedng/KSError.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGAutoExposureProtocol {
public:
    virtual ~KR_CinemaDNGAutoExposureProtocol();
    // computeAutoExposureFactorForImage:withError: the factor, or -1.0 with an error object stored
    // through `error` (which may be null).
    virtual float computeAutoExposureFactorForImage(const PatchImageBuffer* input,
                                                    std::shared_ptr<KSError>* error) = 0;
};

}  // namespace cinedng
