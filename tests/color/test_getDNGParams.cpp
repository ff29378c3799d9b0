// Parameter gathering on the real frames in the samples folder, with LibRaw reading the same files
// as the independent source of the colour matrices and the as-shot white balance.
#include <libraw/libraw.h>

#include "cinedng/cd_fullColorMatrix.h"
#include "cinedng/cd_getDNGParams.h"
#include "colorTestUtil.h"

static int gatherFile(const std::string& file, cd_DNGTags& tags, bool verbose = false) {
    cd_CommandLineOptions options;
    options.LookFilename = std::string(CINEDNG_SAMPLES_DIR) + "/" + file;
    options.VerboseMode = verbose;
    return cd_getDNGParams::getParams(options, tags);
}

TEST(ParameterGathering, EveryUsableSampleFrame) {
    // Geometry from the samples' manifest (activeTop, activeLeft, inputRows, inputCols, outputRows,
    // outputCols); the faux bolex frames write their crop size height first.
    const std::pair<const char*, std::vector<int32_t>> usable[] = {
        {"tinydng_colorchart.dng", {26, 152, 1156, 1734, 1156, 1734}},
        {"fauxbolex_frame_000170.dng", {0, 0, 1152, 2048, 1152, 1152}},
        {"fauxbolex_frame_000185.dng", {0, 0, 1108, 2048, 1108, 1108}},
        {"fauxbolex_frame_001045.dng", {0, 0, 1108, 2048, 1108, 1108}},
        {"fauxbolex_frame_000112.dng", {0, 0, 1108, 2048, 1108, 1108}},  // compressed pixels, tags readable
    };
    for (const auto& [file, geometry] : usable) {
        SCOPED_TRACE(file);
        cd_DNGTags tags;
        const std::string log = stderrOf([&, f = file] { EXPECT_EQ(gatherFile(f, tags, true), 0); });
        // VerboseMode reaches the colour decoding.
        std::string wb = tags.xyz2rgbMatrix2.size() ? ", white-balanced betweeen cct1: 2856 & cct2: 6500\n"
                                                    : " : using ColorMatrix1 only\n-- no calibrationIlluminant2\n";
        EXPECT_NE(log.find("- set up output size and offsets\n- XYZ to Camera RGB matrix" + wb), std::string::npos);
        EXPECT_EQ(std::vector<int32_t>({tags.activeTop, tags.activeLeft, tags.inputRows, tags.inputCols,
                                        tags.outputRows, tags.outputCols}),
                  geometry);
        ASSERT_EQ(tags.CameraToXYZMtx.size(), 9u);

        // LibRaw's ColorMatrix1/2 and as-shot neutral (1 / cam_mul) of the same file.
        LibRaw raw;
        ASSERT_EQ(raw.open_file((std::string(CINEDNG_SAMPLES_DIR) + "/" + file).c_str()), LIBRAW_SUCCESS);
        std::valarray<float> m1(9), m2(9), neutral(3);
        for (int i = 0; i < 9; ++i) {
            m1[i] = raw.imgdata.color.dng_color[0].colormatrix[i / 3][i % 3];
            m2[i] = raw.imgdata.color.dng_color[1].colormatrix[i / 3][i % 3];
        }
        for (int i = 0; i < 3; ++i) neutral[i] = 1.0f / raw.imgdata.color.cam_mul[i];

        // The camera matrix inverts ColorMatrix1, or a blend ColorMatrix1 + w (ColorMatrix2 -
        // ColorMatrix1) with w in [0, 1] (w fitted by least squares).
        const std::valarray<float> xyzToCam = invertMatrix(tags.CameraToXYZMtx), span = m2 - m1;
        float w = 0.0f;
        if (!tags.xyz2rgbMatrix2.empty()) {
            w = ((xyzToCam - m1) * span).sum() / (span * span).sum();
            EXPECT_TRUE(w >= -1e-5f && w <= 1.0f + 1e-5f) << w;
        }
        expectNear(xyzToCam, m1 + w * span, 1e-5f);

        // CameraToXYZ . (normalised as-shot neutral) is proportional to the white point; its CCT is
        // inside the search bounds.
        const std::valarray<float> white = multiplyMatrix(tags.CameraToXYZMtx, neutral / neutral.max(), 3);
        expectNear(tags.CameraXYZWhitePoint, white / white.max(), 1e-3f);
        const float cct = XYZToColorTemperature(tags.CameraXYZWhitePoint);
        EXPECT_TRUE(cct > 2000.0f && cct < 50000.0f) << cct;

        // Both net matrices map camera (1, 1, 1) to a triple whose largest value is 1; the as-shot
        // neutral comes out white balanced (no warning).
        MetaWriteClip clip;
        EXPECT_EQ(stderrOf([&] { determineNetColorMatrix(tags, clip, false); }), "");
        EXPECT_NEAR(multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3).max(), 1.0f, 1e-6f);
        determineNetColorMatrixNonEXRWithCustomWB(tags, clip, false, cct);
        EXPECT_NEAR(multiplyMatrix(clip.colorMatrixFromSourceRGBToOutputRGB, unitTriple, 3).max(), 1.0f, 1e-6f);
    }
}

TEST(ParameterGathering, FramesWithoutWhatTheyNeed) {
    auto failure = [](const char* file) {
        cd_DNGTags tags;
        return failureText([&] { gatherFile(file, tags); });
    };
    // No colour matrices at all: refused by the colour decoding.
    for (const char* file :
         {"oiio_valid-32x32.dng", "oiio_bad-exif-type.dng", "oiio_truncated.dng", "oiio_bomb-32000x32000.dng"})
        EXPECT_EQ(failure(file), "cd_DecodeDNGTags - colorPlanes must be 3") << file;
    EXPECT_EQ(failure("filetype_Leica-M10.dng").rfind("cd_parseTiff - ", 0), 0u);  // tags point past the end
    EXPECT_EQ(failure("no_such_frame.dng").rfind("cd_imageLoader - ", 0), 0u);

    // A failure leaves the caller's record as it was.
    cd_DNGTags tags;
    tags.make = "untouched";
    std::vector<unsigned char> garbage(200, 0);
    EXPECT_EQ(failureText([&] { cd_getDNGParams::getParamsForImageData(garbage.data(), 200, tags); }),
              "cd_parseTiff - illegal byte order tag");
    EXPECT_EQ(failureText([&] { cd_getDNGParams::getParamsForImageData(garbage.data(), -1, tags); }),
              "cd_getDNGParams - the image data size may not be negative");
    EXPECT_EQ(tags.make, "untouched");
}
