// AHD and VCD demosaics of a 4096 x 2160 mosaic beside LibRaw's AHD (dcraw_process, user_qual 3) on
// the same frame, one thread each (LibRaw's OpenMP is limited to one thread). Each run reports the
// process CPU time per megapixel ("cpu_ms_per_MP": kernel time for first touches of fresh memory
// included, and steadier than wall time on a shared machine) and the wall time per megapixel; ours
// also report the ratio to LibRaw's CPU time per megapixel ("x_vs_LibRaw", higher is faster). Run
// BM_LibRawAHD first (the default order) for the ratio.
#include <benchmark/benchmark.h>
#include <libraw/libraw.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "cinedng/KR_CinemaDNGDebayeringAHD.h"
#include "cinedng/KR_CinemaDNGDebayeringVCD.h"
#include "framebuilder/DngFrameBuilder.h"

extern "C" void omp_set_num_threads(int);

using namespace cinedng;

namespace {

constexpr uint32_t kW = 4096, kH = 2160;
constexpr double kMegapixels = kW * static_cast<double>(kH) / 1e6;

// Stored 16-bit values: smooth gradients, hard-edged blocks, a colour cast per CFA site and noise.
const std::vector<uint32_t>& raster() {
    static const std::vector<uint32_t> r = [] {
        std::vector<uint32_t> v(static_cast<size_t>(kW) * kH);
        uint32_t state = 12345;
        for (uint32_t y = 0; y < kH; ++y)
            for (uint32_t x = 0; x < kW; ++x) {
                state = state * 1664525u + 1013904223u;
                const uint32_t noise = state >> 24;
                const uint32_t site = (x & 1) + 2 * (y & 1);
                const uint32_t base = 6000 + (x * 9 + y * 5) % 24000 + (((x / 96) + (y / 80)) % 2) * 18000;
                v[static_cast<size_t>(y) * kW + x] = base + site * 1500 + noise * 8;
            }
        return v;
    }();
    return r;
}

// The same frame as the float mosaic our demosaics take (G R / B G, i.e. layout 0).
const std::vector<float>& mosaic() {
    static const std::vector<float> m = [] {
        std::vector<float> f(raster().size());
        for (size_t i = 0; i < f.size(); ++i) f[i] = raster()[i] / 65535.0f;
        return f;
    }();
    return m;
}

double processCpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

double& libRawSecondsPerMP() {
    static double s = 0.0;
    return s;
}

void BM_LibRawAHD(benchmark::State& state) {
    framebuilder::RawFrameDesc desc;
    desc.width = kW;
    desc.height = kH;
    desc.bits = 16;
    desc.cfaPattern = {1, 0, 2, 1};
    desc.whiteLevel = {65535};
    const std::vector<uint8_t> frame = framebuilder::buildRawFrame(desc, raster());
    omp_set_num_threads(1);
    double total = 0.0, wall = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        LibRaw lr;
        lr.imgdata.params.user_qual = 3;
        if (lr.open_buffer(const_cast<uint8_t*>(frame.data()), frame.size()) != LIBRAW_SUCCESS || lr.unpack() != LIBRAW_SUCCESS) {
            state.SkipWithError("LibRaw could not read the frame");
            return;
        }
        state.ResumeTiming();
        const double c0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        if (lr.dcraw_process() != LIBRAW_SUCCESS) {
            state.SkipWithError("dcraw_process failed");
            return;
        }
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        total += processCpuSeconds() - c0;
    }
    libRawSecondsPerMP() = total / state.iterations() / kMegapixels;
    state.counters["cpu_ms_per_MP"] = libRawSecondsPerMP() * 1e3;
    state.counters["wall_ms_per_MP"] = wall / state.iterations() / kMegapixels * 1e3;
}

template <class Op>
void runOurs(benchmark::State& state) {
    std::vector<float>& m = const_cast<std::vector<float>&>(mosaic());
    PatchImageBuffer in{static_cast<int32_t>(kW), static_cast<int32_t>(kH), 1, 32, 0, 0, m.data()};
    Op op;
    double total = 0.0, wall = 0.0;
    for (auto _ : state) {
        const double c0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        PatchImageBuffer* out = op.debayerInputImage(&in, nullptr);
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        total += processCpuSeconds() - c0;
        benchmark::DoNotOptimize(out);
        freePatchImageBuffer(out);
    }
    const double perMP = total / state.iterations() / kMegapixels;
    state.counters["cpu_ms_per_MP"] = perMP * 1e3;
    state.counters["wall_ms_per_MP"] = wall / state.iterations() / kMegapixels * 1e3;
    if (libRawSecondsPerMP() > 0) state.counters["x_vs_LibRaw"] = libRawSecondsPerMP() / perMP;
}

void BM_AHD(benchmark::State& state) { runOurs<KR_CinemaDNGDebayeringAHD>(state); }
void BM_VCD(benchmark::State& state) { runOurs<KR_CinemaDNGDebayeringVCD>(state); }

}  // namespace

BENCHMARK(BM_LibRawAHD)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_AHD)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_VCD)->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
