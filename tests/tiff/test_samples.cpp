// Real frames: the tag record of every readable sample agrees with exiftool and with the published
// facts of the samples; the malformed samples read or fail cleanly. (Cut and damaged copies of these
// samples are the fuzz target's business: its corpus starts from them.)
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <tuple>

#include "cinedng/cd_DNGTags.h"
#include "tiff_test_util.h"

using namespace cinedng;
using namespace tifftest;

namespace {

// Reads the record from an exactly sized heap copy (so that AddressSanitizer sees a read past its
// end). Returns the parser's failure text, or "" when the frame read.
std::string readRecord(const std::vector<uint8_t>& bytes, cd_DNGTags* tags) {
    const std::unique_ptr<char[]> copy(new char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    cd_parseTiff p;
    testing::internal::CaptureStderr();
    std::string error;
    try {
        p.configure(copy.get(), bytes.size());
        tags->readAllTags(p, false);
    } catch (const cd_exception& e) {
        error = e.what();
    }
    testing::internal::GetCapturedStderr();
    return error;
}

// exiftool's numbers for "Group:Tag" (first occurrence of a duplicated tag).
std::map<std::string, std::string> exiftoolTags(const std::string& path) {
    std::map<std::string, std::string> tags;
    FILE* pipe = popen(("exiftool -args -n -G1 -a '" + path + "' 2>/dev/null").c_str(), "r");
    char line[65536];
    while (pipe && fgets(line, sizeof line, pipe)) {
        std::string s(line);
        const size_t eq = s.find('=');
        if (s[0] == '-' && eq != std::string::npos) tags.emplace(s.substr(1, eq - 1), s.substr(eq + 1, s.find_last_not_of("\r\n") - eq));
    }
    if (pipe) pclose(pipe);
    return tags;
}

template <typename E>
std::vector<double> num(const std::vector<E>& v) {
    return std::vector<double>(v.begin(), v.end());
}

}  // namespace

TEST(SampleFrames, TagRecordAgreesWithExiftool) {
    if (std::system("exiftool -ver >/dev/null 2>&1") != 0) GTEST_SKIP() << "exiftool is not installed";
    int compared = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CINEDNG_SAMPLES_DIR)) {
        const std::string name = entry.path().filename();
        if (entry.path().extension() != ".dng") continue;
        SCOPED_TRACE(name);
        cd_DNGTags t;
        if (!readRecord(readSample(name), &t).empty()) continue;  // the cut Leica frame, below
        const auto ex = exiftoolTags(std::string(CINEDNG_SAMPLES_DIR) + "/" + name);
        ASSERT_FALSE(ex.empty());
        // The raw image of every sample is IFD 0.
        auto get = [&ex](const std::string& tag) { return ex.count("IFD0:" + tag) ? ex.at("IFD0:" + tag) : std::string(); };
        // Tags with a default are compared when the file has them (the defaults are checked on
        // built frames); the others must agree on absence too.
        auto opt = [](bool present, double v) { return present ? std::vector<double>{v} : std::vector<double>{}; };
        const std::vector<std::tuple<std::vector<double>, std::string, bool>> vectors = {
            {{double(t.imageWidth)}, "ImageWidth", false}, {{double(t.imageHeight)}, "ImageHeight", false},
            {{double(t.bitsPerSample)}, "BitsPerSample", false}, {{double(t.compression)}, "Compression", false},
            {{double(t.photometric)}, "PhotometricInterpretation", false},
            {num(t.CFAPattern), "CFAPattern2", false}, {num(t.CFARepeatPatternDim), "CFARepeatPatternDim", false},
            {num(t.stripOffsets), "StripOffsets", false}, {num(t.stripByteCounts), "StripByteCounts", false},
            {num(t.xyz2rgbMatrix1), "ColorMatrix1", false}, {num(t.xyz2rgbMatrix2), "ColorMatrix2", false},
            {opt(t.hasCalibrationIlluminant1, t.calibrationIlluminant1), "CalibrationIlluminant1", false},
            {opt(t.hasCalibrationIlluminant2, t.calibrationIlluminant2), "CalibrationIlluminant2", false},
            {num(t.asShotNeutral), "AsShotNeutral", false}, {num(t.blackLevel), "BlackLevel", true},
            {num(t.blackLevelRepeatDim), "BlackLevelRepeatDim", true}, {num(t.whiteLevel), "WhiteLevel", true},
            {num(t.activeArea), "ActiveArea", true}, {num(t.defaultCropOrigin), "DefaultCropOrigin", true},
            {num(t.defaultCropSize), "DefaultCropSize", true}};
        for (const auto& [ours, tag, hasDefault] : vectors) {
            std::istringstream in(get(tag));
            const std::vector<double> theirs{std::istream_iterator<double>(in), std::istream_iterator<double>()};
            if (hasDefault && theirs.empty()) continue;
            ASSERT_EQ(ours.size(), theirs.size()) << tag;
            for (size_t i = 0; i < ours.size(); ++i)
                EXPECT_NEAR(ours[i], theirs[i], 1e-5 * std::max(1.0, std::fabs(theirs[i]))) << tag << "[" << i << "]";
        }
        EXPECT_EQ(get("Make") + "|" + get("Model") + "|" + get("UniqueCameraModel"), t.make + "|" + t.model + "|" + t.cameraModel);
        ++compared;
    }
    EXPECT_EQ(compared, 9);  // all but the cut Leica frame
}

TEST(SampleFrames, PublishedFactsAndMalformedFrames) {
    cd_DNGTags t, f;
    ASSERT_EQ(readRecord(readSample("tinydng_colorchart.dng"), &t), "");
    EXPECT_EQ(t.rowsPerStrip, 1182u);
    EXPECT_EQ(std::make_pair(t.baselineExposure.n, t.baselineExposure.d), std::make_pair(0, 1));  // 0/0, repaired
    ASSERT_EQ(readRecord(readSample("fauxbolex_frame_000170.dng"), &f), "");
    EXPECT_EQ(f.rowsPerStrip, 0u);     // no RowsPerStrip tag
    EXPECT_EQ(f.software, "PiDNG");    // duplicated tag: the first entry
    // Oversized strip, truncated strip, unknown type in the EXIF IFD: the tags themselves are sound.
    for (const char* name : {"oiio_bomb-32000x32000.dng", "oiio_truncated.dng", "oiio_bad-exif-type.dng"})
        EXPECT_EQ(readRecord(readSample(name), &t), "") << name;
    // The cut Leica frame has tag values past its end.
    EXPECT_EQ(readRecord(readSample("filetype_Leica-M10.dng"), &t), "cd_parseTiff - tag value lies outside the frame buffer");
}
