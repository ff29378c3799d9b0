#pragma once
// What a demosaic operation offers: a one-channel float mosaic in, a new RGBA float image out.
#include <memory>

#include "cinedng/KSError.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGDebayeringProtocol {
public:
    virtual ~KR_CinemaDNGDebayeringProtocol();
    // debayerInputImage:withError: the input is only read. Returns a malloc-allocated record
    // (numChannels 4, bitsPerChannel 32, bufferType 0) owned by the caller, or null with an error
    // object stored through `error` (which may be null).
    virtual PatchImageBuffer* debayerInputImage(const PatchImageBuffer* input, std::shared_ptr<KSError>* error) = 0;
};

}  // namespace cinedng
