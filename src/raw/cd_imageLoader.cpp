#include "cinedng/cd_imageLoader.h"

#include <cstdio>
#include <new>

#include "cinedng/cd_directory.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {
const char* const kRangeMessage = "cd_imageLoader - imageNumber is not in a legal range";
}

cd_imageLoader::cd_imageLoader() = default;
cd_imageLoader::~cd_imageLoader() = default;

int cd_imageLoader::configure(const std::string& folder, const std::vector<std::string>& fileNames) {
    if (folder.empty()) throw cd_exception("cd_imageLoader - the DNG source folder path is ''");
    if (fileNames.empty()) throw cd_exception("cd_imageLoader - no filenames provided");
    folder_ = folder;
    fileNames_ = fileNames;

    const int64_t largest = cd_directory::getLargestFileSize(folder_, fileNames_);
    if (largest <= 0)
        throw cd_exception("cd_imageLoader - the file size of the clip's largest file is in an illegal range <= 0");
    if (static_cast<double>(largest) > kMaxFrameBytes)
        throw cd_exception("cd_imageLoader - the file size of the clip's largest file is in an illegal range > 128e6");
    bufferSize_ = static_cast<uint64_t>(largest) + kBufferSlack;

    buffer_.reset();
    buffer_.reset(new (std::nothrow) unsigned char[bufferSize_]);
    if (!buffer_) {
        bufferSize_ = 0;
        throw cd_exception("cd_imageLoader - the input buffer could not be allocated");
    }
    return 0;
}

int cd_imageLoader::getImageObject(int imageNumber) {
    cd_timing watch;
    if (imageNumber < 0 || static_cast<size_t>(imageNumber) >= fileNames_.size())
        throw cd_exception(kRangeMessage);
    // configure() may have failed after storing the names; never read into a missing buffer.
    if (!buffer_) throw cd_exception("cd_imageLoader - the input buffer could not be allocated");
    const std::string path = folder_ + fileNames_[static_cast<size_t>(imageNumber)];
    stats_.timeConfigure += watch.time();

    std::FILE* file = std::fopen(path.c_str(), "rb");
    stats_.timeOpen += watch.time();

    int status = 0;
    if (file != nullptr) {
        const size_t got = std::fread(buffer_.get(), 1, bufferSize_, file);
        imageSize_ = got;
        // A full buffer with bytes still to come: the file outgrew the buffer since configure().
        if (got == bufferSize_ && std::fgetc(file) != EOF) status = kStatusEndNotReached;
    } else {
        status = kStatusOpenFailed;
    }
    stats_.timeDataProcessing += watch.time();

    if (file != nullptr) std::fclose(file);  // a failing close changes no status
    stats_.timeClose += watch.time();
    stats_.bytesProcessed += imageSize_;
    return status;
}

int cd_imageLoader::setImageBuffersForSequence(const std::vector<std::shared_ptr<KSData>>& buffers) {
    dataBuffers_.clear();
    dataBuffers_.insert(dataBuffers_.end(), buffers.begin(), buffers.end());
    dataBuffersSet_ = true;
    return static_cast<int>(dataBuffers_.size());
}

unsigned char* cd_imageLoader::getImageObjectFromDataBuffersWithIndex(int imageNumber) {
    if (!dataBuffersSet_)
        throw cd_exception(
            "cd_imageLoader - requesting data from array that has not been provided. Please use "
            "setImageBuffersForSequence first");
    if (imageNumber < 0 || static_cast<size_t>(imageNumber) >= dataBuffers_.size())
        throw cd_exception(kRangeMessage);
    const std::shared_ptr<KSData>& data = dataBuffers_[static_cast<size_t>(imageNumber)];
    if (!data) throw cd_exception("cd_imageLoader - the data object at imageNumber is null");
    imageSize_ = data->length();
    return data->mutableBytes();
}

}  // namespace cinedng
