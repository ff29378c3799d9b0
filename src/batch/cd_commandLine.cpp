#include "cinedng/cd_commandLine.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "cinedng/cd_directory.h"

namespace cinedng {

namespace {

// A whole number in [lo, hi], or false.
bool parseInt(const std::string& text, long lo, long hi, int& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0' || v < lo || v > hi) return false;
    value = static_cast<int>(v);
    return true;
}

struct ValueOption {
    const char* shortName;
    const char* longName;
};

const ValueOption kValueOptions[] = {
    {"-i", "--input"},   {"-o", "--output"},       {"-l", "--look"},          {"-t", "--threads"},
    {"-s", "--skip"},    {"-d", "--max-duration"}, {"-b", "--benchmark"},     {"-n", "--name-template"},
    {"-w", "--width"},   {"-f", "--format"},
};

}  // namespace

std::string cd_commandLine::usage() {
    return "usage: dngprocessor [INPUT_FOLDER] [-i|--input DIR] [-o|--output DIR] [-l|--look FILE]\n"
           "                    [-t|--threads N] [-s|--skip N] [-d|--max-duration N] [-b|--benchmark N]\n"
           "                    [-n|--name-template T] [-w|--width N] [-f|--format F] [-v|--verbose]\n"
           "                    [--render] [--demo] [-h|--help] [--version]\n"
           "\n"
           "Converts the DNG frames of INPUT_FOLDER (a CinemaDNG clip) and prints a timing report.\n"
           "\n"
           "  -i, --input DIR          folder of DNG frames (or give it as INPUT_FOLDER)\n"
           "  -o, --output DIR         folder for the EXR files (default: the current folder)\n"
           "  -l, --look FILE          DNG frame whose tags and colour set the look (default: the\n"
           "                           first converted frame)\n"
           "  -t, --threads N          worker processes, at most one per ten frames plus one (default 8)\n"
           "  -s, --skip N             frames skipped between two converted frames (default 0)\n"
           "  -d, --max-duration N     convert at most N frames (default 999999)\n"
           "  -b, --benchmark N        convert every frame N times and report the speed (default 0)\n"
           "  -n, --name-template T    printf template of the EXR names, given the frame's image\n"
           "                           number (default frame%06d)\n"
           "  -w, --width N            preferred output width (recorded, not used; default -1)\n"
           "  -f, --format F           output format (recorded, not used; default openexr)\n"
           "  -v, --verbose            diagnostics and the detailed timing report\n"
           "      --render             also debayer every frame and write one EXR file per frame\n"
           "      --demo               write a small synthetic clip and render it\n"
           "  -h, --help               this text\n"
           "      --version            the version\n"
           "\n"
           "Exit codes: 0 success, 1 the run stopped or a frame failed, 2 bad usage.\n";
}

std::string cd_commandLine::versionText() { return "dngprocessor (cinedng) 0.1.0\n"; }

cd_commandLine::Request cd_commandLine::parse(const std::vector<std::string>& args) {
    Request req;
    bool inputGiven = false;
    bool helpSeen = false;
    bool versionSeen = false;
    auto fail = [&req](const std::string& reason) {
        req.action = Action::usageError;
        req.error = reason;
        return req;
    };
    auto setInput = [&](const std::string& dir) {
        if (inputGiven) return false;
        req.options.InputFolder = dir;
        inputGiven = true;
        return true;
    };

    bool optionsEnded = false;
    for (size_t k = 0; k < args.size(); ++k) {
        const std::string& arg = args[k];
        if (optionsEnded || arg.empty() || arg[0] != '-' || arg == "-") {
            if (!setInput(arg)) return fail("more than one input folder given ('" + arg + "')");
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        if (arg == "-h" || arg == "--help") {
            helpSeen = true;
            continue;
        }
        if (arg == "--version") {
            versionSeen = true;
            continue;
        }
        if (arg == "-v" || arg == "--verbose") {
            req.options.VerboseMode = true;
            continue;
        }
        if (arg == "--render") {
            req.render = true;
            continue;
        }
        if (arg == "--demo") {
            req.demo = true;
            continue;
        }

        // Options with a value: "-t 4", "-t4", "--threads 4", "--threads=4".
        const ValueOption* opt = nullptr;
        std::string value;
        bool haveValue = false;
        for (const ValueOption& o : kValueOptions) {
            const std::string s = o.shortName;
            const std::string l = o.longName;
            if (arg == s || arg == l) {
                opt = &o;
            } else if (arg.rfind(l + "=", 0) == 0) {
                opt = &o;
                value = arg.substr(l.size() + 1);
                haveValue = true;
            } else if (arg.size() > 2 && arg[1] != '-' && arg.rfind(s, 0) == 0) {
                opt = &o;
                value = arg.substr(2);
                haveValue = true;
            }
            if (opt != nullptr) break;
        }
        if (opt == nullptr) return fail("unknown option '" + arg + "'");
        const std::string name = opt->longName;
        if (!haveValue) {
            if (k + 1 >= args.size()) return fail("option " + name + " needs a value");
            value = args[++k];
        }

        auto number = [&](long lo, long hi, int& field, const char* what) {
            if (!parseInt(value, lo, hi, field)) {
                fail("option " + name + " needs " + what + ", got '" + value + "'");
                return false;
            }
            return true;
        };
        cd_CommandLineOptions& o = req.options;
        if (name == "--input") {
            if (!setInput(value)) return fail("more than one input folder given ('" + value + "')");
        } else if (name == "--output") {
            if (value.empty()) return fail("option --output needs a folder");
            o.OutputFolder = value;
            req.outputGiven = true;
        } else if (name == "--look") {
            if (value.empty()) return fail("option --look needs a file");
            o.LookFilename = value;
        } else if (name == "--threads") {
            if (!number(1, 1024, o.Threads, "a whole number from 1 to 1024")) return req;
        } else if (name == "--skip") {
            if (!number(0, INT_MAX - 1, o.SkipFrames, "a whole number of 0 or more")) return req;
        } else if (name == "--max-duration") {
            if (!number(1, INT_MAX, o.MaxDuration, "a whole number of 1 or more")) return req;
        } else if (name == "--benchmark") {
            if (!number(0, 1000000, o.BenchmarkRuns, "a whole number from 0 to 1000000")) return req;
        } else if (name == "--name-template") {
            if (value.empty()) return fail("option --name-template needs a template");
            o.OutputFilenameTemplate = value;
        } else if (name == "--width") {
            if (!number(-1, INT_MAX, o.PreferredWidth, "-1 or a whole number of 1 or more")) return req;
            if (o.PreferredWidth == 0) return fail("option --width needs -1 or a whole number of 1 or more, got '0'");
        } else if (name == "--format") {
            if (value.empty()) return fail("option --format needs a format");
            o.OutputFormat = value;
        }
    }

    if (helpSeen) {
        req.action = Action::help;
        return req;
    }
    if (versionSeen) {
        req.action = Action::version;
        return req;
    }
    if (req.demo) {
        if (inputGiven) return fail("--demo writes its own clip: give no input folder");
        req.render = true;
    } else {
        if (!inputGiven || req.options.InputFolder.empty()) return fail("no input folder given");
        if (!cd_directory::validFolderName(req.options.InputFolder))
            return fail("input folder '" + req.options.InputFolder + "' cannot be opened");
    }
    if (!req.options.LookFilename.empty() && !cd_directory::validFileName(req.options.LookFilename))
        return fail("look file '" + req.options.LookFilename + "' cannot be opened");
    if (req.render && req.options.BenchmarkRuns != 0)
        return fail("--benchmark measures the conversion without rendering: do not combine it with --render");
    if (!req.outputGiven) req.options.OutputFolder = "./";
    return req;
}

int cd_commandLine::run(Request& request, bool progress) {
    cd_BatchExtras extras;
    extras.render = request.render;
    extras.progress = progress;
    cd_CommandLineOptions& options = request.options;

    if (request.render) {
        std::error_code ec;
        std::filesystem::create_directories(options.OutputFolder, ec);
        if (!cd_directory::validFolderName(options.OutputFolder)) {
            std::cerr << "dngprocessor: output folder '" << options.OutputFolder << "' cannot be created" << std::endl;
            return exitFailed;
        }
    }

    try {
        cd_DNGProcessor processor(options, extras);
        for (const cd_FrameFailure& f : processor.failures())
            std::cerr << "dngprocessor: frame " << f.name << " failed: " << f.reason << std::endl;
        if (!processor.overwritingFrames().empty())
            std::cerr << "dngprocessor: warning: " << processor.overwritingFrames().size()
                      << " frames repeat the ImageNumber of an earlier frame (first: "
                      << processor.overwritingFrames().front()
                      << "); the EXR files are named by ImageNumber, so their files replaced earlier ones" << std::endl;
        if (request.render && processor.status() != cd_DNGProcessor::noInputFiles &&
            processor.status() != cd_DNGProcessor::lookSourceError) {
            std::cout << "\n" << processor.framesWritten() << " of " << processor.selectedFrames().size()
                      << " frames written as EXR files to " << options.OutputFolder << std::endl;
        }
        return processor.status() == cd_DNGProcessor::ok ? exitOk : exitFailed;
    } catch (const std::exception& e) {
        std::cerr << "dngprocessor: " << e.what() << std::endl;
        return exitFailed;
    }
}

}  // namespace cinedng
