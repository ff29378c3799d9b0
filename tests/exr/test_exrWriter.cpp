// The EXR writer end to end: files read back by the OpenEXR library and by exrheader, the file
// layout, the removal of an earlier run's files, statuses, statistics and the assertions.
#include <gtest/gtest.h>

#include <Imath/half.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfStandardAttributes.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_openEXRWriter.h"
#include "test_exrSupport.h"

using namespace cinedng;
namespace fs = std::filesystem;

namespace {

const float kMatrix[9] = {0.9803f, 0.0411f, -0.0214f, -0.0512f, 1.1020f, -0.0508f, 0.0103f, -0.1601f, 1.1498f};

MetaWriteClip clipFor(cd_openEXRWriter& w, int cols, int rows, const std::string& folder) {
    MetaWriteClip clip;
    clip.outputRows = rows;
    clip.outputCols = cols;
    clip.headerInfo = w.query();
    clip.colorMatrixFromSourceRGBToOutputRGB = std::valarray<float>(kMatrix, 9);
    clip.outputFolder = folder;
    clip.outputFilenameTemplate = "frame%06d";
    return clip;
}

std::unique_ptr<cd_openEXRWriter> configured(int cols, int rows, const std::string& folder) {
    auto w = std::make_unique<cd_openEXRWriter>();
    MetaWriteClip clip = clipFor(*w, cols, rows, folder);
    w->configure(clip);
    return w;
}

DynamicMetadata frame(uint32_t number, const std::string& date = "2024:01:02 03:04:05") {
    DynamicMetadata d;
    d.imageNumber = number;
    d.dateTimeOriginal = date;
    d.timeCode = {0x15, 0x30, 0x20, 0x10, 0x78, 0x56, 0x34, 0x12};  // 10:20:30:15, user data 0x12345678
    return d;
}

uint16_t expectedHalf(const float* px, int channel) {  // channel 0 R, 1 G, 2 B
    const float* m = kMatrix + 3 * channel;
    return cd_openEXRformatter::floatToHalf(m[0] * px[0] + m[1] * px[1] + m[2] * px[2]);
}

// One complete frame; rows stored bottom up (any order is allowed).
void writeFrame(cd_openEXRWriter& w, DynamicMetadata d, std::vector<float>& img, int cols, int rows) {
    ASSERT_EQ(w.newImageObject(d), 0);
    for (int y = rows - 1; y >= 0; --y) ASSERT_EQ(w.storeImageRow(&img[std::size_t(y) * cols * 3], y), 0);
    ASSERT_EQ(w.saveImageObject(), 0);
}

}  // namespace

TEST(ExrWriter, FileReadsBackThroughOpenEXRAndExrheader) {
    const std::string dir = exrtest::scratchFolder();
    const int cols = 4, rows = 2;
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, cols, rows, dir);
    clip.headerInfo.software = "DNGprocessor";
    clip.headerInfo.framesPerSecond = srational(25, 1);
    ASSERT_EQ(w.configure(clip), 0);
    // R, G, B of 8 pixels, with 70000 (clamped), infinity, NaN, a negative and a denormal result.
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> img = {70000, 0.5f, 1, 2, inf, 0.25f, 3, 1.5f, NAN, -0.5f, 1e-6f, 2.5f,
                              0.1f,  0.2f, 0.3f, 3.9f, 1.1f, 0.7f, 2.2f, 3.3f, 0.01f, 1, 65504, 1e-9f};
    // The second frame's header is shorter than the first's, which stays in the stream behind it.
    writeFrame(w, frame(77, "a capture date that is rather long for a header"), img, cols, rows);
    writeFrame(w, frame(1234), img, cols, rows);
    const std::string path = dir + "frame001234.exr";  // named from the frame's ImageNumber
    ASSERT_EQ(w.currentFilename(), path);

    // The layout: header, 2 offsets, 2 blocks of 4 x 6 + 8 bytes (B, G, R planes).
    std::ifstream f(path, std::ios::binary);
    const exrtest::Bytes bytes{std::istreambuf_iterator<char>(f), {}};
    const exrtest::Header parsed = exrtest::parseHeader(bytes);
    ASSERT_EQ(bytes.size(), parsed.end + 2 * 8 + 2 * 32);
    for (int y = 0; y < 2; ++y) {
        EXPECT_EQ(exrtest::le64(&bytes[parsed.end + 8 * y]), parsed.end + 16 + 32 * y);
        const unsigned char* block = &bytes[parsed.end + 16 + 32 * y];
        EXPECT_EQ(exrtest::le32(block), uint32_t(y));
        EXPECT_EQ(exrtest::le32(block + 4), 24u);
    }
    // 18 bytes per stored pixel (6 are stored) and each file's size.
    EXPECT_EQ(w.stats().bytesProcessed, 2 * 8 * 18 + fs::file_size(dir + "frame000077.exr") + bytes.size());

    Imf::InputFile file(path.c_str());
    const Imf::Header& h = file.header();
    EXPECT_EQ(h.dataWindow(), Imath::Box2i(Imath::V2i(0, 0), Imath::V2i(cols - 1, rows - 1)));
    EXPECT_EQ(h.displayWindow(), h.dataWindow());
    EXPECT_EQ(h.compression(), Imf::NO_COMPRESSION);
    int channels = 0;
    for (auto it = h.channels().begin(); it != h.channels().end(); ++it, ++channels)
        EXPECT_EQ(it.channel().type, Imf::HALF);
    EXPECT_EQ(channels, 3);
    EXPECT_EQ(Imf::chromaticities(h).red.x, 0.7347f);
    EXPECT_EQ(Imf::adoptedNeutral(h).x, 0.32168f);
    EXPECT_EQ(Imf::timeCode(h).timeAndFlags(), 0x10203015u);
    EXPECT_EQ(Imf::timeCode(h).userData(), 0x12345678u);
    EXPECT_EQ(Imf::capDate(h), "2024:01:02 03:04:05");
    EXPECT_EQ(Imf::framesPerSecond(h), Imf::Rational(25, 1));
    EXPECT_EQ(h.typedAttribute<Imf::IntAttribute>("imagenumber").value(), 1234);
    EXPECT_EQ(h.typedAttribute<Imf::StringAttribute>("software").value(), "DNGprocessor");
    const std::string now = h.typedAttribute<Imf::StringAttribute>("dateTime").value();  // %Y-%m-%dT%H:%M:%S%Z
    EXPECT_TRUE(now.size() >= 19 && now[4] == '-' && now[10] == 'T' && now[16] == ':') << now;

    // Pixels through the library's own reader, compared as half bit patterns.
    std::vector<half> planes[3];
    Imf::FrameBuffer fb;
    const char* names[3] = {"R", "G", "B"};
    for (int ch = 0; ch < 3; ++ch) {
        planes[ch].resize(std::size_t(cols) * rows);
        fb.insert(names[ch], Imf::Slice(Imf::HALF, reinterpret_cast<char*>(planes[ch].data()), 2, 2 * cols));
    }
    file.setFrameBuffer(fb);
    file.readPixels(0, rows - 1);
    for (std::size_t i = 0; i < std::size_t(cols) * rows; ++i)
        for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(planes[ch][i].bits(), expectedHalf(&img[3 * i], ch)) << i << names[ch];
    EXPECT_EQ(planes[0][0].bits(), 0x7BFF);  // red 70000 is clamped to the largest finite half
    EXPECT_TRUE(planes[2][2].isNan());

    if (std::system("command -v exrheader > /dev/null 2>&1") != 0) GTEST_SKIP() << "exrheader not installed";
    std::string out;
    if (std::FILE* p = popen(("exrheader '" + path + "' 2>&1").c_str(), "r")) {
        char buf[4096];
        for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
        pclose(p);
    }
    for (const char* line : {"file format version: 2, flags 0x0", "    B, 16-bit floating-point, sampling 1 1",
                             "    G, 16-bit floating-point, sampling 1 1", "    R, 16-bit floating-point, sampling 1 1",
                             "compression (type compression): none", "dataWindow (type box2i): (0 0) - (3 1)",
                             "displayWindow (type box2i): (0 0) - (3 1)", "lineOrder (type lineOrder): increasing y",
                             "adoptedNeutral (type v2f): (0.32168 0.33767)", "    red   (0.7347 0.2653)",
                             "    white (0.32168 0.33767)", "capDate (type string): \"2024:01:02 03:04:05\"",
                             "framesPerSecond (type rational): 25/1 (25)", "imagenumber (type int): 1234",
                             "software (type string): \"DNGprocessor\"", "    time 10:20:30:15",
                             "uuid (type string): \"undefined\"", "acesFlag (type int): 1"})
        EXPECT_NE(out.find(line), std::string::npos) << "missing: " << line << "\n" << out;
}

TEST(ExrWriter, EarlierRunStatusesTemplatesAndRowsOfAReleasedBuffer) {
    const std::string dir = exrtest::scratchFolder();
    // configure removes the earlier run from index 0 up to the first gap.
    for (const char* name : {"frame000000.exr", "frame000001.exr", "frame000003.exr"})
        std::ofstream(dir + name) << "old";
    configured(8, 8, dir);
    EXPECT_FALSE(fs::exists(dir + "frame000000.exr") || fs::exists(dir + "frame000001.exr"));
    EXPECT_TRUE(fs::exists(dir + "frame000003.exr"));

    DynamicMetadata d = frame(5);
    auto missing = configured(4, 2, dir + "missing/");
    ASSERT_EQ(missing->newImageObject(d), 0);
    EXPECT_EQ(missing->saveImageObject(), 1005);
    if (fs::exists("/dev/full")) {
        auto full = configured(4, 2, dir);
        fs::create_symlink("/dev/full", dir + "frame000005.exr");
        ASSERT_EQ(full->newImageObject(d), 0);
        EXPECT_EQ(full->saveImageObject(), 1007);
    }

    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 4, 2, dir);
    for (const char* bad : {"frame%s", "frame%d_%d", "frame%ld", "frame%*d", "frame%"})
        EXPECT_THROW((clip.outputFilenameTemplate = bad, w.configure(clip)), cd_exception) << bad;
    clip.outputFilenameTemplate = "f%%_%05u";
    ASSERT_EQ(w.configure(clip), 0);
    ASSERT_EQ(w.newImageObject(d), 0);
    EXPECT_EQ(w.currentFilename(), dir + "f%_00005.exr");
    // A new clip releases the buffer the started frame was laid out in.
    ASSERT_EQ(w.configure(clip), 0);
    std::vector<float> row(12, 1.0f);
    EXPECT_THROW(w.storeImageRow(row.data(), 1), cd_exception);
}

TEST(ExrWriterDeathTest, BufferSizeNameLengthAndRowAssertions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string dir = exrtest::scratchFolder();
    EXPECT_DEATH(configured(4100, 4100, dir), "outputBufferSize < 100e6");
    // A folder that makes the path exactly 256 characters long fails; one character less passes.
    const std::string longFolder = dir + std::string(256 - dir.size() - 16, 'x') + "/";  // + "frame000001.exr"
    DynamicMetadata d = frame(1);
    EXPECT_DEATH(configured(4, 2, longFolder)->newImageObject(d), "filename.size\\(\\) < 256");
    std::vector<float> row(12, 0.0f);
    EXPECT_DEATH(configured(4, 2, dir)->storeImageRow(row.data(), 2), "\\(unsigned int\\)row < outputRows");

    auto shorter = configured(4, 2, longFolder.substr(0, longFolder.size() - 2) + "/");
    EXPECT_TRUE(shorter->newImageObject(d) == 0 && shorter->currentFilename().size() == 255u);
    EXPECT_EQ(configured(4000, 4000, dir)->bufferSize(), 96129000u);
}
