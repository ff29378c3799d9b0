// Opens a CinemaDNG clip the way a host application does, reads one frame into floats and prints
// the clip's metadata dictionary and its colour-processing information.
//
//   example_read_clip [-m] [-f frame] [-t kelvin] frame.dng [frame.dng ...]
//
//   -m         read the frames into memory first and open the sequence from the buffers
//   -f frame   index of the frame to read (default 0)
//   -t kelvin  colour temperature for the processing info (default -1: 5000 K)
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "cinedng/KSCinemaDNGFileSequence.h"
#include "cinedng/KSLog.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"

using namespace cinedng;

static int usage() {
    std::fprintf(stderr, "usage: example_read_clip [-m] [-f frame] [-t kelvin] frame.dng [frame.dng ...]\n");
    return 2;
}

int main(int argc, char** argv) {
    bool fromMemory = false;
    int frame = 0;
    float kelvin = -1.0f;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-m") {
            fromMemory = true;
        } else if (a == "-f" && i + 1 < argc) {
            frame = std::atoi(argv[++i]);
        } else if (a == "-t" && i + 1 < argc) {
            kelvin = static_cast<float>(std::atof(argv[++i]));
        } else if (!a.empty() && a[0] == '-') {
            return usage();
        } else {
            paths.push_back(a);
        }
    }
    if (paths.empty()) return usage();

    std::shared_ptr<KSCinemaDNGFileSequence> sequence;
    if (fromMemory) {
        std::vector<std::shared_ptr<KSData>> buffers;
        for (const auto& p : paths) {
            auto d = KSData::dataWithContentsOfFile(p);
            if (!d) {
                std::fprintf(stderr, "cannot read %s\n", p.c_str());
                return 1;
            }
            buffers.push_back(d);
        }
        sequence = KSCinemaDNGFileSequence::initWithImageData(buffers);
    } else {
        sequence = KSCinemaDNGFileSequence::initWithFilenames(paths);
    }
    if (!sequence) {
        std::fprintf(stderr, "the clip could not be opened\n");
        return 1;
    }

    const KSSize size = sequence->rawImageSize();
    std::printf("frames: %zu\n", paths.size());
    std::printf("raw image size: %.0f x %.0f\n", size.width, size.height);
    std::printf("black level: %s\n", KSFormat("%@", sequence->blackLevel()).c_str());

    // The frame as floats: the active area's rows come first, at the active width's stride.
    auto data = sequence->rawImageDataForIndex(frame);
    const cd_DNGTags* tags = sequence->context()->dngTags();
    if (data) {
        const float* f = reinterpret_cast<const float*>(data->bytes());
        const size_t n = static_cast<size_t>(tags->inputRows) * static_cast<size_t>(tags->inputCols);
        double sum = 0.0;
        float lo = n ? f[0] : 0.0f, hi = n ? f[0] : 0.0f;
        for (size_t i = 0; i < n; ++i) {
            sum += f[i];
            lo = f[i] < lo ? f[i] : lo;
            hi = f[i] > hi ? f[i] : hi;
        }
        std::printf("frame %d: %d x %d active floats, min %s, max %s, mean %s\n", frame, tags->inputCols,
                    tags->inputRows, KSFormat("%@", lo).c_str(), KSFormat("%@", hi).c_str(),
                    KSFormat("%@", n ? static_cast<float>(sum / static_cast<double>(n)) : 0.0f).c_str());
        std::printf("first values: %s %s %s %s\n", KSFormat("%@", n > 0 ? f[0] : 0.0f).c_str(),
                    KSFormat("%@", n > 1 ? f[1] : 0.0f).c_str(), KSFormat("%@", n > 2 ? f[2] : 0.0f).c_str(),
                    KSFormat("%@", n > 3 ? f[3] : 0.0f).c_str());
    }

    std::printf("metadata: %s\n", sequence->metadata()->description().c_str());
    try {
        auto info = sequence->imageProcessingInfoWithCustomWhiteBalance(kelvin);
        std::printf("processing info: %s\n", info->description().c_str());
    } catch (const cd_exception& e) {
        std::printf("processing info failed: %s\n", e.what());
        return 1;
    }
    return 0;
}
