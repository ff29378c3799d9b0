#pragma once
// What the host holds for one CinemaDNG clip: a frame sequence opened from frame file paths or from
// frame buffers held in memory. It owns a decoding context and hands out the raw image size, the
// linearised raw (mosaic) data of any frame, the metadata dictionary of the clip and the
// colour-processing information for a chosen colour temperature.
//
// Failures never escape as exceptions from the frame and open operations: they are logged on
// standard error ("### <class>::<selector> ### an exception occured: \n\t<message>") and the call
// returns nullptr or leaves the buffer unwritten. The colour operations let matrix failures pass
// to the caller as cd_exception.
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KSCinemaDNGContext.h"
#include "cinedng/KSData.h"
#include "cinedng/KSDictionary.h"
#include "cinedng/KSImageProcessingInfo.h"
#include "cinedng/KSValue.h"

namespace cinedng {

class KSCinemaDNGFileSequence {
public:
    // initWithFilenames: / initWithImageData:. nullptr when the clip cannot be opened (logged).
    static std::shared_ptr<KSCinemaDNGFileSequence> initWithFilenames(const std::vector<std::string>& paths);
    static std::shared_ptr<KSCinemaDNGFileSequence> initWithImageData(const std::vector<std::shared_ptr<KSData>>& buffers);

    // Properties. Exactly one of filenames and imageData is set (the other is nullptr).
    const std::shared_ptr<KSCinemaDNGContext>& context() const { return context_; }
    void setContext(std::shared_ptr<KSCinemaDNGContext> c) { context_ = std::move(c); }
    const std::shared_ptr<const std::vector<std::string>>& filenames() const { return filenames_; }
    void setFilenames(std::shared_ptr<const std::vector<std::string>> f) { filenames_ = std::move(f); }
    const std::shared_ptr<const std::vector<std::shared_ptr<KSData>>>& imageData() const { return imageData_; }
    void setImageData(std::shared_ptr<const std::vector<std::shared_ptr<KSData>>> d) { imageData_ = std::move(d); }

    // The clip's black level as a fraction of full scale, and its override (which also marks the
    // metadata dictionary for rebuilding).
    float blackLevel() const;
    void setBlackLevel(float v);

    // Width and height of the full stored frame (ImageWidth x ImageLength), from the metadata.
    KSSize rawImageSize();

    // Frame `index` as one 32-bit float per photosite in a data object that owns its bytes, sized
    // for the full stored frame (width x height floats). The converter writes the active area's rows
    // at its own stride (inputCols floats per row) from the start; every other float is 0.
    std::shared_ptr<KSData> rawImageDataForIndex(int index);

    // writeRawImageDataForIndex:intoBuffer: converts frame `index` into the caller's buffer, which
    // must hold at least width x height floats. Failures are logged; nothing is returned.
    void writeRawImageDataForIndex(int index, float* buffer);
    // The same with the buffer's capacity in floats: a buffer smaller than the converter's output
    // (active rows x active columns) is refused with a log line.
    void writeRawImageDataForIndex(int index, float* buffer, size_t capacityInFloats);

    // rgbBufferFromRawBuffer:ofSize: expands a W x H float mosaic into W x H RGBA floats: the sample
    // goes to red at odd columns of even rows, to blue at even columns of odd rows and to green
    // elsewhere (a fixed layout, whatever the clip's CFA pattern); the other two channels are 0 and
    // alpha is 1. The buffer is allocated with malloc: release it with KSFreeBuffer. nullptr (logged)
    // for a null input, an empty size or a failed allocation.
    static float* rgbBufferFromRawBuffer(const float* buffer, KSSize size);

    // The metadata dictionary of the clip (built on the first call, rebuilt after setBlackLevel;
    // otherwise the same object is returned).
    std::shared_ptr<KSDictionary> metadata();

    // Colour-processing information for temperature T in kelvin (negative: 5000 K) from the clip's
    // own colour model. Matrix failures raise cd_exception.
    std::shared_ptr<KSImageProcessingInfo> imageProcessingInfoWithCustomWhiteBalance(float temperature);

    // cameraToOutputRGBMatrixWithCustomWhiteBalance:andXYZtoCamMatrix: the same from a caller's
    // XYZ-to-camera matrix (9 floats, row-major). Matrix failures raise cd_exception.
    static std::shared_ptr<KSImageProcessingInfo> cameraToOutputRGBMatrixWithCustomWhiteBalance(float temperature,
                                                                                                const float* xyzToCam);

    ~KSCinemaDNGFileSequence();

private:
    struct Construct {};

public:
    explicit KSCinemaDNGFileSequence(Construct) {}

private:
    std::shared_ptr<KSCinemaDNGContext> context_;
    std::shared_ptr<const std::vector<std::string>> filenames_;
    std::shared_ptr<const std::vector<std::shared_ptr<KSData>>> imageData_;
    std::shared_ptr<KSDictionary> metaDataDict_;
    bool metaDataChanged_ = false;
};

}  // namespace cinedng
