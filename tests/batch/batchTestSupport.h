#pragma once
// Helpers of the batch tests: scratch folders, synthetic clips, running the driver or a command
// with its output captured, and reading EXR files back through the OpenEXR library.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfRgbaFile.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfTimeCodeAttribute.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "../../apps/DemoClip.h"
#include "cinedng/cd_DNGProcessor.h"

namespace batchtest {

namespace fs = std::filesystem;
using namespace cinedng;
constexpr size_t npos = std::string::npos;
using Names = std::vector<std::string>;

// An empty folder of the current test under the build folder; the path ends in "/".
inline std::string scratchFolder(const std::string& leaf) {
    const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
    const fs::path p = fs::path(CINEDNG_BINARY_DIR) / "batch_scratch" /
                       (std::string(info->test_suite_name()) + "." + info->name()) / leaf;
    fs::remove_all(p);
    fs::create_directories(p);
    return p.string() + "/";
}

// Writes a demo chart clip of `frames` frames (ImageNumber k, time code 01:00:00:k); returns the names.
inline Names writeClip(const std::string& folder, int frames, uint32_t width = 32, uint32_t height = 24,
                       const std::string& prefix = "demo_") {
    demo::DemoClipLayout layout{width, height, frames};
    layout.namePrefix = prefix;
    return demo::writeDemoClip(folder, layout);
}

inline cd_CommandLineOptions optionsFor(const std::string& input, const std::string& output) {
    cd_CommandLineOptions o;
    o.InputFolder = input;
    o.OutputFolder = output;
    return o;
}

struct DriverRun {
    std::unique_ptr<cd_DNGProcessor> p;
    std::string out, err;
};

// Runs the driver (with --render when `render`), standard output and error captured.
inline DriverRun runDriver(cd_CommandLineOptions o, bool render = false) {
    DriverRun r;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    r.p = std::make_unique<cd_DNGProcessor>(o, cd_BatchExtras{render});
    r.out = testing::internal::GetCapturedStdout();
    r.err = testing::internal::GetCapturedStderr();
    return r;
}

// Runs a shell command, standard error joined to standard output.
struct Exec {
    int code = -1;
    std::string out;
};
inline Exec shell(const std::string& command) {
    Exec e;
    FILE* p = ::popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr) return e;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) e.out.append(buf, n);
    const int status = ::pclose(p);
    e.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return e;
}

// The EXR files of a folder, sorted by name.
inline std::vector<std::string> exrFiles(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder))
        if (e.path().extension() == ".exr") names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// An EXR file as the OpenEXR library reads it.
struct ExrImage {
    int width = 0, height = 0;
    std::string channels;  // name and type of each channel, in header order: "B half G half R half "
    std::vector<Imf::Rgba> pixels;
    std::optional<Imf::TimeCode> timeCode;
    std::optional<int> imageNumber;
};

inline ExrImage readExr(const std::string& path) {
    ExrImage img;
    Imf::RgbaInputFile file(path.c_str());
    const Imf::Header& h = file.header();
    const Imath::Box2i window = h.dataWindow();
    img.width = window.max.x - window.min.x + 1;
    img.height = window.max.y - window.min.y + 1;
    for (auto it = h.channels().begin(); it != h.channels().end(); ++it)
        img.channels += std::string(it.name()) + (it.channel().type == Imf::HALF ? " half " : " other ");
    if (const auto* tc = h.findTypedAttribute<Imf::TimeCodeAttribute>("timeCode")) img.timeCode = tc->value();
    if (const auto* n = h.findTypedAttribute<Imf::IntAttribute>("imagenumber")) img.imageNumber = n->value();
    if (window.min.x != 0 || window.min.y != 0) return img;  // our files start at (0, 0)
    img.pixels.resize(static_cast<size_t>(img.width) * img.height);
    file.setFrameBuffer(img.pixels.data(), 1, img.width);
    file.readPixels(0, window.max.y);
    return img;
}

}  // namespace batchtest
