#pragma once
// cd_commandLine: the dngprocessor command. Turns the command's arguments into the options record
// of a batch run (plus the command's own switches) and runs the batch driver.
//
//   dngprocessor [INPUT_FOLDER] [-i|--input DIR] [-o|--output DIR] [-l|--look FILE] [-t|--threads N]
//                [-s|--skip N] [-d|--max-duration N] [-b|--benchmark N] [-n|--name-template T]
//                [-w|--width N] [-f|--format F] [-v|--verbose] [--render] [--demo] [-h|--help]
//                [--version]
//
// Values follow their flag as the next argument, or after "=" for the long forms (--threads=4).
// Exit codes: 0 success, 1 the run stopped or a frame failed, 2 bad usage.
#include <string>
#include <vector>

#include "cinedng/cd_DNGProcessor.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_commandLine {
public:
    enum class Action { run, help, version, usageError };

    // The parsed command.
    struct Request {
        Action action = Action::run;
        cd_CommandLineOptions options;
        bool render = false;
        bool demo = false;
        bool outputGiven = false;
        std::string error;  // the one-line reason of a usage error
    };

    static constexpr int exitOk = 0;
    static constexpr int exitFailed = 1;
    static constexpr int exitUsage = 2;

    // args are the arguments after the program name.
    static Request parse(const std::vector<std::string>& args);
    static std::string usage();
    static std::string versionText();

    // Runs a parsed request of action run (for --demo the caller writes the demo clip and sets the
    // input folder first). Creates the output folder when rendering, runs the driver (its report
    // goes to standard output), then lists failed frames on standard error and says where the EXR
    // files went. progress: show the progress line while the workers run. Returns the exit code.
    static int run(Request& request, bool progress);
};

}  // namespace cinedng
