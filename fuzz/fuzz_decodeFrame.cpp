// libFuzzer target: any byte sequence taken down the in-memory decoding path of one frame (tag
// record from the frame's bytes, row location, linearisation of every row) must either decode or
// fail with a cd_exception, never crash or read outside the input.
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <streambuf>
#include <vector>

#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_ScanLineAccess.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getDNGParams.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_locateRows.h"

namespace {
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c == traits_type::eof() ? 0 : c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};
// Frames that would need a larger float image than this are left out: the point is the byte reads,
// and a tag claiming a huge image would only exhaust the fuzzer's memory.
constexpr int64_t kMaxPixels = int64_t(1) << 20;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static NullBuffer nullBuffer;
    std::cerr.rdbuf(&nullBuffer);
    std::cout.rdbuf(&nullBuffer);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exactly sized copy, so that AddressSanitizer sees any read past the end of the frame.
    std::vector<unsigned char> frame(data, data + size);
    try {
        cinedng::cd_DNGTags tags;
        cinedng::cd_getDNGParams::getParamsForImageData(frame.data(), static_cast<long>(frame.size()), tags);
        const int64_t rows = tags.inputRows, cols = tags.inputCols;
        if (rows <= 0 || cols <= 0 || rows * cols > kMaxPixels) return 0;

        cinedng::cd_locateRows locator;
        locator.configure(tags);
        cinedng::cd_ScanLineAccess access;
        cinedng::DynamicMetadata meta;
        if (locator.locateRows(reinterpret_cast<const char*>(frame.data()), frame.size(), access, meta) != 0) return 0;

        std::vector<float> pixels(static_cast<size_t>(rows * cols));
        cinedng::linearParams params = cinedng::cd_ClipConverter::linearParamsFromTags(tags, pixels.data());
        cinedng::cd_getLinearRaw linearizer;
        linearizer.configure(params);
        for (int r = 0; r < static_cast<int>(rows); ++r) linearizer.getRow(access, r);
    } catch (const cinedng::cd_exception&) {
        // A clean refusal (assertion texts too: the target is built with CINEDNG_ASSERT_THROWS).
    }
    return 0;
}
