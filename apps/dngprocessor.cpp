// dngprocessor: batch conversion of a CinemaDNG clip (a folder of DNG frames) with a timing report;
// with --render it writes one EXR file per frame, with --demo it first writes a synthetic clip.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "DemoClip.h"
#include "cinedng/cd_commandLine.h"

using cinedng::cd_commandLine;

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    cd_commandLine::Request request = cd_commandLine::parse(args);
    switch (request.action) {
        case cd_commandLine::Action::help:
            std::cout << cd_commandLine::usage();
            return cd_commandLine::exitOk;
        case cd_commandLine::Action::version:
            std::cout << cd_commandLine::versionText();
            return cd_commandLine::exitOk;
        case cd_commandLine::Action::usageError:
            std::cerr << "dngprocessor: " << request.error << "\n\n" << cd_commandLine::usage();
            return cd_commandLine::exitUsage;
        case cd_commandLine::Action::run:
            break;
    }

    if (request.demo) {
        char pattern[] = "/tmp/cinedng-demo-XXXXXX";
        if (::mkdtemp(pattern) == nullptr) {
            std::cerr << "dngprocessor: cannot create a temporary folder for the demo clip" << std::endl;
            return cd_commandLine::exitFailed;
        }
        const std::string base = pattern;
        const std::string clip = base + "/clip";
        std::filesystem::create_directories(clip);
        try {
            const cinedng::demo::DemoClipLayout layout;
            const std::vector<std::string> names = cinedng::demo::writeDemoClip(clip, layout);
            std::cout << "Demo clip: " << names.size() << " frames of " << layout.width << " x " << layout.height
                      << " (12-bit) in " << clip << std::endl;
        } catch (const std::exception& e) {
            std::cerr << "dngprocessor: the demo clip could not be written: " << e.what() << std::endl;
            return cd_commandLine::exitFailed;
        }
        request.options.InputFolder = clip;
        if (!request.outputGiven) request.options.OutputFolder = base + "/exr";
    }

    return cd_commandLine::run(request, ::isatty(STDERR_FILENO) == 1);
}
