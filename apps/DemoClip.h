#pragma once
// The demo clip of dngprocessor (and the synthetic clips of its tests): a folder of CinemaDNG
// frames showing a test chart, written with the internal DNG frame builder.
//
// Each frame holds a 6 x 4 grid of colour patches (the classic colour checker colours) over the
// upper two thirds and a grey ramp that moves a little from frame to frame below them. The scene is
// defined in linear sRGB (D65), taken to camera RGB through the frame's own ColorMatrix2 (D65), and
// mosaiced through an RGGB colour filter into 12-bit packed samples above a black level of 256.
// Every frame carries the CinemaDNG tags a clip needs: TimeCodes (25 fps from 01:00:00:00),
// FrameRate 25/1, ImageNumber, DateTimeOriginal, two colour matrices with their illuminants and
// the as-shot neutral of D65 white.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cinedng/cd_timeCode.h"
#include "framebuilder/DngFrameBuilder.h"

namespace cinedng::demo {

struct DemoClipLayout {
    uint32_t width = 320;
    uint32_t height = 192;
    int frames = 12;
    int bits = 12;
    framebuilder::ByteOrder byteOrder = framebuilder::ByteOrder::II;
    uint32_t rowsPerStrip = 0;       // 0: one strip
    uint32_t firstImageNumber = 0;   // ImageNumber of frame 0; frame k carries firstImageNumber + k
    bool crop = true;                // a default crop 8 columns and 4 rows in from every edge
    std::string namePrefix = "demo_";
};

// XYZ (D65) to camera RGB for D65 (ColorMatrix2) and for standard light A (ColorMatrix1).
inline const std::vector<double>& demoColorMatrix2() {
    static const std::vector<double> m = {0.6722, -0.0635, -0.0963, -0.4287, 1.1460, 0.2956, -0.0983, 0.1687, 0.6297};
    return m;
}
inline const std::vector<double>& demoColorMatrix1() {
    static const std::vector<double> m = {0.7054, -0.1501, -0.0990, -0.4156, 1.2078, 0.2317, -0.0640, 0.1735, 0.7458};
    return m;
}

// Camera RGB of a linear sRGB colour under D65 (before the white-balance scaling of the sensor).
inline void demoCameraRGB(const double rgb[3], double cam[3]) {
    static const double srgbToXYZ[9] = {0.4124, 0.3576, 0.1805, 0.2126, 0.7152, 0.0722, 0.0193, 0.1192, 0.9505};
    double xyz[3];
    for (int r = 0; r < 3; ++r) xyz[r] = srgbToXYZ[r * 3] * rgb[0] + srgbToXYZ[r * 3 + 1] * rgb[1] + srgbToXYZ[r * 3 + 2] * rgb[2];
    const std::vector<double>& cm = demoColorMatrix2();
    for (int r = 0; r < 3; ++r) cam[r] = cm[r * 3] * xyz[0] + cm[r * 3 + 1] * xyz[1] + cm[r * 3 + 2] * xyz[2];
}

// The camera's response to D65 white, scaled to a largest component of 1 (the AsShotNeutral).
inline std::vector<double> demoNeutral() {
    const double white[3] = {1.0, 1.0, 1.0};
    double cam[3];
    demoCameraRGB(white, cam);
    const double m = std::max({cam[0], cam[1], cam[2]});
    return {cam[0] / m, cam[1] / m, cam[2] / m};
}

// The colour checker patches in 8-bit sRGB, row by row.
inline const unsigned char (&demoPatches())[24][3] {
    static const unsigned char patches[24][3] = {
        {115, 82, 68},   {194, 150, 130}, {98, 122, 157},  {87, 108, 67},   {133, 128, 177}, {103, 189, 170},
        {214, 126, 44},  {80, 91, 166},   {193, 90, 99},   {94, 60, 108},   {157, 188, 64},  {224, 163, 46},
        {56, 61, 150},   {70, 148, 73},   {175, 54, 60},   {231, 199, 31},  {187, 86, 149},  {8, 133, 161},
        {243, 243, 242}, {200, 200, 200}, {160, 160, 160}, {122, 122, 121}, {85, 85, 85},    {52, 52, 52}};
    return patches;
}

// What the scene shows at (x, y): a patch (0..23), the dark border between patches (-1) or the
// grey ramp (-2), whose value is then returned in *ramp.
inline int demoSceneAt(uint32_t x, uint32_t y, uint32_t width, uint32_t height, int k, double* ramp) {
    const uint32_t chartHeight = height * 2 / 3;
    if (y < chartHeight) {
        const uint32_t col = std::min<uint32_t>(5, x * 6 / width);
        const uint32_t row = std::min<uint32_t>(3, y * 4 / chartHeight);
        // A thin dark border around every patch.
        const uint32_t px = x * 6 % width, py = y * 4 % chartHeight;
        if (px < 6 * 2 || py < 4 * 2) return -1;
        return static_cast<int>(row * 6 + col);
    }
    // The ramp moves by 1/64 of its length per frame.
    *ramp = std::fmod(static_cast<double>(x) / width + k / 64.0, 1.0);
    return -2;
}

// Stored samples of frame k.
inline std::vector<uint32_t> demoRaster(const DemoClipLayout& layout, int k) {
    const double black = 256;
    const double white = static_cast<double>((1u << layout.bits) - 1);
    const double one[3] = {1.0, 1.0, 1.0};
    double camWhite[3];
    demoCameraRGB(one, camWhite);
    const double scale = 0.9 / std::max({camWhite[0], camWhite[1], camWhite[2]});
    auto stored = [&](double cam) {
        return static_cast<uint32_t>(std::lround(black + std::clamp(cam * scale, 0.0, 1.0) * (white - black)));
    };
    auto linear = [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
    // Stored value of every patch, and of the border, per colour of the filter.
    uint32_t patch[24][3];
    for (int p = 0; p < 24; ++p) {
        double rgb[3], cam[3];
        for (int c = 0; c < 3; ++c) rgb[c] = linear(demoPatches()[p][c] / 255.0);
        demoCameraRGB(rgb, cam);
        for (int c = 0; c < 3; ++c) patch[p][c] = stored(cam[c]);
    }
    uint32_t border[3];
    for (int c = 0; c < 3; ++c) border[c] = stored(camWhite[c] * 0.02);

    static const int cfa[4] = {0, 1, 1, 2};  // RGGB
    std::vector<uint32_t> samples(static_cast<size_t>(layout.width) * layout.height);
    for (uint32_t y = 0; y < layout.height; ++y) {
        uint32_t* row = samples.data() + static_cast<size_t>(y) * layout.width;
        for (uint32_t x = 0; x < layout.width; ++x) {
            const int c = cfa[(y % 2) * 2 + (x % 2)];
            double ramp = 0.0;
            const int what = demoSceneAt(x, y, layout.width, layout.height, k, &ramp);
            row[x] = what >= 0 ? patch[what][c] : what == -1 ? border[c] : stored(camWhite[c] * ramp);
        }
    }
    return samples;
}

// The 8 TimeCodes bytes of frame k: 25 fps, starting at 01:00:00:00.
inline std::vector<uint8_t> demoTimeCode(int k) {
    const cd_timeCode tc(25 * 3600 + k, 25.0f, 0);
    const uint64_t v = tc.smpte();
    std::vector<uint8_t> bytes(8);
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(v >> (8 * i));
    return bytes;
}

// The frame description of frame k.
inline framebuilder::RawFrameDesc demoFrameFields(const DemoClipLayout& layout, int k) {
    framebuilder::RawFrameDesc f;
    f.width = layout.width;
    f.height = layout.height;
    f.bits = layout.bits;
    f.byteOrder = layout.byteOrder;
    f.rowsPerStrip = layout.rowsPerStrip;
    f.cfaRepeatPatternDim = {2, 2};
    f.cfaPattern = {0, 1, 1, 2};
    f.blackLevelRepeatDim = {1, 1};
    f.blackLevel = {256};
    f.whiteLevel = {(1u << layout.bits) - 1};
    if (layout.crop) {
        f.defaultCropOrigin = {8, 4};
        f.defaultCropSize = {layout.width - 16, layout.height - 8};
    }
    f.colorMatrix1 = demoColorMatrix1();
    f.colorMatrix2 = demoColorMatrix2();
    f.calibrationIlluminant1 = 17;
    f.calibrationIlluminant2 = 21;
    f.asShotNeutral = demoNeutral();
    f.baselineExposure = 0.0;
    f.timeCodes = demoTimeCode(k);
    f.frameRate = std::make_pair(25, 1);
    f.imageNumber = layout.firstImageNumber + static_cast<uint32_t>(k);
    f.make = "cinedng";
    f.model = "demo chart";
    f.uniqueCameraModel = "cinedng demo chart";
    char date[32];
    std::snprintf(date, sizeof date, "2026:01:01 10:00:%02d", (k / 25) % 60);
    f.dateTimeOriginal = date;
    return f;
}

// The file name of frame k.
inline std::string demoFrameName(const DemoClipLayout& layout, int k) {
    char name[64];
    std::snprintf(name, sizeof name, "%06d.dng", k);
    return layout.namePrefix + name;
}

// Writes the clip into folder (which must exist); returns the file names in frame order.
inline std::vector<std::string> writeDemoClip(const std::string& folder, const DemoClipLayout& layout = {}) {
    std::vector<std::string> names;
    std::string dir = folder;
    if (!dir.empty() && dir.back() != '/') dir += '/';
    for (int k = 0; k < layout.frames; ++k) {
        names.push_back(demoFrameName(layout, k));
        framebuilder::writeRawFrame(dir + names.back(), demoFrameFields(layout, k), demoRaster(layout, k));
    }
    return names;
}

}  // namespace cinedng::demo
