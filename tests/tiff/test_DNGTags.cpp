// DNG tag record: defaults for absent tags, presence flags, the per-frame re-reads, the CFAPattern
// report, and the two tag dumps.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "cinedng/cd_DNGTags.h"
#include "tiff_test_util.h"

using namespace cinedng;
using namespace cinedng::framebuilder;
using namespace tifftest;

namespace {

// Reads every tag of a frame; the stderr of the whole read is kept in *err.
cd_DNGTags readAll(std::unique_ptr<Parsed>& f, std::string* err = nullptr) {
    cd_DNGTags t;
    testing::internal::CaptureStderr();
    t.readAllTags(f->p, false);
    const std::string e = testing::internal::GetCapturedStderr();
    if (err) *err = e;
    return t;
}

// A raw IFD without image data: just the core tags.
TiffBuilder bareFrame(uint32_t w, uint32_t h, uint16_t bits, ByteOrder order = ByteOrder::II) {
    TiffBuilder b(order);
    b.addLongs(0, 254, {0});
    b.addLongs(0, 256, {w});
    b.addLongs(0, 257, {h});
    b.addShorts(0, 258, {bits});
    b.addShorts(0, 259, {1});
    b.addShorts(0, 262, {32803});
    b.addShorts(0, 33421, {2, 2});
    b.addBytes(0, 33422, {0, 1, 1, 2});
    return b;
}

std::vector<std::string> labelsOf(const std::string& dump) {
    std::vector<std::string> labels;
    std::istringstream in(dump);
    std::string line;
    std::getline(in, line);  // heading
    const std::regex re(R"(^ *([A-Za-z0-9]+)(\[|   = ))");
    while (std::getline(in, line)) {
        std::smatch m;
        if (std::regex_search(line, m, re)) labels.push_back(m[1]);
        else labels.push_back("?" + line);
    }
    return labels;
}

std::string lineOf(const std::string& dump, const std::string& label) {
    std::istringstream in(dump);
    std::string line;
    const std::regex re("^ *" + label + R"((\[|   = ))");
    while (std::getline(in, line))
        if (std::regex_search(line, re)) return line;
    return "";
}

}  // namespace

TEST(DNGTagsDefaults, BareFrameGetsTheImpliedValues) {
    TiffBuilder b = bareFrame(4096, 2160, 12);
    auto f = parse(b);
    cd_DNGTags t = readAll(f);
    EXPECT_EQ(t.byteOrder, 0x4949);
    EXPECT_EQ(t.imageWidth, 4096u);
    EXPECT_EQ(t.imageHeight, 2160u);
    EXPECT_EQ(t.blackLevelRepeatDim, (std::vector<uint16_t>{1, 1}));
    EXPECT_EQ(t.blackLevel, (std::vector<float>{0.0f}));
    EXPECT_EQ(t.whiteLevel, (std::vector<uint32_t>{4095}));
    EXPECT_EQ(t.activeArea, (std::vector<uint32_t>{0, 0, 2160, 4096}));
    EXPECT_EQ(t.defaultCropOrigin, (std::vector<float>{0, 0}));
    EXPECT_EQ(t.defaultCropSize, (std::vector<float>{4096, 2160}));
    EXPECT_EQ(t.orientation, 1u);
    EXPECT_EQ(t.samplesPerPixel, 1);
    EXPECT_EQ(t.planarConfig, 1);
    EXPECT_TRUE(t.linearizationTable.empty());
    EXPECT_EQ(t.rowsPerStrip, 0u);  // absent, and the clamp only lowers
    EXPECT_EQ(t.frameRate.n, 0);
    EXPECT_EQ(t.frameRate.d, 1);
    EXPECT_FALSE(t.hasFrameRate);
    EXPECT_FALSE(t.hasBayerGreenSplit || t.hasCalibrationIlluminant1 || t.hasCalibrationIlluminant2 ||
                 t.hasCFALayout || t.hasFillOrder);
    EXPECT_EQ(t.CFAPattern, (std::vector<uint8_t>{0, 1, 1, 2}));
    EXPECT_GT(t.stats().timeDataProcessing, 0.0f);
}

TEST(DNGTagsDefaults, WhiteLevelFromBitsWrapsAtThirtyTwo) {
    for (auto [bits, white] : std::vector<std::pair<uint16_t, uint32_t>>{{16, 65535}, {14, 16383}, {32, 0}, {0, 0}}) {
        TiffBuilder b = bareFrame(8, 8, bits);
        auto f = parse(b);
        EXPECT_EQ(readAll(f).whiteLevel, (std::vector<uint32_t>{white})) << bits;
    }
}

TEST(DNGTagsDefaults, CropSizeFromActiveAreaAndOrigin) {
    TiffBuilder b = bareFrame(4200, 2200, 12);
    b.addLongs(0, 50829, {10, 20, 2170, 4116});
    b.addRationals(0, 50719, {{8, 1}, {4, 1}});
    auto f = parse(b);
    cd_DNGTags t = readAll(f);
    EXPECT_EQ(t.defaultCropOrigin, (std::vector<float>{8, 4}));
    EXPECT_EQ(t.defaultCropSize, (std::vector<float>{4096 - 8, 2160 - 4}));

    // An ActiveArea of two values reads its missing ones as 0 (never past the vector).
    TiffBuilder s = bareFrame(100, 50, 12);
    s.addLongs(0, 50829, {10, 20});
    auto g = parse(s);
    cd_DNGTags u = readAll(g);
    EXPECT_EQ(u.defaultCropSize, (std::vector<float>{static_cast<float>(0u - 20u), static_cast<float>(0u - 10u)}));
}

TEST(DNGTagsDefaults, RowsPerStripClampedOnlyByReadAllTags) {
    TiffBuilder b = bareFrame(64, 40, 12);
    b.addLongs(0, 278, {0xFFFFFFFFu});
    auto f = parse(b);
    cd_DNGTags t = readAll(f);
    EXPECT_EQ(t.rowsPerStrip, 40u);
    EXPECT_EQ(t.readStorageTags(f->p), 0);
    EXPECT_EQ(t.rowsPerStrip, 0xFFFFFFFFu);
}

TEST(DNGTagsPresence, FlagsTellZeroFromAbsent) {
    TiffBuilder b = bareFrame(16, 16, 12);
    b.addLongs(0, 50733, {0});
    b.addShorts(0, 50711, {1});
    b.addShorts(0, 266, {1});
    b.addShorts(0, 50778, {17});
    b.addRationals(0, 51044, {{0, 1}}, SRATIONAL);
    auto f = parse(b);
    cd_DNGTags t = readAll(f);
    EXPECT_TRUE(t.hasBayerGreenSplit);
    EXPECT_EQ(t.bayerGreenSplit, 0u);
    EXPECT_TRUE(t.hasCFALayout);
    EXPECT_TRUE(t.hasFillOrder);
    EXPECT_TRUE(t.hasCalibrationIlluminant1);
    EXPECT_EQ(t.calibrationIlluminant1, 17);
    EXPECT_FALSE(t.hasCalibrationIlluminant2);
    EXPECT_TRUE(t.hasFrameRate);
    EXPECT_EQ(t.frameRate.n, 0);
}

TEST(DNGTagsFailures, CfaPatternReportAndStrictStrings) {
    TiffBuilder absent = bareFrame(16, 16, 12);
    absent.removeTag(0, 33422);
    auto f = parse(absent);
    std::string err;
    cd_DNGTags t = readAll(f, &err);
    EXPECT_EQ(err, "CFAPattern read error  1010\n");
    EXPECT_TRUE(t.CFAPattern.empty());

    TiffBuilder wrongType = bareFrame(16, 16, 12);
    wrongType.removeTag(0, 33422);
    wrongType.addShorts(0, 33422, {0, 1, 1, 2});
    auto g = parse(wrongType);
    readAll(g, &err);
    EXPECT_EQ(err, typeLines(33422, 3, 4) +
                       "\"Could not read tag, it's not in byte format\"   = Could not read tag, it's not in byte format\n"
                       "CFAPattern read error  5\n");

    // EXIF allows UserComment as UNDEFINED; the record's string query does not.
    TiffBuilder comment = bareFrame(16, 16, 12);
    comment.addBytes(0, 37510, {'A', 'S', 'C', 'I', 'I', 0, 0, 0, 'h', 'i'}, UNDEFINED);
    auto h = parse(comment);
    cd_DNGTags u;
    testing::internal::CaptureStderr();
    EXPECT_CD_THROW(u.readAllTags(h->p, false), "tag.Type == TIFF_ASCII");
    testing::internal::GetCapturedStderr();
}

TEST(DNGTagsPerFrame, DynamicCoreAndStorageReReads) {
    RawFrameSpec desc;
    desc.imageNumber = 1234;
    desc.dateTimeOriginal = "2024:01:02 03:04:05";
    desc.timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    auto first = parse(buildRawFrame(desc));
    cd_DNGTags t = readAll(first);
    EXPECT_EQ(t.imageNumber, 1234u);
    EXPECT_EQ(t.timeCodes.size(), 8u);

    // The next frame has no per-frame tags: they are cleared, not kept.
    RawFrameSpec next;
    next.width = 32;
    next.height = 16;
    next.bits = 16;
    next.rowsPerStrip = 5;
    auto second = parse(buildRawFrame(next));
    EXPECT_EQ(t.readDynamicMetadataTags(second->p), 0);
    EXPECT_EQ(t.imageNumber, 0u);
    EXPECT_EQ(t.dateTimeOriginal, "");
    EXPECT_TRUE(t.timeCodes.empty());
    EXPECT_EQ(t.readDynamicMetadataTags(first->p), 0);
    EXPECT_EQ(t.dateTimeOriginal, "2024:01:02 03:04:05");

    EXPECT_EQ(t.readCoreTags(second->p), 0);
    EXPECT_EQ(t.imageWidth, 32u);
    EXPECT_EQ(t.imageHeight, 16u);
    EXPECT_EQ(t.bitsPerSample, 16);
    EXPECT_EQ(t.readStorageTags(second->p), 0);
    EXPECT_EQ(t.stripOffsets.size(), 4u);
    EXPECT_EQ(t.stripByteCounts, (std::vector<uint32_t>{5 * 64, 5 * 64, 5 * 64, 64}));
    EXPECT_EQ(t.rowsPerStrip, 5u);
}

TEST(DNGTagsByteOrder, BigEndianTwinReadsTheSameRecord) {
    RawFrameSpec desc;
    desc.width = 40;
    desc.height = 24;
    desc.bits = 14;
    desc.rowsPerStrip = 7;
    desc.useSubIFD = true;
    desc.blackLevelRepeatDim = {2, 2};
    desc.blackLevel = {60, 64, 60, 64};
    desc.whiteLevel = {70000};
    desc.linearizationTable = {0, 10, 20, 30, 40};
    desc.activeArea = {2, 4, 22, 38};
    desc.defaultCropOrigin = {1, 1};
    desc.defaultCropSize = {30, 18};
    desc.colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039};
    desc.colorMatrix2 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    desc.calibrationIlluminant1 = 17;
    desc.calibrationIlluminant2 = 21;
    desc.asShotNeutral = {0.5, 1, 0.75};
    desc.baselineExposure = -0.5;
    desc.timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    desc.frameRate = std::make_pair(24000, 1001);
    desc.imageNumber = 77;
    desc.dateTimeOriginal = "2024:01:02 03:04:05";
    desc.blackLevelDeltaH.assign(40, 0.5);
    desc.blackLevelDeltaV.assign(24, -0.25);
    desc.cameraCalibration1 = {1.01, 0, 0, 0, 1, 0, 0, 0, 0.99};
    std::string dumps[2];
    int i = 0;
    for (ByteOrder order : {ByteOrder::II, ByteOrder::MM}) {
        desc.byteOrder = order;
        int raw = 0;
        TiffBuilder b = makeRawFrameBuilder(desc, {}, &raw);
        b.addShorts(raw, 34858, {static_cast<uint16_t>(-5)}, SSHORT);
        b.addRationals(raw, 37377, {{static_cast<uint32_t>(-7), 3}}, SRATIONAL);
        b.addFloats(raw, 51058, {2.8f});
        b.addDoubles(raw, 50724, {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
        auto f = parse(b);
        cd_DNGTags t = readAll(f);
        EXPECT_EQ(t.byteOrder, order == ByteOrder::II ? 0x4949 : 0x4D4D);
        std::ostringstream os;
        t.debugPrintTags(os);
        dumps[i] = os.str().substr(os.str().find("newSubFileType"));  // all but the byteOrder line
        EXPECT_EQ(t.whiteLevel, (std::vector<uint32_t>{70000}));
        EXPECT_EQ(t.timeZoneOffset, (std::vector<int16_t>{-5}));
        EXPECT_EQ(t.shutterSpeedValue.at(0).n, -7);
        EXPECT_EQ(t.frameRate.n, 24000);
        EXPECT_EQ(t.frameRate.d, 1001);
        EXPECT_EQ(t.blackLevelH, std::vector<float>(40, 0.5f));
        EXPECT_EQ(t.blackLevelV, std::vector<float>(24, -0.25f));
        EXPECT_FLOAT_EQ(t.cameraCalibration1.at(8), 0.99f);
        ++i;
    }
    EXPECT_EQ(dumps[0], dumps[1]);
}

// ---- dumps -------------------------------------------------------------------------------------------

TEST(DNGTagsDump, ImportantTagsInOrderWithVectorAndTimeCodeLines) {
    RawFrameSpec desc;
    desc.linearizationTable.resize(25);
    for (int i = 0; i < 25; ++i) desc.linearizationTable[static_cast<size_t>(i)] = static_cast<uint16_t>(i * 3);
    desc.timeCodes = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    desc.frameRate = std::make_pair(25, 1);
    auto f = parse(buildRawFrame(desc));
    cd_DNGTags t = readAll(f);
    t.stripOffsets = {2468096};  // large integers print in floating-point notation
    std::ostringstream os;
    t.debugPrintTags(os);
    const std::string dump = os.str();
    EXPECT_EQ(dump.substr(0, 27), "Display of important tags: ");
    EXPECT_EQ(labelsOf(dump),
              (std::vector<std::string>{
                  "byteOrder", "newSubFileType", "imageWidth", "imageHeight", "bitsPerSample", "compression",
                  "photometric", "fillOrder", "imageDescription", "make", "model", "stripOffsets", "orientation",
                  "samplesPerPixel", "rowsPerStrip", "stripByteCounts", "planarConfig", "tileWidth", "tileLength",
                  "software", "dateTime", "artist", "subIFDs", "CFARepeatPatternDim", "CFAPattern", "timeZoneOffset",
                  "dateTimeOriginal", "shutterSpeedValue", "apertureValue", "lightSource", "focalLength",
                  "imageNumber", "userComment", "dngVersion", "dngBackVersion", "cameraModel", "localizedCameraModel",
                  "CFAPlaneColor", "CFALayout", "linearizationTable", "blackLevelRepeatDim", "blackLevel",
                  "blackLevelH", "blackLevelV", "whiteLevel", "defaultCropOrigin", "defaultCropSize",
                  "xyz2rgbMatrix1", "xyz2rgbMatrix2", "cameraCalibration1", "cameraCalibration2", "asShotNeutral",
                  "bayerGreenSplit", "cameraNumber", "lensInfo", "calibrationIlluminant1", "calibrationIlluminant2",
                  "activeArea", "timeCodes", "tc", "frameRate", "tStop"}));
    EXPECT_EQ(lineOf(dump, "linearizationTable"),
              "      linearizationTable[25]={ 0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 33, 36, 39, 42, 45, 48, 51, "
              "54, 57 ... }");
    EXPECT_EQ(lineOf(dump, "stripOffsets"), "            stripOffsets[1]={ 2.4681e+06 }");
    EXPECT_EQ(lineOf(dump, "imageWidth"), "              imageWidth   = 64");
    EXPECT_EQ(lineOf(dump, "make"), "                    make   = cinedng");
    EXPECT_EQ(lineOf(dump, "CFAPattern"), "              CFAPattern[4]={ 0, 1, 1, 2 }");
    EXPECT_EQ(lineOf(dump, "tStop"), "                   tStop[0]={  }");
    EXPECT_EQ(lineOf(dump, "tc"), "                      tc   = 10:20:30:15");
    EXPECT_EQ(lineOf(dump, "frameRate"), "               frameRate   = 25/1");
}

TEST(DNGTagsDump, ImageSpecificTags) {
    RawFrameSpec desc;
    desc.imageNumber = 9;
    auto f = parse(buildRawFrame(desc));
    cd_DNGTags t = readAll(f);
    std::ostringstream os;
    t.debugImageTags(os);
    EXPECT_EQ(os.str().substr(0, 33), "Display of image-specific tags: \n");
    EXPECT_EQ(labelsOf(os.str()),
              (std::vector<std::string>{"imageWidth", "imageHeight", "bitsPerSample", "samplesPerPixel",
                                        "compression", "photometric", "stripOffsets", "rowsPerStrip",
                                        "stripByteCounts", "imageNumber", "dateTimeOriginal", "timeCodes", "tc"}));
    EXPECT_EQ(lineOf(os.str(), "tc"), "                      tc   = ");
    EXPECT_EQ(lineOf(os.str(), "imageNumber"), "             imageNumber   = 9");
}
