// Real frames: the tag record of every readable sample agrees with exiftool and with the published
// facts of the samples; the malformed samples, cut copies and damaged copies read or fail cleanly.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <sstream>

#include "cinedng/cd_DNGTags.h"
#include "tiff_test_util.h"

using namespace cinedng;
using namespace tifftest;

namespace {

const std::vector<std::string> kSamples = {
    "tinydng_colorchart.dng",     "fauxbolex_frame_000170.dng", "fauxbolex_frame_000185.dng",
    "fauxbolex_frame_001045.dng", "fauxbolex_frame_000112.dng", "oiio_valid-32x32.dng",
    "oiio_bad-exif-type.dng",     "oiio_bomb-32000x32000.dng",  "oiio_truncated.dng",
    "filetype_Leica-M10.dng"};

// Reads a frame (exactly sized heap copy, so that a read past its end is caught by AddressSanitizer)
// and its whole tag record. Returns false with *error set when the parser raised.
bool readRecord(const std::vector<uint8_t>& bytes, cd_DNGTags* tags, std::string* error, bool* subIFD = nullptr) {
    std::unique_ptr<char[]> copy(new char[bytes.size() ? bytes.size() : 1]);
    std::memcpy(copy.get(), bytes.data(), bytes.size());
    cd_parseTiff p;
    testing::internal::CaptureStderr();
    bool ok = true;
    try {
        p.configure(copy.get(), bytes.size());
        tags->readAllTags(p, false);
        if (subIFD) *subIFD = p.subIFD != nullptr;
    } catch (const cd_exception& e) {
        *error = e.what();
        ok = false;
    }
    testing::internal::GetCapturedStderr();
    return ok;
}

// exiftool's view of a file: "Group:Tag" -> values (first occurrence of a duplicated tag).
std::map<std::string, std::string> exiftoolTags(const std::string& path) {
    std::map<std::string, std::string> tags;
    const std::string cmd = "exiftool -args -n -G1 -a '" + path + "' 2>/dev/null";
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) return tags;
    char line[65536];
    while (fgets(line, sizeof line, pipe)) {
        std::string s(line);
        while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
        if (s.size() < 2 || s[0] != '-') continue;
        const size_t eq = s.find('=');
        if (eq == std::string::npos) continue;
        tags.emplace(s.substr(1, eq - 1), s.substr(eq + 1));  // emplace keeps the first
    }
    pclose(pipe);
    return tags;
}

bool haveExiftool() { return std::system("exiftool -ver >/dev/null 2>&1") == 0; }

std::vector<double> numbers(const std::string& s) {
    std::vector<double> v;
    std::istringstream in(s);
    double x;
    while (in >> x) v.push_back(x);
    return v;
}

template <typename E>
std::vector<double> asDoubles(const std::vector<E>& v) {
    std::vector<double> d;
    for (const E& e : v) d.push_back(static_cast<double>(static_cast<float>(e)));
    return d;
}

void expectNear(const std::vector<double>& ours, const std::vector<double>& theirs, const std::string& what) {
    ASSERT_EQ(ours.size(), theirs.size()) << what;
    for (size_t i = 0; i < ours.size(); ++i)
        EXPECT_NEAR(ours[i], theirs[i], 1e-5 * std::max(1.0, std::fabs(theirs[i]))) << what << "[" << i << "]";
}

}  // namespace

TEST(SampleFrames, TagRecordAgreesWithExiftool) {
    if (!haveExiftool()) GTEST_SKIP() << "exiftool is not installed";
    int compared = 0;
    for (const std::string& name : kSamples) {
        SCOPED_TRACE(name);
        const std::string path = samplePath(name);
        cd_DNGTags t;
        std::string error;
        bool inSub = false;
        if (!readRecord(readFile(path), &t, &error, &inSub)) continue;  // refused frames: see below
        const auto ex = exiftoolTags(path);
        ASSERT_FALSE(ex.empty());
        // The raw image's own tags come from the sub-IFD when there is one, the rest from IFD 0,
        // the order in which the parser searches.
        auto get = [&](const std::string& tag) -> const std::string* {
            if (inSub) {
                auto it = ex.find("SubIFD:" + tag);
                if (it != ex.end()) return &it->second;
            }
            auto it = ex.find("IFD0:" + tag);
            return it == ex.end() ? nullptr : &it->second;
        };
        auto num = [&](const std::string& tag) { return get(tag) ? numbers(*get(tag)) : std::vector<double>{}; };

        EXPECT_EQ(num("ImageWidth"), std::vector<double>{double(t.imageWidth)});
        EXPECT_EQ(num("ImageHeight"), std::vector<double>{double(t.imageHeight)});
        EXPECT_EQ(num("BitsPerSample"), std::vector<double>{double(t.bitsPerSample)});
        EXPECT_EQ(num("Compression"), std::vector<double>{double(t.compression)});
        EXPECT_EQ(num("PhotometricInterpretation"), std::vector<double>{double(t.photometric)});
        EXPECT_EQ(num("CFAPattern2"), asDoubles(t.CFAPattern));
        EXPECT_EQ(num("CFARepeatPatternDim"), asDoubles(t.CFARepeatPatternDim));
        EXPECT_EQ(num("StripOffsets"), asDoubles(t.stripOffsets));
        EXPECT_EQ(num("StripByteCounts"), asDoubles(t.stripByteCounts));

        // Tags with a default: compare when present, check the default when absent.
        if (get("BlackLevel")) {
            expectNear(asDoubles(t.blackLevel), num("BlackLevel"), "BlackLevel");
        } else {
            EXPECT_EQ(t.blackLevel, std::vector<float>{0.0f});
        }
        if (get("BlackLevelRepeatDim")) {
            EXPECT_EQ(asDoubles(t.blackLevelRepeatDim), num("BlackLevelRepeatDim"));
        } else {
            EXPECT_EQ(t.blackLevelRepeatDim, (std::vector<uint16_t>{1, 1}));
        }
        if (get("WhiteLevel")) {
            EXPECT_EQ(asDoubles(t.whiteLevel), num("WhiteLevel"));
        } else {
            EXPECT_EQ(t.whiteLevel, std::vector<uint32_t>{(1u << t.bitsPerSample) - 1u});
        }
        if (get("ActiveArea")) {
            EXPECT_EQ(asDoubles(t.activeArea), num("ActiveArea"));
        } else {
            EXPECT_EQ(t.activeArea, (std::vector<uint32_t>{0, 0, t.imageHeight, t.imageWidth}));
        }
        if (get("DefaultCropOrigin")) expectNear(asDoubles(t.defaultCropOrigin), num("DefaultCropOrigin"), "origin");
        if (get("DefaultCropSize")) expectNear(asDoubles(t.defaultCropSize), num("DefaultCropSize"), "size");

        expectNear(asDoubles(t.xyz2rgbMatrix1), num("ColorMatrix1"), "ColorMatrix1");
        expectNear(asDoubles(t.xyz2rgbMatrix2), num("ColorMatrix2"), "ColorMatrix2");
        expectNear(asDoubles(t.asShotNeutral), num("AsShotNeutral"), "AsShotNeutral");
        EXPECT_EQ(t.hasCalibrationIlluminant1, get("CalibrationIlluminant1") != nullptr);
        EXPECT_EQ(t.hasCalibrationIlluminant2, get("CalibrationIlluminant2") != nullptr);
        if (t.hasCalibrationIlluminant1) {
            EXPECT_EQ(num("CalibrationIlluminant1"), std::vector<double>{double(t.calibrationIlluminant1)});
        }
        if (t.hasCalibrationIlluminant2) {
            EXPECT_EQ(num("CalibrationIlluminant2"), std::vector<double>{double(t.calibrationIlluminant2)});
        }

        EXPECT_EQ(get("Make") ? *get("Make") : "", t.make);
        EXPECT_EQ(get("Model") ? *get("Model") : "", t.model);
        EXPECT_EQ(get("UniqueCameraModel") ? *get("UniqueCameraModel") : "", t.cameraModel);
        ++compared;
    }
    EXPECT_EQ(compared, 9);  // all but the cut Leica frame
}

TEST(SampleFrames, PublishedFactsOfTheFrames) {
    cd_DNGTags t;
    std::string error;
    ASSERT_TRUE(readRecord(readFile(samplePath("tinydng_colorchart.dng")), &t, &error)) << error;
    EXPECT_EQ(t.imageWidth, 1888u);
    EXPECT_EQ(t.bitsPerSample, 14);
    EXPECT_EQ(t.rowsPerStrip, 1182u);
    EXPECT_EQ(t.blackLevel, std::vector<float>{2056});
    EXPECT_EQ(t.activeArea, (std::vector<uint32_t>{26, 152, 1182, 1886}));
    EXPECT_EQ(t.defaultCropSize, (std::vector<float>{1734, 1156}));
    EXPECT_FALSE(t.hasCalibrationIlluminant1);
    EXPECT_TRUE(t.xyz2rgbMatrix2.empty());
    EXPECT_EQ(t.baselineExposure.n, 0);  // 0/0 in the file, repaired to 0/1
    EXPECT_EQ(t.baselineExposure.d, 1);

    cd_DNGTags f;
    ASSERT_TRUE(readRecord(readFile(samplePath("fauxbolex_frame_000170.dng")), &f, &error)) << error;
    EXPECT_EQ(f.rowsPerStrip, 0u);  // no RowsPerStrip tag
    EXPECT_EQ(f.CFAPattern, (std::vector<uint8_t>{1, 2, 0, 1}));
    EXPECT_EQ(f.whiteLevel, std::vector<uint32_t>{65000});
    EXPECT_EQ(f.defaultCropSize, (std::vector<float>{1152, 2048}));  // written height first, read as is
    EXPECT_EQ(f.software, "PiDNG");                                   // duplicated tag: the first entry
    EXPECT_EQ(f.dngBackVersion, (std::vector<uint8_t>{1, 0, 0, 0}));
    EXPECT_EQ(f.calibrationIlluminant1, 17);
    EXPECT_EQ(f.calibrationIlluminant2, 21);
    EXPECT_TRUE(f.hasBayerGreenSplit);
}

TEST(SampleFrames, MalformedSamplesReadOrFailCleanly) {
    cd_DNGTags t;
    std::string error;
    // Oversized strip, truncated strip, unknown type in the EXIF IFD: the tags themselves are sound.
    ASSERT_TRUE(readRecord(readFile(samplePath("oiio_bomb-32000x32000.dng")), &t, &error)) << error;
    EXPECT_EQ(t.imageWidth, 32000u);
    EXPECT_EQ(t.stripByteCounts, std::vector<uint32_t>{2048000000u});
    ASSERT_TRUE(readRecord(readFile(samplePath("oiio_truncated.dng")), &t, &error)) << error;
    ASSERT_TRUE(readRecord(readFile(samplePath("oiio_bad-exif-type.dng")), &t, &error)) << error;
    // The cut Leica frame has tag values past its end.
    EXPECT_FALSE(readRecord(readFile(samplePath("filetype_Leica-M10.dng")), &t, &error));
    EXPECT_EQ(error, "cd_parseTiff - tag value lies outside the frame buffer");
}

TEST(SampleFrames, EveryCutAndDamagedCopyReadsOrFailsCleanly) {
    std::mt19937 rng(12345);
    for (const std::string& name : kSamples) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> whole = readFile(samplePath(name));
        // Cut at every length through the header and tag area, then at coarser steps.
        const size_t tagArea = std::min<size_t>(whole.size(), 2048);
        const size_t coarse = std::max<size_t>(1, whole.size() / 40);
        for (size_t len = 100; len <= whole.size(); len += (len < tagArea ? 1 : coarse)) {
            cd_DNGTags t;
            std::string error;
            if (!readRecord(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(len)), &t,
                            &error)) {
                EXPECT_EQ(error.rfind("cd_parseTiff - ", 0), 0u) << error << " at length " << len;
            }
        }
        // Damage a few bytes of the first 2 KiB at random.
        for (int round = 0; round < 300; ++round) {
            std::vector<uint8_t> bad(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(tagArea));
            for (int k = 0; k < 4; ++k) bad[8 + rng() % (bad.size() - 8)] = static_cast<uint8_t>(rng());
            cd_DNGTags t;
            std::string error;
            if (readRecord(bad, &t, &error)) {
                std::ostringstream os;
                t.debugPrintTags(os);
            }
        }
    }
}
