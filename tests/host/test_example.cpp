// The read_clip example, run as a host would run it, on a real frame.
#include <gtest/gtest.h>

#include <filesystem>

#include "host_test_util.h"

using namespace hosttest;

namespace {
const std::string kExample = std::string(CINEDNG_BINARY_DIR) + "/example_read_clip";

void expectContains(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << "missing: " << part;
}
}  // namespace

TEST(ReadClipExample, PrintsFrameMetadataAndProcessingInfo) {
    if (!std::filesystem::exists(kExample)) GTEST_SKIP() << "example_read_clip not built";
    const std::string frame = samplePath("tinydng_colorchart.dng");
    const std::string out = run("'" + kExample + "' '" + frame + "' 2>/dev/null");
    expectContains(out, "frames: 1\n");
    expectContains(out, "raw image size: 1888 x 1182\n");
    // Active area 26 152 1182 1886: 1734 columns, 1156 rows.
    expectContains(out, "frame 0: 1734 x 1156 active floats");
    // The stored sample at (26, 152), the first active photosite, is 2056: exactly the black level.
    expectContains(out, "first values: 0 ");
    expectContains(out, "    make = Canon;\n");
    expectContains(out, "    model = Canon EOS Kiss X4;\n");
    expectContains(out, "    whiteLevel = (\n        15000\n    );\n");
    expectContains(out, "    defaultCropSize = {1734, 1156};\n");
    expectContains(out, "processing info: <KSImageProcessingInfo: 0x");
    expectContains(out, "\ncamToOutRGBMatrix: (\n");
    expectContains(out, " \n\n cameraMaxValuesRGB: (\n");

    // The same clip opened from memory prints the same frame figures.
    const std::string mem = run("'" + kExample + "' -m '" + frame + "' 2>/dev/null");
    const auto frameLine = [](const std::string& s) {
        const size_t p = s.find("frame 0:");
        return p == std::string::npos ? std::string() : s.substr(p, s.find('\n', p) - p);
    };
    EXPECT_FALSE(frameLine(out).empty());
    EXPECT_EQ(frameLine(out), frameLine(mem));
}

TEST(ReadClipExample, ReportsAClipThatCannotBeOpened) {
    if (!std::filesystem::exists(kExample)) GTEST_SKIP() << "example_read_clip not built";
    const std::string out =
        run("'" + kExample + "' '" + samplePath("oiio_valid-32x32.dng") + "' 2>&1; echo \"exit=$?\"");
    expectContains(out, "### KSCinemaDNGContext::initWithFilenames: ### an exception occured: \n\t"
                        "cd_DecodeDNGTags - colorPlanes must be 3\n");
    expectContains(out, "the clip could not be opened\n");
    expectContains(out, "exit=1");
}
