#include "cinedng/KR_CinemaDNGAutoWBProtocol.h"

namespace cinedng {

KR_CinemaDNGAutoWBProtocol::~KR_CinemaDNGAutoWBProtocol() = default;

}  // namespace cinedng
