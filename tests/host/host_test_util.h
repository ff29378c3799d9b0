#pragma once
// Helpers shared by the host interface tests: sample paths, temporary folders, synthetic clips and
// exiftool's reading of a frame.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "cinedng/KSCinemaDNGFileSequence.h"
#include "framebuilder/DngFrameBuilder.h"

namespace hosttest {

namespace fb = cinedng::framebuilder;
using cinedng::KSData;

inline std::string samplePath(const std::string& name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

// The real frames that decode as one-frame clips.
inline const std::vector<std::string> kUsableSamples = {"tinydng_colorchart.dng", "fauxbolex_frame_000170.dng",
                                                        "fauxbolex_frame_000185.dng", "fauxbolex_frame_001045.dng"};

// A fresh, empty folder under the build tree for the current test.
inline std::string tempFolder(const std::string& sub = "") {
    const auto* t = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string p = std::string(CINEDNG_BINARY_DIR "/host-tmp/") + t->test_suite_name() + "." + t->name() + sub;
    std::filesystem::remove_all(p);
    std::filesystem::create_directories(p);
    return p;
}

// A small colour-decodable frame (the builder's 64 x 32 12-bit default, one colour matrix, a neutral).
inline fb::RawFrameDesc colourFrame() {
    fb::RawFrameDesc s;
    s.colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039};
    s.calibrationIlluminant1 = 21;
    s.asShotNeutral = {0.5, 1.0, 0.7};
    return s;
}

// Stored samples of frame `index` of a synthetic clip: distinct for every frame.
inline std::vector<uint32_t> clipRaster(const fb::RawFrameDesc& s, int index) {
    return fb::makeTestRaster(s.width, s.height, s.bits, 7u * static_cast<uint32_t>(index) + 1u);
}

// Writes `frames` frames of that layout into folder as clip_000.dng, clip_001.dng, ...
inline std::vector<std::string> writeClip(const std::string& folder, const fb::RawFrameDesc& s, int frames) {
    std::vector<std::string> paths;
    for (int i = 0; i < frames; ++i) {
        paths.push_back(folder + "/clip_" + std::to_string(1000 + i).substr(1) + ".dng");
        fb::writeRawFrame(paths.back(), s, clipRaster(s, i));
    }
    return paths;
}

inline std::vector<std::shared_ptr<KSData>> readAll(const std::vector<std::string>& paths) {
    std::vector<std::shared_ptr<KSData>> out;
    for (const auto& p : paths) out.push_back(KSData::dataWithContentsOfFile(p));
    return out;
}

inline std::vector<float> floatsOf(const std::shared_ptr<KSData>& d) {
    const float* f = reinterpret_cast<const float*>(d->bytes());
    return std::vector<float>(f, f + d->length() / sizeof(float));
}

// Standard output of a shell command.
inline std::string run(const std::string& command) {
    std::string out;
    char buf[4096];
    FILE* p = popen(command.c_str(), "r");
    for (size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    if (p) pclose(p);
    return out;
}

// exiftool's reading of IFD 0 and its sub-IFDs (where the tag reader looks): tag name -> value,
// numbers unformatted. A sub-IFD's value replaces IFD 0's; of a tag written twice in one IFD the
// first occurrence counts, as for the tag reader.
inline std::map<std::string, std::string> exiftool(const std::string& path) {
    std::map<std::string, std::string> ifd0, sub, other;
    std::istringstream in(run("exiftool -a -n -S -G1 -EXIF:all '" + path + "' 2>/dev/null"));
    for (std::string line; std::getline(in, line);) {  // "[IFD0] TagName: value"
        const size_t close = line.find("] "), colon = line.find(": ", close);
        if (line.empty() || line[0] != '[' || colon == std::string::npos) continue;
        const std::string group = line.substr(1, close - 1);
        auto& m = group == "IFD0" ? ifd0 : group.rfind("SubIFD", 0) == 0 ? sub : other;
        m.emplace(line.substr(close + 2, colon - close - 2), line.substr(colon + 2));
    }
    for (auto& [k, v] : sub) ifd0[k] = v;
    return ifd0;
}

// The numbers of a list separated by spaces ("1 2.5"), or by dots in hexadecimal (TimeCodes).
inline std::vector<double> numbers(const std::string& s, int base = 10) {
    std::vector<double> v;
    for (const char* p = s.c_str(); *p;) {
        char* end;
        const double d = base == 10 ? std::strtod(p, &end) : static_cast<double>(std::strtoul(p, &end, base));
        if (end == p) break;
        v.push_back(d);
        p = *end ? end + 1 : end;
    }
    return v;
}

}  // namespace hosttest
