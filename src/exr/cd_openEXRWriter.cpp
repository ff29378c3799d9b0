#include "cinedng/cd_openEXRWriter.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "cinedng/cd_assert.h"
#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

// The file name template is handed to snprintf with one integer, so it may hold at most one
// conversion, and that one must take an int: flags, width and precision are allowed, '*', length
// modifiers other than h and hh, and every non-integer conversion are refused. "%%" is literal.
bool templateTakesOneInteger(const std::string& t) {
    int conversions = 0;
    for (std::size_t i = 0; i < t.size(); ++i) {
        if (t[i] != '%') continue;
        ++i;
        if (i < t.size() && t[i] == '%') continue;
        while (i < t.size() && std::string_view("-+ #0").find(t[i]) != std::string_view::npos) ++i;
        while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i;
        if (i < t.size() && t[i] == '.') {
            ++i;
            while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i;
        }
        if (i < t.size() && t[i] == 'h') {
            ++i;
            if (i < t.size() && t[i] == 'h') ++i;
        }
        if (i >= t.size() || std::string_view("diouxX").find(t[i]) == std::string_view::npos) return false;
        ++conversions;
    }
    return conversions <= 1;
}

bool isExistingRegularFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

uint32_t littleEndianWord(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
           (static_cast<uint32_t>(p[3]) << 24);
}

}  // namespace

cd_openEXRWriter::cd_openEXRWriter() = default;

cd_openEXRWriter::~cd_openEXRWriter() = default;

openEXRHeaderInfo cd_openEXRWriter::query() { return openEXRHeaderInfo(); }

std::string cd_openEXRWriter::formatName(unsigned int index) {
    std::snprintf(filenameBuffer, sizeof filenameBuffer, outputFilenameTemplate.c_str(), index);
    return std::string(filenameBuffer);
}

int cd_openEXRWriter::configure(MetaWriteClip& m) {
    cd_timing timer;
    status = 0;
    // Forget the previous clip's frame before its buffer goes: rows stored before the next
    // newImageObject then fail cleanly instead of landing in released memory.
    outputFileSize = 0;
    rowsStored = 0;
    formatter.pOutputBuffer = nullptr;
    formatter.lineOffsets.clear();
    formatter.numberOfLineOffsets = 0;
    pOutputBuffer.reset();
    outputBufferSize = 0;

    outputRows = m.outputRows;
    outputCols = m.outputCols;
    headerInfo = m.headerInfo;
    colorMatrixFromSourceRGBToOutputRGB.resize(m.colorMatrixFromSourceRGBToOutputRGB.size());
    colorMatrixFromSourceRGBToOutputRGB = m.colorMatrixFromSourceRGBToOutputRGB;
    outputFolder = m.outputFolder;
    outputFilenameTemplate = m.outputFilenameTemplate;

    CD_ASSERT(colorMatrixFromSourceRGBToOutputRGB.sum() != 0);
    CD_ASSERT(outputRows > 0);
    CD_ASSERT(outputCols > 0);
    CD_ASSERT(outputFolder != "");
    CD_ASSERT(outputFilenameTemplate != "");
    if (colorMatrixFromSourceRGBToOutputRGB.size() < 9) {
        throw cd_exception("cd_openEXRWriter - color matrix needs at least 9 entries");
    }
    if (!templateTakesOneInteger(outputFilenameTemplate)) {
        throw cd_exception("cd_openEXRWriter - output file name template must take one integer");
    }

    // Files of an earlier run: the consecutive sequence from index 0 up to the first gap, never
    // more than 10000. Files after a gap are left alone on purpose.
    for (unsigned int i = 0; i <= 9999; ++i) {
        const std::string path = outputFolder + formatName(i) + ".exr";
        if (!isExistingRegularFile(path)) break;
        std::remove(path.c_str());
    }

    box2i& dw = headerInfo.dataWindow;
    const int64_t xMax = static_cast<int64_t>(dw.xMin) + outputCols - 1;
    const int64_t yMax = static_cast<int64_t>(dw.yMin) + outputRows - 1;
    if (xMax > INT32_MAX || yMax > INT32_MAX) throw cd_exception("cd_openEXRWriter - data window out of range");
    dw.xMax = static_cast<int32_t>(xMax);
    dw.yMax = static_cast<int32_t>(yMax);
    headerInfo.displayWindow = dw;

    // 6 bytes of half RGB per pixel; 8 bytes of block header and 8 of offset table per row;
    // 65000 bytes for magic, version and header.
    outputBufferSize = static_cast<uint64_t>(outputRows) * (static_cast<uint64_t>(outputCols) * 6 + 16) + 65000;
    CD_ASSERT(outputBufferSize > 0);
    CD_ASSERT(outputBufferSize < 100e6);

    pOutputBuffer.reset(new char[outputBufferSize]());
    CD_ASSERT(pOutputBuffer != NULL);

    stats_.timeConfigure += timer.time();
    return status;
}

int cd_openEXRWriter::newImageObject(DynamicMetadata& d) {
    cd_timing timer;
    status = 0;
    CD_ASSERT(outputBufferSize > 0);

    headerInfo.capDate = d.dateTimeOriginal;
    headerInfo.imagenumber = d.imageNumber;
    headerInfo.timeCode = timecode(littleEndianWord(d.timeCode.data()), littleEndianWord(d.timeCode.data() + 4));
    {
        char text[81] = {};
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        if (localtime_r(&now, &local) != nullptr) std::strftime(text, 80, "%Y-%m-%dT%H:%M:%S%Z", &local);
        headerInfo.dateTime = text;
    }

    outputFileSize = 0;
    rowsStored = 0;

    CD_ASSERT(outputFilenameTemplate != "");
    filename = outputFolder + formatName(d.imageNumber) + ".exr";
    CD_ASSERT(filename != "");
    CD_ASSERT(filename.size() < 256);

    outputFileSize = formatter.writeAllButScanlines(headerInfo, colorMatrixFromSourceRGBToOutputRGB,
                                                    pOutputBuffer.get(), outputBufferSize);
    CD_ASSERT(outputFileSize <= outputBufferSize);

    stats_.timeConfigure += timer.time();
    return status;
}

int cd_openEXRWriter::storeImageRow(float* rgbData, int row) {
    cd_timing timer;
    status = 0;
    CD_ASSERT(rgbData != NULL);
    CD_ASSERT(0 <= row);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
    CD_ASSERT((unsigned int)row < outputRows);
#pragma GCC diagnostic pop
    CD_ASSERT(outputBufferSize > 0);
    ++rowsStored;
    formatter.writeScanLine(rgbData, static_cast<unsigned int>(row));
    stats_.timeDataProcessing += timer.time();
    // Counted as 18 bytes per pixel although 6 are stored.
    stats_.bytesProcessed += static_cast<uint64_t>(outputCols) * 3 * 6;
    return status;
}

int cd_openEXRWriter::saveImageObject() {
    cd_timing timer;
    status = 0;
    CD_ASSERT(outputFileSize > 0);
    CD_ASSERT(outputBufferSize >= outputFileSize);
    CD_ASSERT(filename != "");
    stats_.timeConfigure += timer.time();

    std::FILE* f = std::fopen(filename.c_str(), "wb");
    stats_.timeOpen += timer.time();
    if (f == nullptr) {
        status = 1005;
    } else {
        const std::size_t written = std::fwrite(pOutputBuffer.get(), 1, outputFileSize, f);
        if (written != outputFileSize || std::ferror(f)) status = 1007;
        if (std::fclose(f) != 0) status = 1007;
    }
    stats_.timeClose += timer.time();
    stats_.bytesProcessed += outputFileSize;
    return status;
}

}  // namespace cinedng
