#pragma once
// Helpers shared by the TIFF tests: building small frames, parsing them, checking failure texts.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_parseTiff.h"
#include "framebuilder/DngFrameBuilder.h"

// Frame descriptions are written with designated initializers that leave every other field at its
// default on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace tifftest {

// Passes when `stmt` throws a cd_exception whose text is exactly `msg`.
#define EXPECT_CD_THROW(stmt, msg) \
    EXPECT_THAT([&] { stmt; }, testing::ThrowsMessage<cinedng::cd_exception>(testing::StrEq(msg)))

// What the last configure of a Parsed printed, kept also when it raised.
inline std::string& lastConfigureErr() {
    static std::string err;
    return err;
}

// A frame and a parser configured on it (the parser points into `bytes`); small frames are padded
// to the 100 bytes the parser requires.
struct Parsed {
    std::vector<uint8_t> bytes;
    cinedng::cd_parseTiff p;

    explicit Parsed(std::vector<uint8_t> frame) : bytes(std::move(frame)) {
        if (bytes.size() < 100) bytes.resize(100, 0);
        testing::internal::CaptureStderr();
        try {
            p.configure(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        } catch (...) {
            lastConfigureErr() = testing::internal::GetCapturedStderr();
            throw;
        }
        lastConfigureErr() = testing::internal::GetCapturedStderr();
    }
};
inline std::unique_ptr<Parsed> parse(std::vector<uint8_t> f) { return std::make_unique<Parsed>(std::move(f)); }
inline std::unique_ptr<Parsed> parse(const cinedng::framebuilder::TiffBuilder& b) { return parse(b.build()); }

inline std::vector<uint8_t> readSample(const std::string& name) {
    std::ifstream f(std::string(CINEDNG_SAMPLES_DIR) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

// The line the byte query adds to them before it returns 5.
const std::string kNotBytes = "\"Could not read tag, it's not in byte format\"   = Could not read tag, it's not in byte format\n";

// The three diagnostic lines printed before a wrong-type failure.
inline std::string typeLines(unsigned tag, unsigned type, unsigned count) {
    auto line = [](std::string l, unsigned v) { return std::string(24 - l.size(), ' ') + l + "   = " + std::to_string(v) + "\n"; };
    return line("tag.Tag", tag) + line("tag.Type", type) + line("tag.Count", count);
}

}  // namespace tifftest
