// The metadata dictionary: agreement with exiftool on real and synthetic frames, the order and kinds
// of the entries, the derived white-balance entries and the caching rule.
#include <gtest/gtest.h>

#include <cmath>

#include "cinedng/KRColorTemperature.h"
#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/matrixOps.h"
#include "host_test_util.h"

using namespace cinedng;
using namespace hosttest;

namespace {

std::vector<double> dictNumbers(const KSDictionary& d, const std::string& key) {
    auto v = d.objectForKey(key);
    EXPECT_TRUE(v) << key;
    if (!v) return {};
    if (v->kind() == KSValue::Kind::Point) return {v->pointValue().x, v->pointValue().y};
    if (v->kind() == KSValue::Kind::Size) return {v->sizeValue().width, v->sizeValue().height};
    if (v->isNumber()) return {v->doubleValue()};
    return v->doubleVector();
}

// A rational string "n/d" as a number.
double rationalValue(const std::string& s) {
    const size_t slash = s.find('/');
    return std::stod(s.substr(0, slash)) / std::stod(s.substr(slash + 1));
}

void expectNumbersNear(const std::vector<double>& got, const std::vector<double>& want, double tol,
                       const std::string& what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << what << "[" << i << "]";
}

// Compares the entries that both read; tags absent from the file are skipped.
void compareWithExiftool(const std::string& path, KSDictionary& d) {
    const auto ex = exiftool(path);
    ASSERT_FALSE(ex.empty()) << "exiftool gave nothing for " << path;
    auto has = [&](const char* tag) { return ex.count(tag) != 0; };
    EXPECT_EQ(d.objectForKey("make")->stringValue(), ex.at("Make"));
    EXPECT_EQ(d.objectForKey("model")->stringValue(), ex.at("Model"));
    if (has("UniqueCameraModel")) {
        EXPECT_EQ(d.objectForKey("cameraModel")->stringValue(), ex.at("UniqueCameraModel"));
    }

    const std::pair<const char*, const char*> exact[] = {
        {"imageWidth", "ImageWidth"},
        {"imageHeight", "ImageHeight"},
        {"bitsPerSample", "BitsPerSample"},
        {"compression", "Compression"},
        {"photometric", "PhotometricInterpretation"},
        {"stripOffsets", "StripOffsets"},
        {"stripByteCounts", "StripByteCounts"},
        {"CFARepeatPatternDim", "CFARepeatPatternDim"},
        {"CFAPattern", "CFAPattern2"},
        {"dngVersion", "DNGVersion"},
        {"blackLevel", "BlackLevel"},
        {"whiteLevel", "WhiteLevel"},
        {"activeArea", "ActiveArea"},
        {"defaultCropOrigin", "DefaultCropOrigin"},
        {"defaultCropSize", "DefaultCropSize"},
        {"calibrationIlluminant1", "CalibrationIlluminant1"},
        {"calibrationIlluminant2", "CalibrationIlluminant2"},
        {"bayerGreenSplit", "BayerGreenSplit"},
        {"imageNumber", "ImageNumber"},
    };
    for (const auto& [key, tag] : exact) {
        if (has(tag)) expectNumbersNear(dictNumbers(d, key), numbers(ex.at(tag)), 0.0, key);
    }
    if (has("TimeCodes")) expectNumbersNear(dictNumbers(d, "timeCodes"), hexBytes(ex.at("TimeCodes")), 0.0, "timeCodes");

    // Matrices and neutrals are rationals: exiftool prints them rounded.
    const std::pair<const char*, const char*> approx[] = {
        {"xyz2rgbMatrix1", "ColorMatrix1"}, {"xyz2rgbMatrix2", "ColorMatrix2"}, {"asShotNeutral", "AsShotNeutral"}};
    for (const auto& [key, tag] : approx) {
        if (has(tag)) expectNumbersNear(dictNumbers(d, key), numbers(ex.at(tag)), 1e-5, key);
    }

    if (has("FrameRate")) {
        EXPECT_NEAR(rationalValue(d.objectForKey("frameRate")->stringValue()), std::stod(ex.at("FrameRate")), 1e-6);
    }
    if (has("ExposureTime")) {
        auto et = d.objectForKey("exposureTime");
        ASSERT_EQ(et->count(), 1u);
        EXPECT_NEAR(rationalValue(et->objectAtIndex(0)->stringValue()), std::stod(ex.at("ExposureTime")), 1e-6);
    }
}

}  // namespace

TEST(KSMetadata, RealFramesAgreeWithExiftool) {
    for (const auto& name : usableSamples()) {
        SCOPED_TRACE(name);
        auto seq = KSCinemaDNGFileSequence::initWithFilenames({samplePath(name)});
        ASSERT_TRUE(seq);
        auto d = seq->metadata();
        compareWithExiftool(samplePath(name), *d);
        // Every real frame has a three-value AsShotNeutral: the derived entries are present.
        EXPECT_TRUE(d->objectForKey("asShotWhiteBalance"));
        EXPECT_TRUE(d->objectForKey("asShotCCShift"));
        // The raw size is the stored frame, not the active area or the crop.
        const KSSize size = seq->rawImageSize();
        EXPECT_EQ(size.width, d->objectForKey("imageWidth")->doubleValue());
        EXPECT_EQ(size.height, d->objectForKey("imageHeight")->doubleValue());
    }
}

TEST(KSMetadata, SyntheticFrameWithTimeCodeRateAndNumberAgreesWithExiftool) {
    fb::RawFrameSpec s = colourFrameSpec();
    s.byteOrder = fb::ByteOrder::MM;
    s.timeCodes = {0x12, 0x34, 0x56, 0x01, 0x00, 0x00, 0x00, 0x00};
    s.frameRate = std::make_pair(24000, 1001);
    s.imageNumber = 4711;
    s.activeArea = {2, 4, 30, 60};
    s.defaultCropOrigin = {2, 1};
    s.defaultCropSize = {50, 24};
    s.blackLevel = {64};
    s.whiteLevel = {4000};
    s.dateTimeOriginal = "2026:11:21 10:00:00";
    const auto paths = writeClip(tempFolder(), s, 1);
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(paths);
    ASSERT_TRUE(seq);
    auto d = seq->metadata();
    compareWithExiftool(paths[0], *d);
    EXPECT_EQ(d->objectForKey("frameRate")->stringValue(), "24000/1001");
    EXPECT_EQ(d->objectForKey("byteOrder")->unsignedShortValue(), 0x4D4D);
    EXPECT_EQ(d->objectForKey("dateTimeOriginal")->stringValue(), "2026:11:21 10:00:00");
    EXPECT_EQ(dictNumbers(*d, "timeCodes"), (std::vector<double>{0x12, 0x34, 0x56, 0x01, 0, 0, 0, 0}));
    EXPECT_EQ(dictNumbers(*d, "imageNumber"), std::vector<double>{4711});
    EXPECT_EQ(d->objectForKey("defaultCropOrigin")->description(), "{2, 1}");
    EXPECT_EQ(d->objectForKey("defaultCropSize")->description(), "{50, 24}");
}

TEST(KSMetadata, EntriesInTableOrderWithTheirKinds) {
    const auto paths = writeClip(tempFolder(), colourFrameSpec(), 1);
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(paths);
    ASSERT_TRUE(seq);
    auto d = seq->metadata();
    const std::vector<std::string> order = {
        "asShotNeutral", "asShotWhiteBalance", "asShotCCShift", "imageDescription", "make", "model", "orientation",
        "software", "dateTime", "artist", "copyright", "exposureTime", "FNumber", "timeZoneOffset",
        "dateTimeOriginal", "shutterSpeedValue", "apertureValue", "lightSource", "focalLength", "imageNumber",
        "userComment", "byteOrder", "bitsPerSample", "compression", "fillOrder", "photometric", "planarConfig",
        "samplesPerPixel", "newSubFileType", "imageWidth", "imageHeight", "rowsPerStrip", "tileLength", "tileWidth",
        "stripByteCounts", "stripOffsets", "subIFDs", "CFAPattern", "CFARepeatPatternDim", "calibrationIlluminant1",
        "calibrationIlluminant2", "CFALayout", "bayerGreenSplit", "dngVersion", "dngBackVersion", "CFAPlaneColor",
        "blackLevelRepeatDim", "linearizationTable", "activeArea", "whiteLevel", "defaultCropOrigin",
        "defaultCropSize", "blackLevel", "blackLevelH", "blackLevelV", "cameraCalibration1", "cameraCalibration2",
        "xyz2rgbMatrix1", "xyz2rgbMatrix2", "baselineExposure", "exposureIndexExif", "privateData", "lensInfo",
        "cameraModel", "cameraNumber", "localizedCameraModel", "timeCodes", "frameRate", "tStop"};
    EXPECT_EQ(d->allKeys(), order);

    using K = KSValue::Kind;
    const std::pair<const char*, K> kinds[] = {
        {"asShotWhiteBalance", K::Double}, {"asShotCCShift", K::Double},     {"make", K::String},
        {"orientation", K::UnsignedLong},  {"lightSource", K::UnsignedShort}, {"imageNumber", K::UnsignedLong},
        {"byteOrder", K::UnsignedShort},   {"imageWidth", K::UnsignedLong},   {"bayerGreenSplit", K::UnsignedLong},
        {"CFALayout", K::UnsignedShort},   {"defaultCropOrigin", K::Point},   {"defaultCropSize", K::Size},
        {"privateData", K::Data},          {"baselineExposure", K::String},   {"frameRate", K::String},
        {"exposureTime", K::Array},        {"tStop", K::Array}};
    for (const auto& [key, kind] : kinds) EXPECT_EQ(d->objectForKey(key)->kind(), kind) << key;
    EXPECT_EQ(d->objectForKey("CFAPattern")->objectAtIndex(0)->kind(), K::UnsignedShort);
    EXPECT_EQ(d->objectForKey("CFAPattern")->componentsJoinedByString(","), "0,1,1,2");
    EXPECT_EQ(d->objectForKey("stripOffsets")->objectAtIndex(0)->kind(), K::UnsignedLong);
    EXPECT_EQ(d->objectForKey("blackLevel")->objectAtIndex(0)->kind(), K::Float);
    EXPECT_EQ(d->objectForKey("frameRate")->stringValue(), "0/1");  // absent tag
    EXPECT_EQ(d->objectForKey("imageDescription")->stringValue(), "");
    EXPECT_EQ(d->objectForKey("privateData")->dataValue()->length(), 0u);
    // The whole AsShotNeutral vector replaces the first entry's value at the first position.
    EXPECT_EQ(d->objectForKey("asShotNeutral")->floatVector(), (std::vector<float>{0.5f, 1.0f, 0.7f}));
}

TEST(KSMetadata, DerivedWhiteBalanceEntriesOnlyWithThreeNeutralValues) {
    // No AsShotNeutral: no derived entries; the empty vector still has its table entry.
    fb::RawFrameSpec s = colourFrameSpec();
    s.asShotNeutral.clear();
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(writeClip(tempFolder(), s, 1));
    ASSERT_TRUE(seq);
    auto d = seq->metadata();
    EXPECT_FALSE(d->containsKey("asShotWhiteBalance"));
    EXPECT_FALSE(d->containsKey("asShotCCShift"));
    EXPECT_EQ(d->objectForKey("asShotNeutral")->count(), 0u);
    EXPECT_EQ(d->allKeys().front(), "imageDescription");
    const auto keys = d->allKeys();
    EXPECT_EQ(keys[static_cast<size_t>(std::find(keys.begin(), keys.end(), "blackLevelV") - keys.begin()) + 1],
              "asShotNeutral");

    // One neutral value (set on the record before the dictionary is first built).
    auto one = KSCinemaDNGFileSequence::initWithFilenames(writeClip(tempFolder(), colourFrameSpec(), 1));
    ASSERT_TRUE(one);
    one->context()->dngTags()->asShotNeutral = {0.8f};
    auto d1 = one->metadata();
    EXPECT_FALSE(d1->containsKey("asShotWhiteBalance"));
    EXPECT_FALSE(d1->containsKey("asShotCCShift"));
    EXPECT_EQ(d1->objectForKey("asShotNeutral")->floatVector(), std::vector<float>{0.8f});
}

// The white balance entry is the temperature rounded to a multiple of 50 K, halves upwards.
TEST(KSMetadata, AsShotWhiteBalanceRoundsToFiftyKelvin) {
    auto seq = KSCinemaDNGFileSequence::initWithFilenames(writeClip(tempFolder(), colourFrameSpec(), 1));
    ASSERT_TRUE(seq);
    cd_DNGTags* tags = seq->context()->dngTags();

    // A locus white whose Robertson temperature falls in [lo, hi), found by bisection.
    auto whiteWithTemperatureIn = [](double lo, double hi) {
        double a = 4000, b = 7000;
        for (int i = 0; i < 200; ++i) {
            const double m = 0.5 * (a + b);
            const std::valarray<float> xyz = ColorTemperatureToXYZ(static_cast<float>(m));
            const std::valarray<float> xy = XYZToxy(xyz);
            const double t = KRColorTemperature(KRXYCoordinateMake(xy[0], xy[1])).temperature();
            if (t >= lo && t < hi) return std::make_pair(xyz, t);
            if (t < lo) {
                a = m;
            } else {
                b = m;
            }
        }
        ADD_FAILURE() << "no white found in [" << lo << ", " << hi << ")";
        return std::make_pair(std::valarray<float>(1.0f, 3), 0.0);
    };

    const std::pair<std::pair<double, double>, double> cases[] = {
        {{5474.0, 5474.99}, 5450.0}, {{5475.0, 5476.0}, 5500.0}, {{6524.0, 6524.99}, 6500.0}};
    for (const auto& [range, expected] : cases) {
        const auto [xyz, t] = whiteWithTemperatureIn(range.first, range.second);
        tags->CameraXYZWhitePoint = xyz / xyz.max();  // the scaling does not matter
        seq->setBlackLevel(seq->blackLevel());       // marks the dictionary for rebuilding
        auto d = seq->metadata();
        EXPECT_EQ(d->objectForKey("asShotWhiteBalance")->doubleValue(), expected) << t;
        EXPECT_NEAR(d->objectForKey("asShotCCShift")->doubleValue(), 0.0, 1.0) << t;  // on the locus
    }
}

TEST(KSMetadata, CachedUntilTheBlackLevelChanges) {
    const auto paths = writeClip(tempFolder(), colourFrameSpec(), 1);
    auto seq = KSCinemaDNGFileSequence::initWithImageData(readAll(paths));
    ASSERT_TRUE(seq);
    auto first = seq->metadata();
    EXPECT_EQ(seq->metadata(), first);
    EXPECT_EQ(seq->metadata(), first);
    seq->setBlackLevel(0.01f);
    auto second = seq->metadata();
    EXPECT_NE(second, first);
    EXPECT_EQ(seq->metadata(), second);
    // The host may keep an older dictionary: it stays intact.
    EXPECT_EQ(first->objectForKey("make")->stringValue(), "cinedng");
}
