// TIFF parsing and DNG tag reading on a 4096x2160 CinemaDNG frame made by the frame builder: the
// per-clip cost (configure + readAllTags) and the per-frame costs (configure + the three re-reads
// that the row locator does for every frame). The frame lives in memory; nothing is copied.
#include <benchmark/benchmark.h>

#include <iostream>
#include <sstream>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_parseTiff.h"
#include "framebuilder/DngFrameBuilder.h"

using namespace cinedng;
using namespace cinedng::framebuilder;

namespace {

std::vector<uint8_t> makeFrame(bool useSubIFD) {
    RawFrameDesc desc;
    desc.width = 4096;
    desc.height = 2160;
    desc.bits = 12;
    desc.rowsPerStrip = 16;  // 135 strips: long offset and count vectors
    desc.useSubIFD = useSubIFD;
    desc.blackLevelRepeatDim = {2, 2};
    desc.blackLevel = {256, 256, 256, 256};
    desc.whiteLevel = {4095};
    desc.activeArea = {0, 0, 2160, 4096};
    desc.defaultCropOrigin = {8, 8};
    desc.defaultCropSize = {4080, 2144};
    desc.colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039};
    desc.colorMatrix2 = {0.7, -0.2, -0.1, -0.4, 1.2, 0.2, -0.05, 0.2, 0.6};
    desc.calibrationIlluminant1 = 17;
    desc.calibrationIlluminant2 = 21;
    desc.asShotNeutral = {0.5, 1.0, 0.7};
    desc.baselineExposure = 0.25;
    desc.timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    desc.frameRate = std::make_pair(24000, 1001);
    desc.imageNumber = 1;
    desc.dateTimeOriginal = "2024:01:02 03:04:05";
    // Pixels do not matter to the tag reader: a zero raster keeps the set-up quick.
    return buildRawFrame(desc, std::vector<uint32_t>(size_t{4096} * 2160, 0));
}

const std::vector<uint8_t>& frame(bool useSubIFD) {
    static const std::vector<uint8_t> inIfd0 = makeFrame(false);
    static const std::vector<uint8_t> inSubIfd = makeFrame(true);
    return useSubIFD ? inSubIfd : inIfd0;
}

// The sub-IFD search prints its progress on stderr; keep it out of the figures.
struct QuietStderr {
    std::ostringstream sink;
    std::streambuf* old;
    QuietStderr() : old(std::cerr.rdbuf(sink.rdbuf())) {}
    ~QuietStderr() { std::cerr.rdbuf(old); }
};

void BM_ConfigureAndReadAllTags(benchmark::State& state) {
    const bool sub = state.range(0) != 0;
    const std::vector<uint8_t>& f = frame(sub);
    QuietStderr quiet;
    for (auto _ : state) {
        cd_parseTiff parser;
        cd_DNGTags tags;
        parser.configure(reinterpret_cast<const char*>(f.data()), f.size());
        tags.readAllTags(parser, false);
        benchmark::DoNotOptimize(tags.stripOffsets.data());
        quiet.sink.str("");
    }
    state.SetLabel(sub ? "4096x2160 12-bit, raw image in a sub-IFD" : "4096x2160 12-bit, raw image in IFD 0");
}
BENCHMARK(BM_ConfigureAndReadAllTags)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_PerFrameReRead(benchmark::State& state) {
    const std::vector<uint8_t>& f = frame(false);
    cd_parseTiff parser;
    cd_DNGTags tags;
    for (auto _ : state) {
        parser.configure(reinterpret_cast<const char*>(f.data()), f.size());
        tags.readCoreTags(parser);
        tags.readDynamicMetadataTags(parser);
        tags.readStorageTags(parser);
        benchmark::DoNotOptimize(tags.stripOffsets.data());
    }
    state.SetLabel("configure + core, dynamic and storage re-reads");
}
BENCHMARK(BM_PerFrameReRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
