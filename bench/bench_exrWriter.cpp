// EXR writer throughput: one 4096 x 2160 RGB frame, every row stored through the net colour matrix
// into half floats, and the file saved; against the OpenEXR library doing the same work (the same
// 3x3 matrix applied, conversion to half, an uncompressed scan-line file written).
//
// Two pairs:
//   *File:     the whole frame written to a new file (the previous one is removed outside the timing);
//   *InMemory: the file assembled in memory only (our buffer; the library writing to a memory
//              stream), which leaves out the operating system's share of writing a file.
// At the end the ratio library / cinedng of each pair is printed.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <Imath/half.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfOutputFile.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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
    const std::string dir = base + "/cinedng_bench_exr_" + std::to_string(static_cast<long>(getpid())) + "/";
    std::filesystem::create_directories(dir);
    return dir;
}

// ---- cinedng ----

void configureWriter(cinedng::cd_openEXRWriter& writer, const std::string& dir) {
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
}

void storeFrame(cinedng::cd_openEXRWriter& writer, cinedng::DynamicMetadata& frame, const std::vector<float>& img) {
    writer.newImageObject(frame);
    for (int y = 0; y < kRows; ++y) {
        writer.storeImageRow(const_cast<float*>(&img[static_cast<std::size_t>(y) * kCols * 3]), y);
    }
}

void BM_cinedngWriterFile(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    const std::string dir = outputDir();
    cinedng::cd_openEXRWriter writer;
    configureWriter(writer, dir);
    cinedng::DynamicMetadata frame;
    for (auto _ : state) {
        ++frame.imageNumber;  // a new file per frame, as in a clip
        storeFrame(writer, frame, img);
        if (writer.saveImageObject() != 0) state.SkipWithError("save failed");
        state.PauseTiming();
        std::filesystem::remove(writer.currentFilename());
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
    std::filesystem::remove_all(dir);
}

void BM_cinedngWriterInMemory(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    const std::string dir = outputDir();
    cinedng::cd_openEXRWriter writer;
    configureWriter(writer, dir);
    cinedng::DynamicMetadata frame;
    for (auto _ : state) {
        ++frame.imageNumber;
        storeFrame(writer, frame, img);
        benchmark::DoNotOptimize(writer.outputBuffer()[writer.currentFileSize() - 1]);
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
    std::filesystem::remove_all(dir);
}

// ---- the OpenEXR library ----

// A growing in-memory output stream for the library, reused from frame to frame.
class MemoryStream : public Imf::OStream {
public:
    MemoryStream() : Imf::OStream("memory") {}
    void write(const char c[], int n) override {
        if (pos_ + n > data_.size()) data_.resize(pos_ + n);
        std::memcpy(data_.data() + pos_, c, static_cast<std::size_t>(n));
        pos_ += static_cast<std::size_t>(n);
    }
    uint64_t tellp() override { return pos_; }
    void seekp(uint64_t pos) override { pos_ = pos; }
    void rewind() { pos_ = 0; }
    const std::vector<char>& data() const { return data_; }

private:
    std::vector<char> data_;
    std::size_t pos_ = 0;
};

struct PeerPlanes {
    std::vector<half> r, g, b;
    PeerPlanes() : r(static_cast<std::size_t>(kRows) * kCols), g(r.size()), b(r.size()) {}
};

void peerConvert(const std::vector<float>& img, PeerPlanes& p) {
    const float* m = kMatrix;
    for (std::size_t i = 0; i < p.r.size(); ++i) {
        const float ri = img[3 * i], gi = img[3 * i + 1], bi = img[3 * i + 2];
        p.r[i] = half(m[0] * ri + m[1] * gi + m[2] * bi);
        p.g[i] = half(m[3] * ri + m[4] * gi + m[5] * bi);
        p.b[i] = half(m[6] * ri + m[7] * gi + m[8] * bi);
    }
}

Imf::Header peerHeader() {
    Imf::Header header(kCols, kRows);
    header.compression() = Imf::NO_COMPRESSION;
    header.channels().insert("R", Imf::Channel(Imf::HALF));
    header.channels().insert("G", Imf::Channel(Imf::HALF));
    header.channels().insert("B", Imf::Channel(Imf::HALF));
    return header;
}

void peerWrite(Imf::OutputFile& file, PeerPlanes& p) {
    Imf::FrameBuffer fb;
    const std::size_t xs = sizeof(half), ys = sizeof(half) * kCols;
    fb.insert("R", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(p.r.data()), xs, ys));
    fb.insert("G", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(p.g.data()), xs, ys));
    fb.insert("B", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(p.b.data()), xs, ys));
    file.setFrameBuffer(fb);
    file.writePixels(kRows);
}

void BM_openexrLibraryFile(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    const std::string dir = outputDir();
    PeerPlanes planes;
    int frameNumber = 0;
    for (auto _ : state) {
        const std::string path = dir + "peer" + std::to_string(++frameNumber) + ".exr";
        peerConvert(img, planes);
        {
            Imf::OutputFile file(path.c_str(), peerHeader());
            peerWrite(file, planes);
        }  // closed here, inside the timing
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
    std::filesystem::remove_all(dir);
}

void BM_openexrLibraryInMemory(benchmark::State& state) {
    const std::vector<float>& img = testImage();
    PeerPlanes planes;
    MemoryStream stream;
    for (auto _ : state) {
        stream.rewind();
        peerConvert(img, planes);
        {
            Imf::OutputFile file(stream, peerHeader());
            peerWrite(file, planes);
        }
        benchmark::DoNotOptimize(stream.data().back());
    }
    state.SetItemsProcessed(state.iterations() * kRows * kCols);
}

BENCHMARK(BM_cinedngWriterFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_openexrLibraryFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_cinedngWriterInMemory)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_openexrLibraryInMemory)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Console output as usual, then the ratio of each pair (wall-clock and CPU time).
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0 && !run.error_occurred) {
                const double n = static_cast<double>(run.iterations);
                real_[run.run_name.function_name] = run.real_accumulated_time / n;
                cpu_[run.run_name.function_name] = run.cpu_accumulated_time / n;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        pair("to a file", "BM_cinedngWriterFile", "BM_openexrLibraryFile");
        pair("in memory", "BM_cinedngWriterInMemory", "BM_openexrLibraryInMemory");
    }

private:
    void pair(const char* label, const std::string& ours, const std::string& peer) {
        if (!real_.count(ours) || !real_.count(peer) || real_[ours] <= 0 || cpu_[ours] <= 0) return;
        std::printf("%s: cinedng %.2f ms per frame (cpu %.2f), OpenEXR library %.2f ms (cpu %.2f), "
                    "ratio %.2fx (cpu %.2fx)\n",
                    label, real_[ours] * 1e3, cpu_[ours] * 1e3, real_[peer] * 1e3, cpu_[peer] * 1e3,
                    real_[peer] / real_[ours], cpu_[peer] / cpu_[ours]);
    }

    std::map<std::string, double> real_;
    std::map<std::string, double> cpu_;
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
