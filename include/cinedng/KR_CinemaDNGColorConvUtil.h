#pragma once
// Applies a 3x3 colour matrix (row-major array of nine numbers) to every pixel of an RGBA float frame.
#include "cinedng/KSValue.h"
#include "cinedng/PatchImageBuffer.h"

namespace cinedng {

class KR_CinemaDNGColorConvUtil {
public:
    // applyColorConvMatrix:toInputImage:
    //  - null input: null;
    //  - input with samples and a null matrix: the input record itself, unchanged (not a copy: the
    //    caller must not free it a second time);
    //  - a matrix of other than nine numbers: logs "KR_CinemaDNGColorConvUtil: The conversion matrix
    //    needs to be 3x3 but the array size is <n>!" and returns null;
    //  - an input that is not four-channel float: logs "KR_CinemaDNGColorConvUtil: The conversion
    //    matrix utility expects a RGBA float buffer as input!" and returns null;
    //  - otherwise a new record (malloc, with a malloc'd buffer; freePatchImageBuffer) whose R, G, B
    //    are the matrix times the input's and whose alpha is 1.0. bayerPattern of it is 0.
    static PatchImageBuffer* applyColorConvMatrix(const KSValuePtr& matrix, PatchImageBuffer* image);
};

}  // namespace cinedng
