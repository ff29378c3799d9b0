#include "cinedng/cd_locateRows.h"

#include <algorithm>
#include <iomanip>
#include <iostream>

#include "cinedng/cd_exception.h"

namespace cinedng {

int cd_locateRows::configure(cd_DNGTags& tags) {
    cd_timing timer;
    imageHeight = tags.imageHeight;
    imageWidth = tags.imageWidth;
    bitsPerSample = tags.bitsPerSample;
    compression = tags.compression;
    photometric = tags.photometric;
    byteOrder = tags.byteOrder;

    if (imageHeight == 0 || imageWidth == 0) throw cd_exception("cd_locateRows - the DNG image dimensions are invalid.");
    if (bitsPerSample == 0) throw cd_exception("cd_locateRows - the 'bitsPerSample' tag cannot be 0");
    if (compression == 0) throw cd_exception("cd_locateRows - illegal compression setting");
    if (photometric == 0) throw cd_exception("cd_locateRows - illegal photometric setting");
    if (byteOrder == 0) throw cd_exception("cd_locateRows - illegal byteOrder setting");
    stats_.timeConfigure += timer.time();
    return 0;
}

int cd_locateRows::locateRows(const char* buffer, unsigned long long bufferSize, cd_ScanLineAccess& access,
                              DynamicMetadata& meta) {
    cd_timing timer;
    int status = 0;

    if (buffer == nullptr) throw cd_exception("cd_locateRows - the input image buffer may not be nil");
    if (bufferSize == 0) throw cd_exception("cd_locateRows - the input image buffer size may not be zero");

    // The same texts serve for an unconfigured locator and, below, for a frame that differs from the clip.
    static const char* const kHeight = "cd_locateRows - image height invalid";
    static const char* const kWidth = "cd_locateRows - image width invalid";
    static const char* const kBits = "cd_locateRows - bitsPerSample <= 0";
    static const char* const kCompression = "cd_locateRows - illegal compression";
    static const char* const kPhotometric = "cd_locateRows - illegal photometric";
    static const char* const kByteOrder = "cd_locateRows - illegal byteOrder";
    if (imageHeight == 0) throw cd_exception(kHeight);
    if (imageWidth == 0) throw cd_exception(kWidth);
    if (bitsPerSample == 0) throw cd_exception(kBits);
    if (compression == 0) throw cd_exception(kCompression);
    if (photometric == 0) throw cd_exception(kPhotometric);
    if (byteOrder == 0) throw cd_exception(kByteOrder);

    const int parseStatus = tiffReader.configure(buffer, bufferSize);
    if (parseStatus != 0) std::cerr << std::setw(24) << "error" << "   = " << parseStatus << std::endl;

    status = dngTags.readCoreTags(tiffReader);
    if (status != 0) {
        std::cerr << std::setw(24) << "error" << "   = " << status << std::endl;
        throw cd_exception("cd_locateRows - DNG read core tags reported an error");
    }
    if (dngTags.imageHeight != imageHeight) throw cd_exception(kHeight);
    if (dngTags.imageWidth != imageWidth) throw cd_exception(kWidth);
    if (dngTags.bitsPerSample != bitsPerSample) throw cd_exception(kBits);
    if (dngTags.compression != compression) throw cd_exception(kCompression);
    if (dngTags.photometric != photometric) throw cd_exception(kPhotometric);
    if (dngTags.byteOrder != byteOrder) throw cd_exception(kByteOrder);

    if (dngTags.readDynamicMetadataTags(tiffReader) != 0)
        throw cd_exception("cd_locateRows - DNG read dynamic metadata tags reported an error");
    meta.dateTimeOriginal = dngTags.dateTimeOriginal;
    meta.imageNumber = dngTags.imageNumber;
    if (!dngTags.timeCodes.empty()) {
        // The first time code: its eight bytes (a short tag gives what it has, the rest zero).
        const size_t n = std::min<size_t>(meta.timeCode.size(), dngTags.timeCodes.size());
        meta.timeCode.fill(0);
        std::copy_n(dngTags.timeCodes.begin(), n, meta.timeCode.begin());
    }

    if (dngTags.readStorageTags(tiffReader) != 0)
        throw cd_exception("cd_locateRows - DNG read storage tags reported an error.");

    static const char* const kStrips = "cd_locateRows - DNG strip setup invalid";
    const std::vector<uint32_t>& offsets = dngTags.stripOffsets;
    const std::vector<uint32_t>& counts = dngTags.stripByteCounts;
    // Rows per strip as the frame states it (not lowered to the image height). Without the tag a
    // single strip holds the whole image (the TIFF default); several strips then cannot be laid out.
    uint64_t rowsPerStrip = dngTags.rowsPerStrip;
    if (rowsPerStrip == 0) {
        if (offsets.size() != 1) throw cd_exception(kStrips);
        rowsPerStrip = imageHeight;
    }
    if (counts.empty()) throw cd_exception(kStrips);

    // The first strip's byte count defines the row size for all strips.
    const uint64_t rowBytes = counts[0] / rowsPerStrip;
    if (rowsPerStrip * offsets.size() < imageHeight) throw cd_exception(kStrips);

    static const char* const kOffset = "cd_locateRows - DNG row offset error";
    rows_.resize(imageHeight);
    unsigned char* base = reinterpret_cast<unsigned char*>(const_cast<char*>(buffer));
    for (uint32_t r = 0; r < imageHeight; ++r) {
        const uint64_t strip = r / rowsPerStrip;
        const uint64_t rowInStrip = r % rowsPerStrip;
        const uint64_t offset = static_cast<uint64_t>(offsets[strip]) + rowInStrip * rowBytes;
        // Below 8 the row would overlap the TIFF header. A row may end one byte past the buffer
        // (the comparison is against the size itself); the lineariser reads that byte as zero.
        if (offset < 8) throw cd_exception(kOffset);
        if (offset + rowBytes - 1 > bufferSize) throw cd_exception(kOffset);
        rows_[r] = base + offset;
    }

    access.configure(rows_, base, bufferSize);
    stats_.timeDataProcessing += timer.time();
    stats_.bytesProcessed += static_cast<uint64_t>(imageHeight) * 8;
    return status;
}

}  // namespace cinedng
