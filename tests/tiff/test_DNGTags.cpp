// DNG tag record: defaults for absent tags, presence flags, the per-frame re-reads, the CFAPattern
// report, byte-order independence and the two tag dumps. (A UserComment typed UNDEFINED is refused by
// the parser's string query; see the parser tests.)
#include <sstream>
#include <tuple>

#include "cinedng/cd_DNGTags.h"
#include "tiff_test_util.h"

using namespace cinedng;
using namespace cinedng::framebuilder;
using namespace tifftest;

namespace {

// The record of a parsed frame; what reading it printed goes to *err.
cd_DNGTags readAll(const std::unique_ptr<Parsed>& f, std::string* err = nullptr) {
    cd_DNGTags t;
    testing::internal::CaptureStderr();
    t.readAllTags(f->p, false);
    const std::string printed = testing::internal::GetCapturedStderr();
    if (err) *err = printed;
    return t;
}

// A raw IFD without image data: just the core tags (not even a CFAPattern).
TiffBuilder bareFrame(uint32_t w, uint32_t h, uint16_t bits) {
    TiffBuilder b;
    b.addLongs(0, 254, {0});
    b.addLongs(0, 256, {w});
    b.addLongs(0, 257, {h});
    b.addShorts(0, 258, {bits});
    return b;
}

// The lines of a dump after its heading; their labels in *labels.
std::vector<std::string> lines(const std::string& dump, std::vector<std::string>* labels) {
    std::vector<std::string> out;
    std::istringstream in(dump.substr(dump.find('\n') + 1));
    for (std::string line; std::getline(in, line); out.push_back(line)) {
        const size_t start = line.find_first_not_of(' ');
        labels->push_back(line.substr(start, line.find_first_of("[ ", start) - start));
    }
    return out;
}

}  // namespace

TEST(DNGTagsDefaults, AbsentTagsGetTheImpliedValuesAndCfaPatternIsReported) {
    std::string err;
    cd_DNGTags t = readAll(parse(bareFrame(4096, 2160, 12)), &err);
    EXPECT_EQ(err, "CFAPattern read error  1010\n");
    EXPECT_TRUE(t.CFAPattern.empty());
    EXPECT_EQ(t.blackLevelRepeatDim, (std::vector<uint16_t>{1, 1}));
    EXPECT_EQ(t.blackLevel, (std::vector<float>{0.0f}));
    EXPECT_EQ(t.whiteLevel, (std::vector<uint32_t>{4095}));
    EXPECT_EQ(t.activeArea, (std::vector<uint32_t>{0, 0, 2160, 4096}));
    EXPECT_EQ(t.defaultCropOrigin, (std::vector<float>{0, 0}));
    EXPECT_EQ(t.defaultCropSize, (std::vector<float>{4096, 2160}));
    EXPECT_EQ(std::make_tuple(t.orientation, t.samplesPerPixel, t.planarConfig), std::make_tuple(1u, uint16_t{1}, uint16_t{1}));
    EXPECT_EQ(t.rowsPerStrip, 0u);  // absent, and the clamp only lowers
    EXPECT_EQ(std::make_pair(t.frameRate.n, t.frameRate.d), std::make_pair(0, 1));
    EXPECT_FALSE(t.hasFrameRate || t.hasBayerGreenSplit || t.hasCalibrationIlluminant1 ||
                 t.hasCalibrationIlluminant2 || t.hasCFALayout || t.hasFillOrder);
    EXPECT_GT(t.stats().timeDataProcessing, 0.0f);
    // White level 2^bits - 1 in 32 bits, the shift taken modulo 32.
    for (auto [bits, white] : std::vector<std::pair<uint16_t, uint32_t>>{{16, 65535}, {14, 16383}, {32, 0}, {0, 0}})
        EXPECT_EQ(readAll(parse(bareFrame(8, 8, bits))).whiteLevel, std::vector<uint32_t>{white}) << bits;

    // Crop size from the active area less the origin; one-strip RowsPerStrip clamped to the height
    // by readAllTags only; presence flags tell a zero value from an absent tag.
    TiffBuilder b = bareFrame(4200, 2200, 12);
    b.addLongs(0, 50829, {10, 20, 2170, 4116});
    b.addRationals(0, 50719, {{8, 1}, {4, 1}});
    b.addLongs(0, 278, {0xFFFFFFFFu});
    b.addLongs(0, 50733, {0});
    b.addShorts(0, 50711, {1});
    b.addShorts(0, 266, {1});
    b.addShorts(0, 50778, {17});
    b.addRationals(0, 51044, {{0, 1}}, SRATIONAL);
    b.addShorts(0, 33422, {0, 1, 1, 2});  // a CFAPattern of the wrong type: reported, not raised
    auto f = parse(b);
    t = readAll(f, &err);
    EXPECT_EQ(err, typeLines(33422, 3, 4) + kNotBytes + "CFAPattern read error  5\n");
    EXPECT_EQ(t.defaultCropSize, (std::vector<float>{4096 - 8, 2160 - 4}));
    EXPECT_TRUE(t.hasBayerGreenSplit && t.hasCFALayout && t.hasFillOrder && t.hasCalibrationIlluminant1 && t.hasFrameRate);
    EXPECT_FALSE(t.hasCalibrationIlluminant2);
    EXPECT_EQ(std::make_tuple(t.bayerGreenSplit, t.frameRate.n, t.calibrationIlluminant1), std::make_tuple(0u, 0, uint16_t{17}));
    EXPECT_EQ(t.rowsPerStrip, 2200u);
    EXPECT_EQ(t.readStorageTags(f->p), 0);
    EXPECT_EQ(t.rowsPerStrip, 0xFFFFFFFFu);
}

TEST(DNGTagsPerFrame, DynamicCoreAndStorageReReads) {
    auto first = parse(buildRawFrame(
        {.timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0}, .imageNumber = 1234, .dateTimeOriginal = "2024:01:02 03:04:05"}));
    cd_DNGTags t = readAll(first);
    EXPECT_EQ(t.imageNumber, 1234u);
    // The next frame has no per-frame tags: they are cleared, not kept.
    auto second = parse(buildRawFrame({.width = 32, .height = 16, .bits = 16, .rowsPerStrip = 5}));
    EXPECT_EQ(t.readDynamicMetadataTags(second->p), 0);
    EXPECT_TRUE(t.imageNumber == 0 && t.dateTimeOriginal.empty() && t.timeCodes.empty());
    EXPECT_EQ(t.readDynamicMetadataTags(first->p), 0);
    EXPECT_EQ(t.dateTimeOriginal + " " + std::to_string(t.timeCodes.size()), "2024:01:02 03:04:05 8");
    EXPECT_EQ(t.readCoreTags(second->p) + t.readStorageTags(second->p), 0);
    EXPECT_EQ(std::make_tuple(t.imageWidth, t.imageHeight, t.bitsPerSample, t.rowsPerStrip), std::make_tuple(32u, 16u, uint16_t{16}, 5u));
    EXPECT_EQ(t.stripByteCounts, (std::vector<uint32_t>{5 * 64, 5 * 64, 5 * 64, 64}));
}

// The record of a frame and of its big-endian twin print the same dumps; the dump's labels in order
// and the line formats.
TEST(DNGTagsDump, BigEndianTwinReadsTheSameRecord) {
    RawFrameDesc desc{.width = 40, .height = 24, .bits = 14, .rowsPerStrip = 7, .useSubIFD = true,
                      .blackLevelRepeatDim = {2, 2}, .blackLevel = {60, 64, 60, 64}, .whiteLevel = {70000},
                      .activeArea = {2, 4, 22, 38},
                      .colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039},
                      .asShotNeutral = {0.5, 1, 0.75}, .timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0},
                      .frameRate = std::make_pair(25, 1), .imageNumber = 9};
    for (int i = 0; i < 25; ++i) desc.linearizationTable.push_back(static_cast<uint16_t>(i * 3));
    cd_DNGTags t[2];
    std::string dumps[2];
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        desc.byteOrder = order;
        const bool mm = order == ByteOrder::MM;
        t[mm] = readAll(parse(buildRawFrame(desc)));
        EXPECT_EQ(t[mm].byteOrder, mm ? 0x4D4D : 0x4949);
        std::ostringstream os;
        t[mm].debugPrintTags(os);
        t[mm].debugImageTags(os);
        dumps[mm] = os.str().substr(os.str().find("newSubFileType"));  // all but the byteOrder line
    }
    EXPECT_EQ(dumps[0], dumps[1]);

    t[0].stripOffsets = {2468096};  // large integers print in floating-point notation
    std::ostringstream os, image;
    t[0].debugPrintTags(os);
    t[0].debugImageTags(image);
    EXPECT_EQ(os.str().substr(0, 28) + image.str().substr(0, 33), "Display of important tags: \nDisplay of image-specific tags: \n");
    std::vector<std::string> labels, imageLabels;
    const std::vector<std::string> l = lines(os.str(), &labels), il = lines(image.str(), &imageLabels);
    EXPECT_EQ(labels, (std::vector<std::string>{
        "byteOrder", "newSubFileType", "imageWidth", "imageHeight", "bitsPerSample", "compression", "photometric",
        "fillOrder", "imageDescription", "make", "model", "stripOffsets", "orientation", "samplesPerPixel",
        "rowsPerStrip", "stripByteCounts", "planarConfig", "tileWidth", "tileLength", "software", "dateTime",
        "artist", "subIFDs", "CFARepeatPatternDim", "CFAPattern", "timeZoneOffset", "dateTimeOriginal",
        "shutterSpeedValue", "apertureValue", "lightSource", "focalLength", "imageNumber", "userComment",
        "dngVersion", "dngBackVersion", "cameraModel", "localizedCameraModel", "CFAPlaneColor", "CFALayout",
        "linearizationTable", "blackLevelRepeatDim", "blackLevel", "blackLevelH", "blackLevelV", "whiteLevel",
        "defaultCropOrigin", "defaultCropSize", "xyz2rgbMatrix1", "xyz2rgbMatrix2", "cameraCalibration1",
        "cameraCalibration2", "asShotNeutral", "bayerGreenSplit", "cameraNumber", "lensInfo",
        "calibrationIlluminant1", "calibrationIlluminant2", "activeArea", "timeCodes", "tc", "frameRate", "tStop"}));
    EXPECT_EQ(imageLabels, (std::vector<std::string>{"imageWidth", "imageHeight", "bitsPerSample", "samplesPerPixel",
                                                     "compression", "photometric", "stripOffsets", "rowsPerStrip",
                                                     "stripByteCounts", "imageNumber", "dateTimeOriginal", "timeCodes", "tc"}));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {l[0], "               byteOrder   = 18761"}, {l[11], "            stripOffsets[1]={ 2.4681e+06 }"},
        {l[39], "      linearizationTable[25]={ 0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42, 45, 48, 51, 54, 57 ... }"},
        {l[46], "         defaultCropSize[2]={ 34, 20 }"}, {l[49], "      cameraCalibration1[0]={  }"},
        {l[59], "                      tc   = 10:20:30:15"}, {l[60], "               frameRate   = 25/1"},
        {il[9], "             imageNumber   = 9"}, {il[12], "                      tc   = 10:20:30:15"}};
    for (const auto& [line, want] : expected) EXPECT_EQ(line, want);
}
