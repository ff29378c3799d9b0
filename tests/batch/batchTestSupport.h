#pragma once
// Helpers shared by the batch tests: scratch folders, synthetic clips, running the driver with its
// output captured, and reading EXR files back with the OpenEXR library.
#include <gtest/gtest.h>
#include <unistd.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfTimeCodeAttribute.h>

#include <filesystem>
#include <string>
#include <vector>

#include "../../apps/DemoClip.h"
#include "cinedng/cd_DNGProcessor.h"

namespace batchtest {

namespace fs = std::filesystem;

// An empty scratch folder for the current test, under the build folder (emptied again by the next
// run of the same test).
inline std::string scratchFolder(const std::string& leaf = "") {
    const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
    fs::path p = fs::path(CINEDNG_BINARY_DIR) / "batch_scratch" /
                 (std::string(info->test_suite_name()) + "." + info->name());
    if (!leaf.empty()) p /= leaf;
    fs::remove_all(p);
    fs::create_directories(p);
    return p.string() + "/";
}

// A small synthetic clip (the demo chart) of `frames` frames.
inline cinedng::demo::DemoClipLayout smallClip(int frames, uint32_t width = 64, uint32_t height = 48) {
    cinedng::demo::DemoClipLayout s;
    s.frames = frames;
    s.width = width;
    s.height = height;
    return s;
}

// Output of one driver run.
struct RunOutput {
    std::string out;
    std::string err;
};

// Runs the driver with standard output and error captured.
template <class F>
RunOutput captured(F&& run) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    run();
    RunOutput o;
    o.out = testing::internal::GetCapturedStdout();
    o.err = testing::internal::GetCapturedStderr();
    return o;
}

inline std::vector<std::string> splitLines(const std::string& s) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at <= s.size()) {
        const size_t nl = s.find('\n', at);
        if (nl == std::string::npos) {
            if (at < s.size()) lines.push_back(s.substr(at));
            break;
        }
        lines.push_back(s.substr(at, nl - at));
        at = nl + 1;
    }
    return lines;
}

// The EXR files of a folder, sorted by name.
inline std::vector<std::string> exrFiles(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder))
        if (e.path().extension() == ".exr") names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// An EXR file read back through the OpenEXR library.
struct ExrImage {
    int width = 0;
    int height = 0;
    Imath::Box2i dataWindow;
    std::vector<std::string> channels;            // names with pixel type HALF
    bool allHalf = true;
    std::vector<float> r, g, b;                   // width * height each
    bool hasTimeCode = false;
    Imf::TimeCode timeCode;
    bool hasImageNumber = false;
    int imageNumber = 0;
};

inline ExrImage readExr(const std::string& path) {
    ExrImage img;
    Imf::InputFile file(path.c_str());
    const Imf::Header& h = file.header();
    img.dataWindow = h.dataWindow();
    img.width = img.dataWindow.max.x - img.dataWindow.min.x + 1;
    img.height = img.dataWindow.max.y - img.dataWindow.min.y + 1;
    for (auto it = h.channels().begin(); it != h.channels().end(); ++it) {
        img.channels.push_back(it.name());
        if (it.channel().type != Imf::HALF) img.allHalf = false;
    }
    if (const auto* tc = h.findTypedAttribute<Imf::TimeCodeAttribute>("timeCode")) {
        img.hasTimeCode = true;
        img.timeCode = tc->value();
    }
    if (const auto* n = h.findTypedAttribute<Imf::IntAttribute>("imagenumber")) {
        img.hasImageNumber = true;
        img.imageNumber = n->value();
    }
    const size_t count = static_cast<size_t>(img.width) * img.height;
    img.r.resize(count);
    img.g.resize(count);
    img.b.resize(count);
    Imf::FrameBuffer fb;
    const long origin = static_cast<long>(img.dataWindow.min.x) + static_cast<long>(img.dataWindow.min.y) * img.width;
    auto slice = [&](std::vector<float>& v) {
        return Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(v.data() - origin), sizeof(float),
                          sizeof(float) * img.width);
    };
    fb.insert("R", slice(img.r));
    fb.insert("G", slice(img.g));
    fb.insert("B", slice(img.b));
    file.setFrameBuffer(fb);
    file.readPixels(img.dataWindow.min.y, img.dataWindow.max.y);
    return img;
}

// Options of a run on `input` writing to `output`.
inline cinedng::cd_CommandLineOptions optionsFor(const std::string& input, const std::string& output) {
    cinedng::cd_CommandLineOptions o;
    o.InputFolder = input;
    o.OutputFolder = output;
    return o;
}

inline cinedng::cd_BatchExtras renderExtras() {
    cinedng::cd_BatchExtras x;
    x.render = true;
    return x;
}

}  // namespace batchtest
