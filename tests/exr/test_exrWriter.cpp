// The EXR writer end to end: files read back by the OpenEXR library and by exrheader, the file
// layout, the removal of an earlier run's files, statuses, statistics and the assertions.
#include <gtest/gtest.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfChromaticitiesAttribute.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfRationalAttribute.h>
#include <OpenEXR/ImfStandardAttributes.h>
#include <OpenEXR/ImfStringAttribute.h>
#include <OpenEXR/ImfTimeCodeAttribute.h>
#include <Imath/half.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <random>
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
    clip.frameCount = 1;
    clip.outputRows = rows;
    clip.outputCols = cols;
    clip.headerInfo = w.query();
    clip.colorMatrixFromSourceRGBToOutputRGB = std::valarray<float>(kMatrix, 9);
    clip.outputFolder = folder;
    clip.outputFilenameTemplate = "frame%06d";
    return clip;
}

std::vector<float> testImage(int cols, int rows, unsigned int salt) {
    std::mt19937 rng(salt);
    std::uniform_real_distribution<float> dist(0.0f, 4.0f);
    std::vector<float> img(static_cast<std::size_t>(cols) * rows * 3);
    for (float& v : img) v = dist(rng);
    img[0] = 70000.0f;                                    // clamped to the largest half
    img[4] = std::numeric_limits<float>::infinity();      // green of pixel 1
    img[8] = std::numeric_limits<float>::quiet_NaN();     // blue of pixel 2
    img[9] = -0.5f;
    img[10] = 1e-6f;                                      // denormal halves
    return img;
}

uint16_t expectedHalf(const float* px, int channel) {
    const float* m = kMatrix + 3 * channel;
    return cd_openEXRformatter::floatToHalf(m[0] * px[0] + m[1] * px[1] + m[2] * px[2]);
}

std::string run(const std::string& cmd) {
    std::string out;
    std::FILE* p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

void touch(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    std::fputs("old", f);
    std::fclose(f);
}

}  // namespace

TEST(ExrWriter, FileReadsBackThroughOpenEXRWithOurHalfBitsAndAttributes) {
    const std::string dir = exrtest::scratchFolder();
    const int cols = 37, rows = 5;
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, cols, rows, dir);
    clip.headerInfo.software = "DNGprocessor";
    clip.headerInfo.framesPerSecond = srational(25, 1);
    clip.headerInfo.owner = "cinedng tests";
    ASSERT_EQ(w.configure(clip), 0);

    DynamicMetadata d;
    d.imageNumber = 1234;
    d.dateTimeOriginal = "2024:01:02 03:04:05";
    d.timeCode = {0x15, 0x30, 0x20, 0x10, 0x78, 0x56, 0x34, 0x12};  // 10:20:30:15, user data 0x12345678
    ASSERT_EQ(w.newImageObject(d), 0);
    const std::vector<float> img = testImage(cols, rows, 7);
    for (int y = rows - 1; y >= 0; --y) {  // any order
        ASSERT_EQ(w.storeImageRow(const_cast<float*>(&img[static_cast<std::size_t>(y) * cols * 3]), y), 0);
    }
    EXPECT_EQ(w.rowsStoredForFrame(), static_cast<uint32_t>(rows));
    ASSERT_EQ(w.saveImageObject(), 0);
    const std::string path = dir + "frame001234.exr";
    ASSERT_EQ(w.currentFilename(), path);
    ASSERT_TRUE(fs::exists(path));
    EXPECT_EQ(fs::file_size(path), w.currentFileSize());

    Imf::InputFile file(path.c_str());
    const Imf::Header& h = file.header();
    const Imath::Box2i dw = h.dataWindow();
    EXPECT_EQ(dw, Imath::Box2i(Imath::V2i(0, 0), Imath::V2i(cols - 1, rows - 1)));
    EXPECT_EQ(h.displayWindow(), dw);
    EXPECT_EQ(h.compression(), Imf::NO_COMPRESSION);
    int channels = 0;
    for (Imf::ChannelList::ConstIterator it = h.channels().begin(); it != h.channels().end(); ++it, ++channels) {
        EXPECT_EQ(it.channel().type, Imf::HALF) << it.name();
    }
    EXPECT_EQ(channels, 3);

    ASSERT_TRUE(Imf::hasChromaticities(h));
    EXPECT_EQ(Imf::chromaticities(h).red.x, 0.7347f);
    EXPECT_EQ(Imf::chromaticities(h).blue.y, -0.077f);
    ASSERT_TRUE(Imf::hasAdoptedNeutral(h));
    EXPECT_EQ(Imf::adoptedNeutral(h).x, 0.32168f);
    ASSERT_TRUE(Imf::hasTimeCode(h));
    EXPECT_EQ(Imf::timeCode(h).timeAndFlags(), 0x10203015u);
    EXPECT_EQ(Imf::timeCode(h).userData(), 0x12345678u);
    ASSERT_TRUE(Imf::hasCapDate(h));
    EXPECT_EQ(Imf::capDate(h), "2024:01:02 03:04:05");
    ASSERT_TRUE(Imf::hasFramesPerSecond(h));
    EXPECT_EQ(Imf::framesPerSecond(h), Imf::Rational(25, 1));
    ASSERT_TRUE(Imf::hasOwner(h));
    EXPECT_EQ(Imf::owner(h), "cinedng tests");
    ASSERT_NE(h.findTypedAttribute<Imf::IntAttribute>("imagenumber"), nullptr);
    EXPECT_EQ(h.findTypedAttribute<Imf::IntAttribute>("imagenumber")->value(), 1234);
    ASSERT_NE(h.findTypedAttribute<Imf::StringAttribute>("software"), nullptr);
    EXPECT_EQ(h.findTypedAttribute<Imf::StringAttribute>("software")->value(), "DNGprocessor");

    // Pixels through the library's own reader, compared as half bit patterns.
    std::vector<half> planes[3];
    Imf::FrameBuffer fb;
    const char* names[3] = {"R", "G", "B"};
    for (int ch = 0; ch < 3; ++ch) {
        planes[ch].resize(static_cast<std::size_t>(cols) * rows);
        fb.insert(names[ch], Imf::Slice(Imf::HALF, reinterpret_cast<char*>(planes[ch].data()), sizeof(half),
                                        sizeof(half) * cols));
    }
    file.setFrameBuffer(fb);
    file.readPixels(dw.min.y, dw.max.y);
    int mismatches = 0;
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < cols; ++x) {
            const float* px = &img[(static_cast<std::size_t>(y) * cols + x) * 3];
            for (int ch = 0; ch < 3; ++ch) {
                const uint16_t got = planes[ch][static_cast<std::size_t>(y) * cols + x].bits();
                if (got != expectedHalf(px, ch) && ++mismatches < 10) {
                    ADD_FAILURE() << "pixel " << x << "," << y << " channel " << names[ch] << ": 0x" << std::hex
                                  << got << " vs 0x" << expectedHalf(px, ch);
                }
            }
        }
    }
    EXPECT_EQ(mismatches, 0);
    // Pixel 0 has red 70000: its red output is clamped to the largest finite half.
    EXPECT_EQ(planes[0][0].bits(), 0x7BFF);
    EXPECT_TRUE(planes[1][1].isInfinity() || planes[1][1].isNan());
    EXPECT_TRUE(planes[2][2].isNan());
}

TEST(ExrWriter, ExrheaderListsTheChannelsAndAttributes) {
    if (std::system("command -v exrheader > /dev/null 2>&1") != 0) GTEST_SKIP() << "exrheader not installed";
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 16, 4, dir);
    clip.headerInfo.software = "DNGprocessor";
    clip.headerInfo.framesPerSecond = srational(25, 1);
    ASSERT_EQ(w.configure(clip), 0);
    DynamicMetadata d;
    d.imageNumber = 3;
    d.dateTimeOriginal = "2024:01:02 03:04:05";
    d.timeCode = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    ASSERT_EQ(w.newImageObject(d), 0);
    const std::vector<float> img = testImage(16, 4, 3);
    for (int y = 0; y < 4; ++y) w.storeImageRow(const_cast<float*>(&img[static_cast<std::size_t>(y) * 48]), y);
    ASSERT_EQ(w.saveImageObject(), 0);

    const std::string out = run("exrheader '" + w.currentFilename() + "' 2>&1");
    for (const char* line : {"file format version: 2, flags 0x0",
                             "channels (type chlist):",
                             "    B, 16-bit floating-point, sampling 1 1",
                             "    G, 16-bit floating-point, sampling 1 1",
                             "    R, 16-bit floating-point, sampling 1 1",
                             "compression (type compression): none",
                             "dataWindow (type box2i): (0 0) - (15 3)",
                             "displayWindow (type box2i): (0 0) - (15 3)",
                             "lineOrder (type lineOrder): increasing y",
                             "adoptedNeutral (type v2f): (0.32168 0.33767)",
                             "    red   (0.7347 0.2653)",
                             "    white (0.32168 0.33767)",
                             "capDate (type string): \"2024:01:02 03:04:05\"",
                             "framesPerSecond (type rational): 25/1 (25)",
                             "imagenumber (type int): 3",
                             "software (type string): \"DNGprocessor\"",
                             "    time 10:20:30:15",
                             "uuid (type string): \"undefined\"",
                             "acesFlag (type int): 1",
                             "dateTime (type string): \""}) {
        EXPECT_NE(out.find(line), std::string::npos) << "missing: " << line << "\n" << out;
    }
}

TEST(ExrWriter, LayoutOfA4x2Image) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 4, 2, dir);
    ASSERT_EQ(w.configure(clip), 0);
    EXPECT_EQ(w.bufferSize(), 2u * (4 * 6 + 16) + 65000);
    DynamicMetadata d;
    d.imageNumber = 1;
    ASSERT_EQ(w.newImageObject(d), 0);
    std::vector<float> row(12, 0.25f);
    w.storeImageRow(row.data(), 0);
    w.storeImageRow(row.data(), 1);
    ASSERT_EQ(w.saveImageObject(), 0);

    const std::vector<unsigned char> bytes = exrtest::readFile(w.currentFilename());
    std::size_t headerEnd = 0;
    exrtest::parseHeader(bytes, &headerEnd);
    ASSERT_EQ(bytes.size(), headerEnd + 2 * 8 + 2 * 32);
    EXPECT_EQ(w.currentFileSize(), bytes.size());
    const uint64_t first = headerEnd + 16;
    EXPECT_EQ(exrtest::le64(&bytes[headerEnd]), first);
    EXPECT_EQ(exrtest::le64(&bytes[headerEnd + 8]), first + 32);
    for (int y = 0; y < 2; ++y) {
        const unsigned char* block = &bytes[first + 32 * y];
        EXPECT_EQ(exrtest::les32(block), y);
        EXPECT_EQ(exrtest::les32(block + 4), 24);
    }
}

TEST(ExrWriter, ConfigureRemovesTheEarlierRunUpToTheFirstGap) {
    const std::string dir = exrtest::scratchFolder();
    touch(dir + "frame000000.exr");
    touch(dir + "frame000001.exr");
    touch(dir + "frame000003.exr");
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 8, 8, dir);
    ASSERT_EQ(w.configure(clip), 0);
    EXPECT_FALSE(fs::exists(dir + "frame000000.exr"));
    EXPECT_FALSE(fs::exists(dir + "frame000001.exr"));
    EXPECT_TRUE(fs::exists(dir + "frame000003.exr"));
}

TEST(ExrWriter, FileNameComesFromTheFramesImageNumberAndFramesReuseTheBuffer) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 6, 3, dir);
    clip.outputFilenameTemplate = "shot_%04d";
    ASSERT_EQ(w.configure(clip), 0);
    const std::vector<float> img = testImage(6, 3, 11);
    // A long capture date on the first frame, a short one on the second: the second header is
    // shorter and its file must still be complete and readable.
    const char* dates[2] = {"a capture date that is rather long for a header", "short"};
    for (uint32_t number : {77u, 78u}) {
        DynamicMetadata d;
        d.imageNumber = number;
        d.dateTimeOriginal = dates[number - 77];
        ASSERT_EQ(w.newImageObject(d), 0);
        for (int y = 0; y < 3; ++y) w.storeImageRow(const_cast<float*>(&img[static_cast<std::size_t>(y) * 18]), y);
        ASSERT_EQ(w.saveImageObject(), 0);
    }
    ASSERT_TRUE(fs::exists(dir + "shot_0077.exr"));
    ASSERT_TRUE(fs::exists(dir + "shot_0078.exr"));
    Imf::InputFile file((dir + "shot_0078.exr").c_str());
    EXPECT_EQ(Imf::capDate(file.header()), "short");
    EXPECT_EQ(file.header().findTypedAttribute<Imf::IntAttribute>("imagenumber")->value(), 78);
    std::vector<half> g(18);
    Imf::FrameBuffer fb;
    fb.insert("G", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(g.data()), sizeof(half), sizeof(half) * 6));
    file.setFrameBuffer(fb);
    file.readPixels(0, 2);
    EXPECT_EQ(g[17].bits(), expectedHalf(&img[3 * 17], 1));
}

TEST(ExrWriter, StatusesForFilesThatCannotBeOpenedOrWritten) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 4, 2, dir + "missing/");
    ASSERT_EQ(w.configure(clip), 0);
    DynamicMetadata d;
    d.imageNumber = 5;
    ASSERT_EQ(w.newImageObject(d), 0);
    EXPECT_EQ(w.saveImageObject(), 1005);

    if (fs::exists("/dev/full")) {
        cd_openEXRWriter full;
        MetaWriteClip c2 = clipFor(full, 4, 2, dir);
        ASSERT_EQ(full.configure(c2), 0);
        fs::create_symlink("/dev/full", dir + "frame000005.exr");
        ASSERT_EQ(full.newImageObject(d), 0);
        EXPECT_EQ(full.saveImageObject(), 1007);
    }
}

TEST(ExrWriter, RowsNeedAFrameOfTheCurrentClip) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 4, 2, dir);
    ASSERT_EQ(w.configure(clip), 0);
    std::vector<float> row(12, 1.0f);
    DynamicMetadata d;
    ASSERT_EQ(w.newImageObject(d), 0);
    EXPECT_EQ(w.storeImageRow(row.data(), 1), 0);
    // A new clip releases the buffer the started frame was laid out in.
    ASSERT_EQ(w.configure(clip), 0);
    EXPECT_THROW(w.storeImageRow(row.data(), 1), cd_exception);
}

TEST(ExrWriter, StatisticsCountEighteenBytesPerStoredPixelAndTheFile) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 10, 4, dir);
    ASSERT_EQ(w.configure(clip), 0);
    DynamicMetadata d;
    d.imageNumber = 1;
    ASSERT_EQ(w.newImageObject(d), 0);
    std::vector<float> row(30, 1.0f);
    for (int y = 0; y < 4; ++y) w.storeImageRow(row.data(), y);
    ASSERT_EQ(w.saveImageObject(), 0);
    const IOstats s = w.stats();
    EXPECT_EQ(s.bytesProcessed, 4u * 10u * 18u + w.currentFileSize());
    EXPECT_GE(s.timeConfigure, 0.0f);
    EXPECT_GE(s.timeDataProcessing, 0.0f);
}

TEST(ExrWriter, RefusesTemplatesThatDoNotTakeOneInteger) {
    const std::string dir = exrtest::scratchFolder();
    for (const char* bad : {"frame%s", "frame%d_%d", "frame%ld", "frame%*d", "frame%"}) {
        cd_openEXRWriter w;
        MetaWriteClip clip = clipFor(w, 4, 2, dir);
        clip.outputFilenameTemplate = bad;
        EXPECT_THROW(w.configure(clip), cd_exception) << bad;
    }
    for (const char* good : {"frame", "f%%_%05u", "frame%-6x"}) {
        cd_openEXRWriter w;
        MetaWriteClip clip = clipFor(w, 4, 2, dir);
        clip.outputFilenameTemplate = good;
        EXPECT_EQ(w.configure(clip), 0) << good;
    }
}

TEST(ExrWriter, BufferOf4000x4000PassesTheSizeLimit) {
    const std::string dir = exrtest::scratchFolder();
    cd_openEXRWriter w;
    MetaWriteClip clip = clipFor(w, 4000, 4000, dir);
    ASSERT_EQ(w.configure(clip), 0);
    EXPECT_EQ(w.bufferSize(), 96129000u);
}

TEST(ExrWriterDeathTest, AssertionsOnSizesNamesAndRows) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string dir = exrtest::scratchFolder();
    EXR_EXPECT_ASSERT(
        {
            cd_openEXRWriter w;
            MetaWriteClip clip = clipFor(w, 4100, 4100, dir);
            w.configure(clip);
        },
        "outputBufferSize < 100e6");
    EXR_EXPECT_ASSERT(
        {
            cd_openEXRWriter w;
            MetaWriteClip clip = clipFor(w, 4, 2, dir);
            clip.colorMatrixFromSourceRGBToOutputRGB = 0.0f;
            w.configure(clip);
        },
        "colorMatrixFromSourceRGBToOutputRGB.sum\\(\\) != 0");

    // A folder that makes the path exactly 256 characters long; one character less passes.
    const std::string name = "frame000001.exr";
    const std::string longFolder = dir + std::string(256 - dir.size() - name.size() - 1, 'x') + "/";
    ASSERT_EQ((longFolder + name).size(), 256u);
    EXR_EXPECT_ASSERT(
        {
            cd_openEXRWriter w;
            MetaWriteClip clip = clipFor(w, 4, 2, longFolder);
            w.configure(clip);
            DynamicMetadata d;
            d.imageNumber = 1;
            w.newImageObject(d);
        },
        "filename.size\\(\\) < 256");
    {
        cd_openEXRWriter w;
        MetaWriteClip clip = clipFor(w, 4, 2, longFolder.substr(0, longFolder.size() - 2) + "/");
        ASSERT_EQ(w.configure(clip), 0);
        DynamicMetadata d;
        d.imageNumber = 1;
        EXPECT_EQ(w.newImageObject(d), 0);
        EXPECT_EQ(w.currentFilename().size(), 255u);
    }

    EXR_EXPECT_ASSERT(
        {
            cd_openEXRWriter w;
            MetaWriteClip clip = clipFor(w, 4, 2, dir);
            w.configure(clip);
            DynamicMetadata d;
            w.newImageObject(d);
            std::vector<float> row(12, 0.0f);
            w.storeImageRow(row.data(), 2);
        },
        "\\(unsigned int\\)row < outputRows");
    EXR_EXPECT_ASSERT(
        {
            cd_openEXRWriter w;
            w.saveImageObject();
        },
        "outputFileSize > 0");
}
