#pragma once
// Simple row-by-row demosaicing of a linear raw image (one float per photosite) over a 2 x 2 colour
// filter pattern: bilinear interpolation of the two missing colours of every photosite. Produces one
// RGB output row of the output area at a time into a caller-supplied row buffer.
#include <cstdint>
#include <vector>

#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_Debayer {
public:
    int configure(debayerParams& params);
    // Fills pOutputRowData with output row `row`: outputCols pixels of R, G, B.
    int getRow(int row);
    IOstats stats() const { return stats_; }

    int inputRows = 0;
    int inputCols = 0;
    float* pRawImagePixels = nullptr;
    int rowOffset = 0;
    int colOffset = 0;
    float* pOutputRowData = nullptr;
    int outputRows = 0;
    int outputCols = 0;
    std::vector<uint8_t> cfaPattern;
    int CFARows = 0;
    int CFACols = 0;
    const uint8_t* pCFAPattern = nullptr;
    int redRow = 0;
    int leftMargin = 0;
    int rightMargin = 0;
    int topMargin = 0;
    int bottomMargin = 0;
    IOstats stats_;
    int status = 0;

private:
    void checkSetup();
};

}  // namespace cinedng
