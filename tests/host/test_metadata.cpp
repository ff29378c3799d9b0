// What a sequence reports about its clip. The metadata dictionary: agreement with exiftool on real
// and synthetic frames, the order and kinds of the entries, the derived white-balance entries. The
// colour-processing information, from the clip's colour model and from a caller's matrix.
#include <gtest/gtest.h>

#include <algorithm>

#include "cinedng/KRColorTemperature.h"
#include "cinedng/KSDataTypeConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/matrixOps.h"
#include "host_test_util.h"

using namespace cinedng;
using namespace hosttest;
using Seq = KSCinemaDNGFileSequence;

namespace {

// The numbers of a value: a number, a rational string "n/d", an array of either, a point or a size.
std::vector<double> numbersOf(const KSValuePtr& v) {
    const std::string text = v->stringValue();
    if (v->kind() == KSValue::Kind::Point) return {v->pointValue().x, v->pointValue().y};
    if (v->kind() == KSValue::Kind::Size) return {v->sizeValue().width, v->sizeValue().height};
    if (v->isString()) return {std::stod(text) / std::stod(text.substr(text.find('/') + 1))};
    if (!v->isArray()) return {v->doubleValue()};
    std::vector<double> out;
    for (const auto& e : v->arrayValue()) out.push_back(numbersOf(e)[0]);
    return out;
}

std::valarray<float> va(const KSValuePtr& v) {
    const std::vector<float> f = v->floatVector();
    return std::valarray<float>(f.data(), f.size());
}

// The largest row sum of camToOutRGBMatrix and the largest element of cameraMaxValuesRGB are 1.
void expectNormalised(const KSImageProcessingInfo& info) {
    const std::valarray<float> m = va(info.camToOutRGBMatrix()), white = va(info.cameraMaxValuesRGB());
    ASSERT_TRUE(m.size() == 9 && white.size() == 3 && info.camToXYZMatrix()->count() == 9);
    EXPECT_NEAR(std::max({m[0] + m[1] + m[2], m[3] + m[4] + m[5], m[6] + m[7] + m[8]}), 1.0f, 2e-6f);
    EXPECT_EQ(white.max(), 1.0f);
}

// The description after "<KSImageProcessingInfo: 0x...>", which it must begin with.
std::string withoutAddress(const std::shared_ptr<KSImageProcessingInfo>& info) {
    const std::string d = info->description();
    EXPECT_EQ(d.rfind("<KSImageProcessingInfo: 0x", 0), 0u);
    return d.substr(d.find('>') + 1);
}

}  // namespace

// Entries that both read, on the real frames and on a big-endian synthetic frame that carries time
// codes, a frame rate and an image number.
TEST(KSMetadata, AgreesWithExiftool) {
    fb::RawFrameDesc s = colourFrame();
    s.byteOrder = fb::ByteOrder::MM;
    s.timeCodes = {0x12, 0x34, 0x56, 0x01, 0x00, 0x00, 0x00, 0x00};
    s.frameRate = std::make_pair(24000, 1001);
    s.imageNumber = 4711;
    std::vector<std::string> paths = writeClip(tempFolder(), s, 1);
    for (const auto& name : kUsableSamples) paths.push_back(samplePath(name));
    for (const auto& path : paths) {
        SCOPED_TRACE(path);
        auto seq = Seq::initWithFilenames({path});
        ASSERT_TRUE(seq);
        const auto d = seq->metadata();
        const auto ex = exiftool(path);
        EXPECT_EQ(d->objectForKey("make")->stringValue(), ex.at("Make"));
        EXPECT_EQ(d->objectForKey("model")->stringValue(), ex.at("Model"));
        // Key, tag, tolerance (for rationals that exiftool prints rounded).
        const std::tuple<const char*, const char*, double> entries[] = {
            {"imageWidth", "ImageWidth", 0}, {"imageHeight", "ImageHeight", 0}, {"CFAPattern", "CFAPattern2", 0},
            {"CFARepeatPatternDim", "CFARepeatPatternDim", 0}, {"blackLevel", "BlackLevel", 0},
            {"whiteLevel", "WhiteLevel", 0}, {"activeArea", "ActiveArea", 0}, {"imageNumber", "ImageNumber", 0},
            {"defaultCropOrigin", "DefaultCropOrigin", 0}, {"defaultCropSize", "DefaultCropSize", 0},
            {"timeCodes", "TimeCodes", 0}, {"frameRate", "FrameRate", 1e-6}, {"xyz2rgbMatrix1", "ColorMatrix1", 1e-5},
            {"xyz2rgbMatrix2", "ColorMatrix2", 1e-5}, {"asShotNeutral", "AsShotNeutral", 1e-5}};
        for (const auto& [key, tag, tol] : entries) {
            if (!ex.count(tag)) continue;
            const std::vector<double> got = numbersOf(d->objectForKey(key));
            const std::vector<double> want = numbers(ex.at(tag), std::string(tag) == "TimeCodes" ? 16 : 10);
            ASSERT_EQ(got.size(), want.size()) << key;
            for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << key << "[" << i << "]";
        }
        // Every one of these frames has a three-value AsShotNeutral: the derived entries are present.
        EXPECT_TRUE(d->containsKey("asShotWhiteBalance") && d->containsKey("asShotCCShift"));
    }
}

TEST(KSMetadata, EntriesInTableOrderWithTheirKinds) {
    auto seq = Seq::initWithFilenames(writeClip(tempFolder(), colourFrame(), 1));
    ASSERT_TRUE(seq);
    auto d = seq->metadata();
    std::string keys;
    for (const auto& k : d->allKeys()) keys += k + " ";
    EXPECT_EQ(keys,
              "asShotNeutral asShotWhiteBalance asShotCCShift imageDescription make model orientation software "
              "dateTime artist copyright exposureTime FNumber timeZoneOffset dateTimeOriginal shutterSpeedValue "
              "apertureValue lightSource focalLength imageNumber userComment byteOrder bitsPerSample compression "
              "fillOrder photometric planarConfig samplesPerPixel newSubFileType imageWidth imageHeight rowsPerStrip "
              "tileLength tileWidth stripByteCounts stripOffsets subIFDs CFAPattern CFARepeatPatternDim "
              "calibrationIlluminant1 calibrationIlluminant2 CFALayout bayerGreenSplit dngVersion dngBackVersion "
              "CFAPlaneColor blackLevelRepeatDim linearizationTable activeArea whiteLevel defaultCropOrigin "
              "defaultCropSize blackLevel blackLevelH blackLevelV cameraCalibration1 cameraCalibration2 "
              "xyz2rgbMatrix1 xyz2rgbMatrix2 baselineExposure exposureIndexExif privateData lensInfo cameraModel "
              "cameraNumber localizedCameraModel timeCodes frameRate tStop ");
    using K = KSValue::Kind;
    const std::pair<const char*, K> kinds[] = {
        {"asShotWhiteBalance", K::Double}, {"asShotCCShift", K::Double}, {"make", K::String},
        {"orientation", K::UnsignedLong}, {"lightSource", K::UnsignedShort}, {"imageNumber", K::UnsignedLong},
        {"byteOrder", K::UnsignedShort}, {"defaultCropOrigin", K::Point}, {"defaultCropSize", K::Size},
        {"privateData", K::Data}, {"baselineExposure", K::String}, {"exposureTime", K::Array}};
    for (const auto& [key, kind] : kinds) EXPECT_EQ(d->objectForKey(key)->kind(), kind) << key;
    EXPECT_EQ(d->objectForKey("CFAPattern")->objectAtIndex(0)->kind(), K::UnsignedShort);
    EXPECT_EQ(d->objectForKey("stripOffsets")->objectAtIndex(0)->kind(), K::UnsignedLong);
    EXPECT_EQ(d->objectForKey("blackLevel")->objectAtIndex(0)->kind(), K::Float);
    // The whole AsShotNeutral vector replaces the first entry's value at the first position.
    EXPECT_EQ(d->objectForKey("asShotNeutral")->floatVector(), (std::vector<float>{0.5f, 1.0f, 0.7f}));
}

// Every frame above has three AsShotNeutral values; with one there are no derived entries.
TEST(KSMetadata, DerivedWhiteBalanceEntriesOnlyWithThreeNeutralValues) {
    auto seq = Seq::initWithFilenames(writeClip(tempFolder(), colourFrame(), 1));
    ASSERT_TRUE(seq);
    seq->context()->dngTags()->asShotNeutral = {0.8f};  // before the dictionary is first built
    auto d = seq->metadata();
    EXPECT_FALSE(d->containsKey("asShotWhiteBalance") || d->containsKey("asShotCCShift"));
    const auto keys = d->allKeys();  // "asShotNeutral" only at its place in the table
    EXPECT_EQ(*(std::find(keys.begin(), keys.end(), "blackLevelV") + 1), "asShotNeutral");
    EXPECT_EQ(d->objectForKey("asShotNeutral")->floatVector(), std::vector<float>{0.8f});
}

// The white balance entry is the temperature rounded to a multiple of 50 K, halves upwards.
TEST(KSMetadata, AsShotWhiteBalanceRoundsToFiftyKelvin) {
    auto seq = Seq::initWithFilenames(writeClip(tempFolder(), colourFrame(), 1));
    ASSERT_TRUE(seq);
    const std::pair<double, double> cases[] = {{5474.0, 5450.0}, {5475.0, 5500.0}, {6524.0, 6500.0}};
    for (const auto& [lo, expected] : cases) {
        double a = 4000, b = 7000, t = 0;  // bisection for a locus white whose temperature lies in [lo, lo + 1)
        std::valarray<float> xyz;
        while (b - a > 1e-6 && !(t >= lo && t < lo + 1)) {
            const std::valarray<float> xy = XYZToxy(xyz = ColorTemperatureToXYZ(float(0.5 * (a + b))));
            t = KRColorTemperature(KRXYCoordinateMake(xy[0], xy[1])).temperature();
            (t < lo ? a : b) = 0.5 * (a + b);
        }
        ASSERT_TRUE(t >= lo && t < lo + 1) << lo;
        seq->context()->dngTags()->CameraXYZWhitePoint = xyz / xyz.max();  // the scaling does not matter
        seq->setBlackLevel(seq->blackLevel());                              // marks the dictionary for rebuilding
        EXPECT_EQ(seq->metadata()->objectForKey("asShotWhiteBalance")->doubleValue(), expected) << t;
        EXPECT_NEAR(seq->metadata()->objectForKey("asShotCCShift")->doubleValue(), 0.0, 1.0) << t;  // on the locus
    }
}

// The instance operation from the clip's colour model, and the class operation given the clip's own
// XYZ-to-camera matrix, which must reach the same net matrix.
TEST(KSImageProcessingInfo, FromTheClipAndFromItsMatrixNormalisedForEveryTemperature) {
    for (const char* name : {"tinydng_colorchart.dng", "fauxbolex_frame_000170.dng"}) {
        SCOPED_TRACE(name);
        auto seq = Seq::initWithFilenames({samplePath(name)});
        ASSERT_TRUE(seq);
        // No temperature chosen means 5000 K (the texts print every float exactly; the address differs).
        const auto text = [&](float T) { return withoutAddress(seq->imageProcessingInfoWithCustomWhiteBalance(T)); };
        EXPECT_EQ(text(-1.0f), text(5000.0f));
        const std::valarray<float> camToXYZ = seq->context()->dngTags()->CameraToXYZMtx;
        const std::valarray<float> xyzToCam = invertMatrix(camToXYZ);
        for (float T : {2000.0f, 2856.0f, 3200.0f, 5000.0f, 6500.0f, 9000.0f, 15000.0f}) {
            SCOPED_TRACE(T);
            auto info = seq->imageProcessingInfoWithCustomWhiteBalance(T);
            expectNormalised(*info);
            EXPECT_TRUE((va(info->camToXYZMatrix()) == camToXYZ).min());  // the clip's own
            // The camera white comes out of the net matrix as a grey.
            const auto out = multiplyMatrix(va(info->camToOutRGBMatrix()), va(info->cameraMaxValuesRGB()), 3);
            EXPECT_NEAR(out[0] / out[1], 1.0f, 1e-5f);
            EXPECT_NEAR(out[2] / out[1], 1.0f, 1e-5f);

            auto fromMatrix = Seq::cameraToOutputRGBMatrixWithCustomWhiteBalance(T, &xyzToCam[0]);
            expectNormalised(*fromMatrix);
            EXPECT_LT(std::abs(va(fromMatrix->camToOutRGBMatrix()) - va(info->camToOutRGBMatrix())).max(), 1e-4f);
            EXPECT_TRUE((va(fromMatrix->camToXYZMatrix()) == invertMatrix(xyzToCam)).min());
            // Its white is the camera's response to the locus white of T.
            const std::valarray<float> response = multiplyMatrix(xyzToCam, ColorTemperatureToXYZ(T), 3);
            EXPECT_LT(std::abs(va(fromMatrix->cameraMaxValuesRGB()) - response / response.max()).max(), 1e-6f);
        }
    }
}

TEST(KSImageProcessingInfo, SingularMatrixRaisesAndDescription) {
    const float singular[9] = {1, 2, 3, 2, 4, 6, 0, 0, 1};
    try {
        Seq::cameraToOutputRGBMatrixWithCustomWhiteBalance(5000, singular);
        ADD_FAILURE() << "no exception";
    } catch (const cd_exception& e) {
        EXPECT_STREQ(e.what(), "matrixOps::invertMatrix - determinant may not be zero");
    }
    using C = KSDataTypeConverter;
    EXPECT_EQ(withoutAddress(KSImageProcessingInfo::initWithCamToOutRGBMatrix(
                  C::floatArrayFromVector({1, 0}), C::floatArrayFromVector({2}), C::floatArrayFromVector({0.5f}))),
              "\ncamToOutRGBMatrix: (\n    1,\n    0\n) \n\n camToXYZMatrix: (\n    2\n) "
              "\n\n cameraMaxValuesRGB: (\n    0.5\n)");
}
