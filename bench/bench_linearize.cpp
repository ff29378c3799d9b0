// Per-frame raw decoding throughput on a 4096 x 2160 CinemaDNG frame of 12, 14 and 16 bits:
//  - the whole per-frame path (frame file read from the page cache, rows located, every active row
//    linearised into floats) against LibRaw 0.20 opening the same bytes, unpacking them and doing
//    the same float conversion;
//  - the linearisation step alone against a memcpy of the float output it writes.
// After the runs the program prints the ratios.
#include <benchmark/benchmark.h>
#include <libraw/libraw.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"
#include "cinedng/cd_parseTiff.h"
#include "framebuilder/DngFrameBuilder.h"

namespace fb = cinedng::framebuilder;
using namespace cinedng;

namespace {

constexpr uint32_t kCols = 4096;
constexpr uint32_t kRows = 2160;
constexpr uint32_t kBlack = 256;

std::string frameDir() {
    std::string base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    const std::string dir = base + "/cinedng_bench_linearize_" + std::to_string(static_cast<long>(getpid())) + "/";
    std::filesystem::create_directories(dir);
    return dir;
}

uint32_t whiteOf(int bits) { return (1u << bits) - 1u; }

// One frame file per bit depth, written once: a camera-like raster (smooth ramps with noise).
struct Frame {
    std::string folder;
    std::string name;
    std::vector<uint8_t> bytes;
};

const Frame& frameFor(int bits) {
    static std::map<int, Frame> frames;
    auto it = frames.find(bits);
    if (it != frames.end()) return it->second;
    Frame f;
    f.folder = frameDir();
    f.name = "frame_" + std::to_string(bits) + ".dng";
    fb::RawFrameDesc desc;
    desc.width = kCols;
    desc.height = kRows;
    desc.bits = bits;
    desc.blackLevel = {kBlack};
    desc.whiteLevel = {whiteOf(bits)};
    desc.colorMatrix1 = {0.8, -0.2, -0.1, -0.4, 1.2, 0.2, -0.1, 0.2, 0.6};
    desc.calibrationIlluminant1 = 21;
    desc.asShotNeutral = {0.5, 1.0, 0.6};
    std::vector<uint32_t> raster(static_cast<size_t>(kRows) * kCols);
    uint32_t noise = 12345;
    for (uint32_t y = 0; y < kRows; ++y)
        for (uint32_t x = 0; x < kCols; ++x) {
            noise = noise * 1664525u + 1013904223u;
            const uint32_t ramp = kBlack + (x * 3 + y * 5) % (whiteOf(bits) - kBlack);
            raster[static_cast<size_t>(y) * kCols + x] = std::min(whiteOf(bits), ramp + (noise >> 28));
        }
    f.bytes = fb::buildRawFrame(desc, raster);
    std::FILE* out = std::fopen((f.folder + f.name).c_str(), "wb");
    std::fwrite(f.bytes.data(), 1, f.bytes.size(), out);
    std::fclose(out);
    return frames.emplace(bits, std::move(f)).first->second;
}

cd_DNGTags tagsFor(const Frame& f) {
    cd_parseTiff tiff;
    tiff.configure(reinterpret_cast<const char*>(f.bytes.data()), f.bytes.size());
    cd_DNGTags tags;
    tags.readAllTags(tiff, false);
    tags.activeTop = 0;
    tags.activeLeft = 0;
    tags.inputRows = tags.outputRows = static_cast<int32_t>(kRows);
    tags.inputCols = tags.outputCols = static_cast<int32_t>(kCols);
    tags.outputCols = 4096;
    return tags;
}

// Load from the page cache, locate the rows, linearise every row: the converter's per-frame path.
void BM_Cinedng_Frame(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    const Frame& f = frameFor(bits);
    cd_DNGTags tags = tagsFor(f);
    cd_imageLoader loader;
    cd_locateRows locator;
    cd_getLinearRaw linearizer;
    cd_ClipConverter converter;
    loader.configure(f.folder, {f.name});
    locator.configure(tags);
    MetaConvertClip meta;
    meta.loader = &loader;
    meta.rowLocator = &locator;
    meta.linearizer = &linearizer;
    meta.duration = 1;
    meta.threads = 1;
    converter.configure(meta, tags, false);
    std::vector<float> image(static_cast<size_t>(kRows) * kCols);
    converter.setRawImagePixels(image.data());
    for (auto _ : state) {
        if (converter.convertImage(0) != 0) state.SkipWithError("conversion failed");
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.bytes.size()));
}

// LibRaw on the same bytes: open_buffer + unpack, then the same normalisation to floats.
void BM_LibRaw_Frame(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    const Frame& f = frameFor(bits);
    auto lr = std::make_unique<LibRaw>();
    std::vector<float> image(static_cast<size_t>(kRows) * kCols);
    const float black = static_cast<float>(kBlack);
    const float scale = 1.0f / static_cast<float>(whiteOf(bits) - kBlack);
    for (auto _ : state) {
        if (lr->open_buffer(const_cast<uint8_t*>(f.bytes.data()), f.bytes.size()) != LIBRAW_SUCCESS ||
            lr->unpack() != LIBRAW_SUCCESS) {
            state.SkipWithError("LibRaw could not unpack the frame");
            break;
        }
        const uint16_t* raw = lr->imgdata.rawdata.raw_image;
        const size_t pitch = lr->imgdata.sizes.raw_pitch / 2;
        for (uint32_t y = 0; y < kRows; ++y) {
            const uint16_t* src = raw + y * pitch;
            float* dst = image.data() + static_cast<size_t>(y) * kCols;
            for (uint32_t x = 0; x < kCols; ++x) dst[x] = (static_cast<float>(src[x]) - black) * scale;
        }
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
        lr->recycle();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.bytes.size()));
}

// The linearisation step alone, on rows already located in the frame held in memory.
void BM_Linearize_Only(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    const Frame& f = frameFor(bits);
    cd_DNGTags tags = tagsFor(f);
    cd_locateRows locator;
    locator.configure(tags);
    cd_ScanLineAccess access;
    DynamicMetadata meta;
    locator.locateRows(reinterpret_cast<const char*>(f.bytes.data()), f.bytes.size(), access, meta);
    std::vector<float> image(static_cast<size_t>(kRows) * kCols);
    linearParams p;
    p.bitsPerSample = bits;
    p.inputRows = static_cast<int>(kRows);
    p.inputCols = static_cast<int>(kCols);
    p.pRawImagePixels = image.data();
    p.blackLevelRepeatDim = {1, 1};
    p.blackLevel = {static_cast<float>(kBlack)};
    p.whiteLevel = {whiteOf(bits)};
    cd_getLinearRaw lin;
    lin.configure(p);
    for (auto _ : state) {
        for (int r = 0; r < static_cast<int>(kRows); ++r) lin.getRow(access, r);
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRows * kCols * 4);
}

// The part of the per-frame path before linearisation: the frame read from the page cache and its
// rows located.
void BM_Cinedng_LoadAndLocate(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    const Frame& f = frameFor(bits);
    cd_DNGTags tags = tagsFor(f);
    cd_imageLoader loader;
    cd_locateRows locator;
    loader.configure(f.folder, {f.name});
    locator.configure(tags);
    cd_ScanLineAccess access;
    DynamicMetadata meta;
    for (auto _ : state) {
        if (loader.getImageObject(0) != 0) state.SkipWithError("load failed");
        locator.locateRows(reinterpret_cast<const char*>(loader.buffer()), loader.imageSize(), access, meta);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.bytes.size()));
}

// The floor for the linearisation step: copying the float output it writes.
void BM_Memcpy_FloatOutput(benchmark::State& state) {
    std::vector<float> a(static_cast<size_t>(kRows) * kCols, 1.0f), b(a.size());
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), a.size() * sizeof(float));
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRows * kCols * 4);
}

BENCHMARK(BM_Cinedng_Frame)->Arg(12)->Arg(14)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibRaw_Frame)->Arg(12)->Arg(14)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Linearize_Only)->Arg(12)->Arg(14)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Cinedng_LoadAndLocate)->Arg(12)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy_FloatOutput)->Unit(benchmark::kMillisecond);

// Console output as usual, and the real and CPU time per iteration of every run kept for the
// ratios. On a shared machine the CPU times are the steadier comparison.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, std::pair<double, double>> ms;  // name -> (real, cpu), in ms
    void ReportRuns(const std::vector<Run>& runs) override {
        // Single runs, or the median of repeated runs (--benchmark_repetitions).
        for (const Run& r : runs) {
            if (r.error_occurred) continue;
            if (r.run_type == Run::RT_Iteration || r.aggregate_name == "median")
                ms[r.run_name.str()] = {r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    std::cout << "\nRatios (4096 x 2160, one thread; real time, CPU time in brackets)\n";
    auto get = [&](const std::string& n) {
        auto it = reporter.ms.find(n);
        return it == reporter.ms.end() ? std::pair<double, double>(0.0, 0.0) : it->second;
    };
    auto ratio = [](double a, double b) { return b > 0 ? a / b : 0.0; };
    const auto copy = get("BM_Memcpy_FloatOutput");
    for (int bits : {12, 14, 16}) {
        const std::string b = std::to_string(bits);
        const auto ours = get("BM_Cinedng_Frame/" + b), libraw = get("BM_LibRaw_Frame/" + b);
        const auto lin = get("BM_Linearize_Only/" + b);
        std::cout << std::fixed << std::setprecision(2) << "  " << bits << " bit: whole frame " << ours.first << " ("
                  << ours.second << ") ms, LibRaw " << libraw.first << " (" << libraw.second
                  << ") ms, LibRaw / cinedng = " << ratio(libraw.first, ours.first) << "x ("
                  << ratio(libraw.second, ours.second) << "x)\n"
                  << "          linearise alone " << lin.first << " (" << lin.second << ") ms, memcpy of the output "
                  << copy.first << " (" << copy.second << ") ms, linearise / memcpy = " << ratio(lin.first, copy.first)
                  << "x (" << ratio(lin.second, copy.second) << "x)\n";
    }
    std::error_code ec;
    std::filesystem::remove_all(frameDir(), ec);
    benchmark::Shutdown();
    return 0;
}
