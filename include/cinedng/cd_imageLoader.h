#pragma once
// Brings one DNG frame at a time into memory. Two independent sources:
//  - files: folder + fileNames[i], read into one reusable buffer sized at configure() time from the
//    largest frame of the clip plus 66000 bytes of headroom;
//  - host buffers: byte-data objects handed over with setImageBuffersForSequence(), used in place.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KSData.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_imageLoader {
public:
    // Largest accepted frame file in bytes.
    static constexpr double kMaxFrameBytes = 1.28e8;
    // Headroom added to the largest frame when the read buffer is sized.
    static constexpr uint64_t kBufferSlack = 66000;
    // getImageObject statuses.
    static constexpr int kStatusOpenFailed = 1005;
    static constexpr int kStatusEndNotReached = 1006;

    cd_imageLoader();
    ~cd_imageLoader();
    cd_imageLoader(const cd_imageLoader&) = delete;
    cd_imageLoader& operator=(const cd_imageLoader&) = delete;

    // folder is a prefix to which each name is appended as it stands (pass a folder ending in "/",
    // or the full path of one frame with a single empty name). Returns 0; failures raise.
    int configure(const std::string& folder, const std::vector<std::string>& fileNames);
    // Reads frame imageNumber into the buffer. Returns 0, 1005 (could not be opened) or 1006 (the
    // file is larger than the buffer; the first bufferSize bytes were read).
    int getImageObject(int imageNumber);

    // Replaces the host buffers (the objects are shared, not copied); returns their number.
    int setImageBuffersForSequence(const std::vector<std::shared_ptr<KSData>>& buffers);
    // Bytes of host buffer imageNumber (valid while that object lives); sets imageSize.
    unsigned char* getImageObjectFromDataBuffersWithIndex(int imageNumber);

    IOstats stats() const { return stats_; }

    // The read buffer of the file source (nullptr before configure) and its size.
    unsigned char* buffer() { return buffer_.get(); }
    const unsigned char* buffer() const { return buffer_.get(); }
    uint64_t bufferSize() const { return bufferSize_; }
    // Bytes of the current frame (file or host buffer).
    uint64_t imageSize() const { return imageSize_; }
    const std::string& folder() const { return folder_; }
    const std::vector<std::string>& fileNames() const { return fileNames_; }
    const std::vector<std::shared_ptr<KSData>>& dataBuffers() const { return dataBuffers_; }

private:
    std::string folder_;
    std::vector<std::string> fileNames_;
    uint64_t bufferSize_ = 0;
    IOstats stats_;
    std::vector<std::shared_ptr<KSData>> dataBuffers_;
    bool dataBuffersSet_ = false;
    std::unique_ptr<unsigned char[]> buffer_;
    uint64_t imageSize_ = 0;
};

}  // namespace cinedng
