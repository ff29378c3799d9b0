#pragma once
// The net colour matrix: one 3x3 matrix from white-balanced camera RGB straight to an output RGB
// space, folding together the camera-to-XYZ matrix of the clip, a Bradford adaptation to the
// output white and the inverse of the output space's RGB-to-XYZ matrix. The result is normalised
// so that its largest row sum is 1 (camera (1, 1, 1) maps to a triple whose largest value is 1)
// and stored in colorMatrixFromSourceRGBToOutputRGB, row-major, applied to a column vector.
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exrStructs.h"

namespace cinedng {

// Output primaries: the chromaticities of the clip's EXR header. The adaptation starts from the
// camera white point of the tag record. Warns on the error stream when the as-shot neutral does
// not come out neutral; a zero-sum result is an assertion.
void determineNetColorMatrix(cd_DNGTags& tags, MetaWriteClip& writeParams, bool verbose);

// Output space: the fixed generic RGB space; the adaptation starts from the locus white of the
// given temperature (kelvin). A zero-sum result raises
// "cd_fullColorMatrix - color matrix from source to out RGB invalid".
void determineNetColorMatrixNonEXRWithCustomWB(cd_DNGTags& tags, MetaWriteClip& writeParams, bool verbose,
                                               float temperature);

}  // namespace cinedng
