#pragma once
// Helpers shared by the raw pipeline tests.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "framebuilder/DngFrameBuilder.h"

// Frame descriptions are written with designated initializers that leave every other field at its
// default on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace rawtest {

inline std::string failureOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const cinedng::cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The frame's tags, with the active-area geometry derived as the colour decoding does it (without
// needing colour tags) and the output size taken as the active area.
inline cinedng::cd_DNGTags tagsOf(const std::vector<uint8_t>& frame) {
    cinedng::cd_parseTiff tiff;
    tiff.configure(reinterpret_cast<const char*>(frame.data()), frame.size());
    cinedng::cd_DNGTags t;
    t.readAllTags(tiff, false);
    t.activeTop = static_cast<int32_t>(t.activeArea[0]);
    t.activeLeft = static_cast<int32_t>(t.activeArea[1]);
    t.outputRows = t.inputRows = static_cast<int32_t>(std::min(t.activeArea[2], t.imageHeight)) - t.activeTop;
    t.outputCols = t.inputCols = static_cast<int32_t>(std::min(t.activeArea[3], t.imageWidth)) - t.activeLeft;
    return t;
}

// The stages of the per-frame path wired together through a clip converter, configured from the
// first frame; the caller configures `loader` for files or uses convertHostFrame.
struct Pipeline {
    cinedng::cd_DNGTags tags;
    cinedng::cd_imageLoader loader;
    cinedng::cd_locateRows locator;
    cinedng::cd_getLinearRaw linearizer;
    cinedng::cd_ClipConverter converter;
    cinedng::MetaConvertClip meta{&loader, &locator, &linearizer};
    cinedng::DynamicMetadata frameMeta;
    std::vector<float> image;

    Pipeline(const std::vector<uint8_t>& firstFrame, int duration, int threads, int benchmarkRuns = 0)
        : tags(tagsOf(firstFrame)) {
        locator.configure(tags);
        meta.duration = duration, meta.threads = threads, meta.benchmarkRuns = benchmarkRuns;
        converter.configure(meta, tags, false);
        image.assign(static_cast<size_t>(tags.inputRows) * tags.inputCols, -1000.0f);
        converter.setRawImagePixels(image.data());
    }
    // Locates the rows of a frame into the converter's row table; the failure text, if any.
    std::string locate(const std::vector<uint8_t>& f) {
        return failureOf([&] { locator.locateRows(reinterpret_cast<const char*>(f.data()), f.size(), converter.scanLineAccess(), frameMeta); });
    }
    int convertHostFrame(const std::vector<uint8_t>& frame) {
        loader.setImageBuffersForSequence({cinedng::KSData::dataWithBytes(frame.data(), frame.size())});
        return converter.convertImageFromImageDataWithIndex(0);
    }
};

}  // namespace rawtest
