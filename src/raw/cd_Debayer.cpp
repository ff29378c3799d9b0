#include "cinedng/cd_Debayer.h"

#include <algorithm>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

void cd_Debayer::checkSetup() {
    CD_ASSERT(pRawImagePixels != NULL);
    CD_ASSERT(pOutputRowData != NULL);
    CD_ASSERT(inputRows > 0);
    CD_ASSERT(inputCols > 0);
    CD_ASSERT(outputRows > 0);
    CD_ASSERT(outputCols > 0);
    CD_ASSERT(CFARows == 2);
    CD_ASSERT(CFACols == 2);
    // The pattern must cover the 2 x 2 repeat before its first entry is even looked at.
    if (cfaPattern.size() < 4) throw cd_exception("cd_Debayer - the CFA pattern holds fewer than 4 entries");
    CD_ASSERT(* pCFAPattern < 3);
}

int cd_Debayer::configure(debayerParams& params) {
    cd_timing timer;
    status = 0;
    inputRows = params.inputRows;
    inputCols = params.inputCols;
    pRawImagePixels = params.pRawImagePixels;
    rowOffset = params.rowOffset;
    colOffset = params.colOffset;
    pOutputRowData = params.pOutputRowData;
    outputRows = params.outputRows;
    outputCols = params.outputCols;
    cfaPattern = params.cfaPattern;
    // A missing repeat dimension counts as 0 and fails its assertion.
    CFARows = params.cfaRepeatPatternDim.size() > 0 ? params.cfaRepeatPatternDim[0] : 0;
    CFACols = params.cfaRepeatPatternDim.size() > 1 ? params.cfaRepeatPatternDim[1] : 0;
    pCFAPattern = cfaPattern.data();

    checkSetup();

    // The pattern row holding red; with several, the last one found wins.
    redRow = 0;
    for (int r = 0; r < CFARows; ++r)
        for (int c = 0; c < CFACols; ++c)
            if (pCFAPattern[r * CFACols + c] == 0) redRow = r;

    leftMargin = std::max(0, CFACols - 1 - colOffset);
    rightMargin = std::max(0, CFACols - 1 + outputCols + colOffset - inputCols);
    topMargin = std::max(0, CFARows - 1 - rowOffset);
    bottomMargin = std::max(0, CFARows - 1 + outputRows + rowOffset - inputRows);

    stats_.timeConfigure += timer.time();
    return status;
}

int cd_Debayer::getRow(int row) {
    cd_timing timer;
    checkSetup();

    // Edge rows repeat the nearest row whose neighbours all lie inside the raw image.
    const int r = std::min(std::max(row, topMargin), outputRows - 1 - bottomMargin);
    const int64_t R = static_cast<int64_t>(r) + rowOffset;
    const int64_t c0 = static_cast<int64_t>(leftMargin) + colOffset;
    const int covered = outputCols - leftMargin - rightMargin;

    // Every photosite read lies within one row and one column of a walked site; refuse a window
    // that would reach outside the raw image (only possible with inconsistent sizes and offsets).
    if (covered > 0) {
        const int64_t lastCol = c0 + covered - 1;
        if (R < 1 || R + 1 >= inputRows || c0 < 1 || lastCol + 1 >= inputCols)
            throw cd_exception("cd_Debayer - the interpolation window lies outside the raw image");
    }
    if ((leftMargin != 0 || rightMargin != 0) && outputCols < 2)
        throw cd_exception("cd_Debayer - the output row is too narrow for its edge pixels");

    const int64_t W = inputCols;
    const float* line = pRawImagePixels + R * W;
    const float* above = line - W;
    const float* below = line + W;
    float* out = pOutputRowData;

    const bool greenFirst = pCFAPattern[(R % 2) * CFACols + (leftMargin % 2)] == 1;
    const int s = (R % 2 == redRow) ? -1 : 1;
    const int hChannel = 1 + s;  // colour of the horizontal neighbours of a green site
    const int vChannel = 1 - s;  // colour of its vertical neighbours

    auto greenSite = [&](int64_t c, float* px) {
        px[1] = line[c];
        px[hChannel] = (line[c - 1] + line[c + 1]) / 2.0f;
        px[vChannel] = (above[c] + below[c]) / 2.0f;
    };
    auto otherSite = [&](int64_t c, float* px) {
        px[1] = (above[c] + line[c - 1] + line[c + 1] + below[c]) / 4.0f;
        px[hChannel] = line[c];
        px[vChannel] = (above[c - 1] + above[c + 1] + below[c - 1] + below[c + 1]) / 4.0f;
    };

    // Walk pairs of photosites; an odd count ends with a lone first site of the last pair.
    for (int x = 0; x < covered; x += 2) {
        const int64_t c = c0 + x;
        float* px = out + static_cast<int64_t>(x) * 3;
        if (greenFirst) {
            greenSite(c, px);
            if (x + 1 < covered) otherSite(c + 1, px + 3);
        } else {
            otherSite(c, px);
            if (x + 1 < covered) greenSite(c + 1, px + 3);
        }
    }

    if (leftMargin != 0) std::copy(out + 3, out + 6, out);
    if (rightMargin != 0) {
        float* last = out + static_cast<int64_t>(outputCols - 1) * 3;
        std::copy(last - 3, last, last);
    }

    stats_.timeDataProcessing += timer.time();
    return status;
}

}  // namespace cinedng
