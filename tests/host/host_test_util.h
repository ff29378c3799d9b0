#pragma once
// Helpers shared by the host interface tests: sample paths, temporary folders, synthetic clips,
// captured log lines and external programs.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/KSData.h"
#include "framebuilder/DngFrameBuilder.h"

namespace hosttest {

namespace fb = cinedng::framebuilder;

inline std::string samplePath(const std::string& name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

// The real frames that decode as one-frame clips.
inline const std::vector<std::string>& usableSamples() {
    static const std::vector<std::string> names = {"tinydng_colorchart.dng", "fauxbolex_frame_000170.dng",
                                                   "fauxbolex_frame_000185.dng", "fauxbolex_frame_001045.dng"};
    return names;
}

// A fresh, empty folder under the build tree for the current test.
inline std::string tempFolder() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::filesystem::path p = std::filesystem::path(CINEDNG_BINARY_DIR) / "host-test-tmp" /
                              (std::string(info->test_suite_name()) + "." + info->name());
    std::filesystem::remove_all(p);
    std::filesystem::create_directories(p);
    return p.string();
}

// A small colour-decodable frame description (one colour matrix, an as-shot neutral).
inline fb::RawFrameSpec colourFrameSpec() {
    fb::RawFrameSpec s;
    s.width = 64;
    s.height = 32;
    s.bits = 12;
    s.colorMatrix1 = {0.6461, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.154, 0.6039};
    s.calibrationIlluminant1 = 21;
    s.asShotNeutral = {0.5, 1.0, 0.7};
    return s;
}

// Stored samples of frame `index` of a synthetic clip: distinct for every frame.
inline std::vector<uint32_t> clipRaster(const fb::RawFrameSpec& s, int index) {
    return fb::makeTestRaster(s.width, s.height, s.bits, 7u * static_cast<uint32_t>(index) + 1u);
}

// Writes `frames` frames of that layout into folder as clip_000.dng, clip_001.dng, ...; returns the paths.
inline std::vector<std::string> writeClip(const std::string& folder, const fb::RawFrameSpec& s, int frames) {
    std::vector<std::string> paths;
    for (int i = 0; i < frames; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "clip_%03d.dng", i);
        const std::string path = folder + "/" + name;
        fb::writeRawFrame(path, s, clipRaster(s, i));
        paths.push_back(path);
    }
    return paths;
}

inline std::vector<std::shared_ptr<cinedng::KSData>> readAll(const std::vector<std::string>& paths) {
    std::vector<std::shared_ptr<cinedng::KSData>> out;
    for (const auto& p : paths) {
        auto d = cinedng::KSData::dataWithContentsOfFile(p);
        EXPECT_TRUE(d) << p;
        out.push_back(d);
    }
    return out;
}

// Standard output of a shell command.
inline std::string run(const std::string& command) {
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
    return out;
}

// exiftool's reading of the tags of IFD 0 and its sub-IFDs (where the parser looks; EXIF-IFD tags
// are not included): tag name -> value, numbers unformatted. A sub-IFD's value replaces IFD 0's;
// for a tag that appears twice in one IFD, the first occurrence, which is the one the parser reads.
inline std::map<std::string, std::string> exiftool(const std::string& path) {
    std::map<std::string, std::string> tags;
    std::map<std::string, std::string> subTags;
    const std::string out = run("exiftool -a -n -S -G1 -EXIF:all '" + path + "' 2>/dev/null");
    size_t pos = 0;
    while (pos < out.size()) {
        size_t end = out.find('\n', pos);
        if (end == std::string::npos) end = out.size();
        const std::string line = out.substr(pos, end - pos);
        pos = end + 1;
        // "[EXIF] TagName: value"
        const size_t close = line.find("] ");
        const size_t colon = line.find(": ", close == std::string::npos ? 0 : close);
        if (close == std::string::npos || colon == std::string::npos || line.empty() || line[0] != '[') continue;
        const std::string group = line.substr(1, close - 1);
        const std::string name = line.substr(close + 2, colon - close - 2);
        if (group == "IFD0")
            tags.emplace(name, line.substr(colon + 2));
        else if (group.rfind("SubIFD", 0) == 0)
            subTags.emplace(name, line.substr(colon + 2));
    }
    for (auto& [k, v] : subTags) tags[k] = v;
    return tags;
}

// Numbers of a space-separated value list.
inline std::vector<double> numbers(const std::string& s) {
    std::vector<double> v;
    const char* p = s.c_str();
    char* end;
    for (;;) {
        const double d = std::strtod(p, &end);
        if (end == p) break;
        v.push_back(d);
        p = end;
    }
    return v;
}

// exiftool's TimeCodes text: hexadecimal bytes separated by dots ("12.34.56.01.00.00.00.00").
inline std::vector<double> hexBytes(const std::string& s) {
    std::vector<double> v;
    size_t pos = 0;
    while (pos < s.size()) {
        size_t dot = s.find('.', pos);
        if (dot == std::string::npos) dot = s.size();
        v.push_back(static_cast<double>(std::stoul(s.substr(pos, dot - pos), nullptr, 16)));
        pos = dot + 1;
    }
    return v;
}

}  // namespace hosttest
