// EXR writer throughput: one 4096 x 2160 RGB frame, every row stored through the net colour matrix
// into half floats, and the file saved; against the OpenEXR library doing the same work (the same
// 3x3 matrix applied, conversion to half, an uncompressed scan-line file written).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfOutputFile.h>
#include <Imath/half.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_openEXRWriter.h"

namespace {

constexpr int kCols = 4096;
constexpr int kRows = 2160;

const float kMatrix[9] = {0.9803f, 0.0411f, -0.0214f, -0.0512f, 1.1020f, -0.0508f, 0.0103f, -0.1601f, 1.1498f};

// A frame with smooth gradients and some highlights above the half range, like a linear camera image.
const std::vector<float>& testImage() {
    static const std::vector<float> img = [] {
        std::vector<float> v(static_cast<std::size_t>(kRows) * kCols * 3);
        for (int y = 0; y < kRows; ++y) {
            for (int x = 0; x < kCols; ++x) {
                float* p = &v[(static_cast<std::size_t>(y) * kCols + x) * 3];
                p[0] = static_cast<float>(x) / kCols;
                p[1] = static_cast<float>(y) / kRows;
                p[2] = 0.25f * static_cast<float>((x * 7 + y * 3) % 1000) / 1000.0f;
                if ((x + y) % 997 == 0) p[0] = 70000.0f;
            }
        }
        return v;
    }();
    return img;
}

// Both writers save into the same folder. A memory file system (/dev/shm) is used when there is one,
// so that the figures compare the software rather than the disk's write-back; CINEDNG_BENCH_DIR
// chooses another folder (a disk folder shows the I/O-bound case).
std::string outputDir() {
    std::string base = "/dev/shm";
    if (const char* env = std::getenv("CINEDNG_BENCH_DIR")) base = env;
    if (!std::filesystem::is_directory(base)) base = std::filesystem::temp_directory_path().string();
    const std::string dir = base + "/cinedng_bench_exr_" +
                            std::to_string(static_cast<long>(getpid())) + "/";
    std::filesystem::create_directories(dir);
    return dir;
}

void BM_cinedngWriter(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    const std::string dir = outputDir();
    cinedng::cd_openEXRWriter writer;
    cinedng::MetaWriteClip clip;
    clip.frameCount = 1;
    clip.outputRows = kRows;
    clip.outputCols = kCols;
    clip.headerInfo = writer.query();
    clip.headerInfo.software = "DNGprocessor";
    clip.colorMatrixFromSourceRGBToOutputRGB = std::valarray<float>(kMatrix, 9);
    clip.outputFolder = dir;
    clip.outputFilenameTemplate = "frame%06d";
    writer.configure(clip);
    cinedng::DynamicMetadata frame;
    frame.imageNumber = 1;
    for (auto _ : state) {
        writer.newImageObject(frame);
        for (int y = 0; y < kRows; ++y) {
            writer.storeImageRow(const_cast<float*>(&img[static_cast<std::size_t>(y) * kCols * 3]), y);
        }
        if (writer.saveImageObject() != 0) state.SkipWithError("save failed");
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
    std::filesystem::remove_all(dir);
}

void BM_openexrLibrary(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    const std::string dir = outputDir();
    const std::string path = dir + "peer.exr";
    std::vector<half> r(static_cast<std::size_t>(kRows) * kCols), g(r.size()), b(r.size());
    const float* m = kMatrix;
    for (auto _ : state) {
        for (std::size_t i = 0; i < r.size(); ++i) {
            const float ri = img[3 * i], gi = img[3 * i + 1], bi = img[3 * i + 2];
            r[i] = half(m[0] * ri + m[1] * gi + m[2] * bi);
            g[i] = half(m[3] * ri + m[4] * gi + m[5] * bi);
            b[i] = half(m[6] * ri + m[7] * gi + m[8] * bi);
        }
        Imf::Header header(kCols, kRows);
        header.compression() = Imf::NO_COMPRESSION;
        header.channels().insert("R", Imf::Channel(Imf::HALF));
        header.channels().insert("G", Imf::Channel(Imf::HALF));
        header.channels().insert("B", Imf::Channel(Imf::HALF));
        Imf::OutputFile file(path.c_str(), header);
        Imf::FrameBuffer fb;
        const std::size_t xs = sizeof(half), ys = sizeof(half) * kCols;
        fb.insert("R", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(r.data()), xs, ys));
        fb.insert("G", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(g.data()), xs, ys));
        fb.insert("B", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(b.data()), xs, ys));
        file.setFrameBuffer(fb);
        file.writePixels(kRows);
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
    std::filesystem::remove_all(dir);
}

BENCHMARK(BM_cinedngWriter)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_openexrLibrary)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Console output as usual, plus the ratio of the two wall-clock times at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
                times_[run.run_name.function_name] = run.real_accumulated_time / static_cast<double>(run.iterations);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        const auto ours = times_.find("BM_cinedngWriter");
        const auto peer = times_.find("BM_openexrLibrary");
        if (ours != times_.end() && peer != times_.end() && ours->second > 0) {
            std::printf("cinedng writer %.2f ms per frame, OpenEXR library %.2f ms per frame, ratio %.2fx\n",
                        ours->second * 1e3, peer->second * 1e3, peer->second / ours->second);
        }
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
