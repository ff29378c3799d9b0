#include "cinedng/KR_CinemaDNGDebayeringProtocol.h"

namespace cinedng {

KR_CinemaDNGDebayeringProtocol::~KR_CinemaDNGDebayeringProtocol() = default;

}  // namespace cinedng
