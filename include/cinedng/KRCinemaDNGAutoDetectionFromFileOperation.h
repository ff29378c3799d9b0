#pragma once
// Background detection on one DNG file: opens the file as a one-frame sequence, decodes its raw
// mosaic, demosaics it with the VCD method, converts it to the output RGB space of the clip's colour
// model at 5000 K and runs the white balance and exposure detectors. Run it on a KUOperationQueue;
// after it has finished, exposure() and whiteBalance() hold the results unless it failed (error()
// then has domain "DNGDecode": code 1 for a missing file, code 2 when no result came out, or the
// demosaic's own error).
#include <string>

#include "cinedng/KUOperation.h"

namespace cinedng {

class KRCinemaDNGAutoDetectionFromFileOperation : public KUOperation {
public:
    // initWithFilePath:
    explicit KRCinemaDNGAutoDetectionFromFileOperation(std::string filePath) : filePath_(std::move(filePath)) {}

    // Set before the operation is queued.
    const std::string& filePath() const { return filePath_; }
    void setFilePath(std::string path) { filePath_ = std::move(path); }

    float exposure() const { return exposure_; }
    void setExposure(float v) { exposure_ = v; }
    float whiteBalance() const { return whiteBalance_; }
    void setWhiteBalance(float kelvin) { whiteBalance_ = kelvin; }

    void main() override;

private:
    std::string filePath_;
    float exposure_ = 0.0f;
    float whiteBalance_ = 0.0f;
};

}  // namespace cinedng
