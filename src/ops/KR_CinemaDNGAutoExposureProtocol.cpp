#include "cinedng/KR_CinemaDNGAutoExposureProtocol.h"

namespace cinedng {

KR_CinemaDNGAutoExposureProtocol::~KR_CinemaDNGAutoExposureProtocol() = default;

}  // namespace cinedng
