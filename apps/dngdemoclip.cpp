// dngdemoclip: writes a synthetic CinemaDNG clip (the demo test chart) of any size, for trying
// dngprocessor out and for measuring it on large frames.
//
//   dngdemoclip FOLDER [--width W] [--height H] [--frames N] [--bits B] [--big-endian]
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "DemoClip.h"

namespace {

void usage() {
    std::cerr << "usage: dngdemoclip FOLDER [--width W] [--height H] [--frames N] [--bits B] [--big-endian]\n";
}

bool number(const char* text, long lo, long hi, long& value) {
    char* end = nullptr;
    value = std::strtol(text, &end, 10);
    return end != text && *end == '\0' && value >= lo && value <= hi;
}

}  // namespace

int main(int argc, char** argv) {
    cinedng::demo::DemoClipLayout layout;
    std::string folder;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        long v = 0;
        auto value = [&](long lo, long hi) {
            if (i + 1 >= argc || !number(argv[i + 1], lo, hi, v)) {
                std::cerr << "dngdemoclip: " << a << " needs a whole number from " << lo << " to " << hi << "\n";
                usage();
                std::exit(2);
            }
            ++i;
            return v;
        };
        if (a == "--width") {
            layout.width = static_cast<uint32_t>(value(32, 32000));
        } else if (a == "--height") {
            layout.height = static_cast<uint32_t>(value(32, 32000));
        } else if (a == "--frames") {
            layout.frames = static_cast<int>(value(1, 100000));
        } else if (a == "--bits") {
            layout.bits = static_cast<int>(value(10, 16));
        } else if (a == "--big-endian") {
            layout.byteOrder = cinedng::framebuilder::ByteOrder::MM;
        } else if (!a.empty() && a[0] != '-' && folder.empty()) {
            folder = a;
        } else {
            std::cerr << "dngdemoclip: unexpected argument '" << a << "'\n";
            usage();
            return 2;
        }
    }
    if (folder.empty()) {
        usage();
        return 2;
    }
    std::filesystem::create_directories(folder);
    try {
        const auto names = cinedng::demo::writeDemoClip(folder, layout);
        std::cout << names.size() << " frames of " << layout.width << " x " << layout.height << " (" << layout.bits
                  << "-bit) written to " << folder << std::endl;
    } catch (const std::exception& e) {
        std::cerr << "dngdemoclip: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
