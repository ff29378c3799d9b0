// Parameter gathering on the real frames in the samples folder, with LibRaw reading the same files
// as the independent source of the colour matrices and the as-shot white balance.
#include <gtest/gtest.h>
#include <libraw/libraw.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <valarray>
#include <vector>

#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_exrStructs.h"
#include "cinedng/cd_fullColorMatrix.h"
#include "cinedng/cd_getDNGParams.h"
#include "cinedng/matrixOps.h"

using namespace cinedng;

namespace {

const std::string kSamples = CINEDNG_SAMPLES_DIR;

struct Expected {
    const char* file;
    int inputRows, inputCols, outputRows, outputCols, activeTop, activeLeft;
};

// Geometry from the samples' manifest: tinydng has an active area and a crop; the faux bolex
// frames write their crop size height first, so the output is as wide as it is high.
const Expected kUsable[] = {
    {"tinydng_colorchart.dng", 1156, 1734, 1156, 1734, 26, 152},
    {"fauxbolex_frame_000170.dng", 1152, 2048, 1152, 1152, 0, 0},
    {"fauxbolex_frame_000185.dng", 1108, 2048, 1108, 1108, 0, 0},
    {"fauxbolex_frame_001045.dng", 1108, 2048, 1108, 1108, 0, 0},
    {"fauxbolex_frame_000112.dng", 1108, 2048, 1108, 1108, 0, 0},  // compressed pixels, tags readable
};

std::string gatherFailure(const std::string& file) {
    cd_CommandLineOptions options;
    options.LookFilename = kSamples + "/" + file;
    cd_DNGTags tags;
    testing::internal::CaptureStderr();
    try {
        cd_getDNGParams::getParams(options, tags);
    } catch (const cd_exception& e) {
        testing::internal::GetCapturedStderr();
        return e.what();
    }
    testing::internal::GetCapturedStderr();
    return "(no failure)";
}

struct LibRawColour {
    std::valarray<float> matrix1, matrix2;  // ColorMatrix1/2 (XYZ -> camera)
    std::valarray<float> neutral;           // AsShotNeutral, as 1 / cam_mul
};

LibRawColour readWithLibRaw(const std::string& path) {
    LibRaw raw;
    LibRawColour c;
    if (raw.open_file(path.c_str()) != LIBRAW_SUCCESS) return c;
    c.matrix1.resize(9);
    c.matrix2.resize(9);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            c.matrix1[i * 3 + j] = raw.imgdata.color.dng_color[0].colormatrix[i][j];
            c.matrix2[i * 3 + j] = raw.imgdata.color.dng_color[1].colormatrix[i][j];
        }
    }
    c.neutral = {1.0f / raw.imgdata.color.cam_mul[0], 1.0f / raw.imgdata.color.cam_mul[1],
                 1.0f / raw.imgdata.color.cam_mul[2]};
    return c;
}

}  // namespace

TEST(ParameterGathering, EveryUsableSampleFrame) {
    for (const Expected& e : kUsable) {
        SCOPED_TRACE(e.file);
        const std::string path = kSamples + "/" + e.file;
        cd_CommandLineOptions options;
        options.LookFilename = path;
        cd_DNGTags tags;
        testing::internal::CaptureStderr();
        ASSERT_EQ(cd_getDNGParams::getParams(options, tags), 0);
        testing::internal::GetCapturedStderr();

        EXPECT_EQ(tags.inputRows, e.inputRows);
        EXPECT_EQ(tags.inputCols, e.inputCols);
        EXPECT_EQ(tags.outputRows, e.outputRows);
        EXPECT_EQ(tags.outputCols, e.outputCols);
        EXPECT_EQ(tags.activeTop, e.activeTop);
        EXPECT_EQ(tags.activeLeft, e.activeLeft);
        ASSERT_EQ(tags.CameraToXYZMtx.size(), 9u);
        ASSERT_EQ(tags.CameraXYZWhitePoint.size(), 3u);

        // Colour matrices as LibRaw reads them: the camera matrix is the inverse of ColorMatrix1, or
        // of a blend ColorMatrix1 + w (ColorMatrix2 - ColorMatrix1) with w in [0, 1].
        const LibRawColour lr = readWithLibRaw(path);
        ASSERT_EQ(lr.matrix1.size(), 9u);
        const std::valarray<float> xyzToCam = invertMatrix(tags.CameraToXYZMtx);
        if (tags.xyz2rgbMatrix2.empty()) {
            for (int i = 0; i < 9; ++i) EXPECT_NEAR(xyzToCam[i], lr.matrix1[i], 1e-5f) << i;
        } else {
            const std::valarray<float> span = lr.matrix2 - lr.matrix1;
            int k = 0;
            for (int i = 1; i < 9; ++i) if (std::fabs(span[i]) > std::fabs(span[k])) k = i;
            const float w = (xyzToCam[k] - lr.matrix1[k]) / span[k];
            EXPECT_GE(w, -1e-5f);
            EXPECT_LE(w, 1.0f + 1e-5f);
            for (int i = 0; i < 9; ++i) EXPECT_NEAR(xyzToCam[i], lr.matrix1[i] + w * span[i], 1e-5f) << i;
        }

        // CameraToXYZ . (normalised as-shot neutral) is proportional to the white point.
        std::valarray<float> n = lr.neutral;
        n /= n.max();
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(n[i] * tags.asShotNeutral[0] / tags.asShotNeutral.at(i), n[0], 1e-3f);
        std::valarray<float> white = multiplyMatrix(tags.CameraToXYZMtx, n, 3);
        white /= white.max();
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(white[i], tags.CameraXYZWhitePoint[i], 1e-3f) << i;
        EXPECT_EQ(tags.CameraXYZWhitePoint.max(), 1.0f);

        const float cct = XYZToColorTemperature(tags.CameraXYZWhitePoint);
        EXPECT_GT(cct, 2000.0f);
        EXPECT_LT(cct, 50000.0f);

        // The net matrix (ACES output of the default header, and the generic display space) maps
        // camera (1, 1, 1) to a triple whose largest value is 1.
        MetaWriteClip clip;
        testing::internal::CaptureStderr();
        determineNetColorMatrix(tags, clip, false);
        testing::internal::GetCapturedStderr();
        EXPECT_NEAR(multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3).max(), 1.0f, 1e-6f);
        determineNetColorMatrixNonEXRWithCustomWB(tags, clip, false, cct);
        EXPECT_NEAR(multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3).max(), 1.0f, 1e-6f);
    }
}

TEST(ParameterGathering, FromMemoryMatchesFromFile) {
    const std::string path = kSamples + "/tinydng_colorchart.dng";
    std::ifstream in(path, std::ios::binary);
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(bytes.empty());
    cd_DNGTags fromMemory, fromFile;
    testing::internal::CaptureStderr();
    ASSERT_EQ(cd_getDNGParams::getParamsForImageData(bytes.data(), static_cast<long>(bytes.size()), fromMemory), 0);
    cd_CommandLineOptions options;
    options.LookFilename = path;
    ASSERT_EQ(cd_getDNGParams::getParams(options, fromFile), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(fromMemory.outputCols, fromFile.outputCols);
    EXPECT_EQ((fromMemory.CameraToXYZMtx == fromFile.CameraToXYZMtx).min(), true);
    EXPECT_EQ((fromMemory.CameraXYZWhitePoint == fromFile.CameraXYZWhitePoint).min(), true);
    EXPECT_EQ(fromMemory.model, fromFile.model);
}

TEST(ParameterGathering, VerboseModePrintsTheTagDumpAndDecodingSteps) {
    cd_CommandLineOptions options;
    options.LookFilename = kSamples + "/fauxbolex_frame_000170.dng";
    options.VerboseMode = true;
    cd_DNGTags tags;
    testing::internal::CaptureStderr();
    ASSERT_EQ(cd_getDNGParams::getParams(options, tags), 0);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Display of important tags"), std::string::npos);
    EXPECT_NE(log.find("- set up active area size and offset\n"), std::string::npos);
    EXPECT_NE(log.find("- XYZ to Camera RGB matrix, white-balanced betweeen cct1: 2856 & cct2: 6500\n"),
              std::string::npos);
}

TEST(ParameterGathering, FramesWithoutWhatTheyNeed) {
    // No colour matrices at all: refused by the colour decoding.
    EXPECT_EQ(gatherFailure("oiio_valid-32x32.dng"), "cd_DecodeDNGTags - colorPlanes must be 3");
    EXPECT_EQ(gatherFailure("oiio_bad-exif-type.dng"), "cd_DecodeDNGTags - colorPlanes must be 3");
    EXPECT_EQ(gatherFailure("oiio_truncated.dng"), "cd_DecodeDNGTags - colorPlanes must be 3");
    EXPECT_EQ(gatherFailure("oiio_bomb-32000x32000.dng"), "cd_DecodeDNGTags - colorPlanes must be 3");
    // A cut file whose tags point past its end: the parser's text.
    EXPECT_EQ(gatherFailure("filetype_Leica-M10.dng").rfind("cd_parseTiff - ", 0), 0u);
    // No file at all: the loader refuses before reading.
    EXPECT_EQ(gatherFailure("no_such_frame.dng").rfind("cd_imageLoader - ", 0), 0u);

    // The caller's record is left as it was.
    cd_DNGTags tags;
    tags.make = "untouched";
    std::vector<unsigned char> garbage(200, 0);
    EXPECT_THROW(cd_getDNGParams::getParamsForImageData(garbage.data(), 200, tags), cd_exception);
    EXPECT_THROW(cd_getDNGParams::getParamsForImageData(garbage.data(), -1, tags), cd_exception);
    EXPECT_EQ(tags.make, "untouched");
}
