#pragma once
// Helpers shared by the TIFF tests: building small frames, parsing them, checking failure texts.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_parseTiff.h"
#include "framebuilder/DngFrameBuilder.h"

namespace tifftest {

// Raises a gtest failure unless `stmt` throws a cd_exception whose text is exactly `msg`.
#define EXPECT_CD_THROW(stmt, msg)                                                        \
    do {                                                                                  \
        try {                                                                             \
            stmt;                                                                         \
            ADD_FAILURE() << "no exception, expected: " << (msg);                         \
        } catch (const cinedng::cd_exception& e) {                                        \
            EXPECT_EQ(std::string(e.what()), std::string(msg));                           \
        }                                                                                 \
    } while (0)

// Every parsed frame must be at least 100 bytes: pad small test frames with an unused tag.
inline std::vector<uint8_t> buildPadded(cinedng::framebuilder::TiffBuilder& b) {
    std::vector<uint8_t> f = b.build();
    if (f.size() < 100) f.resize(100, 0);
    return f;
}

// What the last configure() of a Parsed printed on stderr, kept when it raised.
inline std::string& lastConfigureStderr() {
    static std::string s;
    return s;
}

// A frame and a parser configured on it (the parser points into `bytes`).
struct Parsed {
    std::vector<uint8_t> bytes;
    cinedng::cd_parseTiff p;
    std::string configureStderr;
    int configureStatus = -1;

    explicit Parsed(std::vector<uint8_t> frame) : bytes(std::move(frame)) {
        testing::internal::CaptureStderr();
        try {
            configureStatus = p.configure(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        } catch (...) {
            lastConfigureStderr() = testing::internal::GetCapturedStderr();
            throw;
        }
        configureStderr = testing::internal::GetCapturedStderr();
        lastConfigureStderr() = configureStderr;
    }
};

inline std::unique_ptr<Parsed> parse(std::vector<uint8_t> frame) { return std::make_unique<Parsed>(std::move(frame)); }
inline std::unique_ptr<Parsed> parse(cinedng::framebuilder::TiffBuilder& b) { return parse(buildPadded(b)); }

inline std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary | std::ios::ate);
    std::vector<uint8_t> bytes;
    if (!f) return bytes;
    bytes.resize(static_cast<size_t>(f.tellg()));
    f.seekg(0);
    f.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline std::string samplePath(const std::string& name) { return std::string(CINEDNG_SAMPLES_DIR) + "/" + name; }

// The three diagnostic lines printed before a wrong-type failure.
inline std::string typeLines(unsigned tag, unsigned type, unsigned count) {
    auto line = [](const char* label, unsigned v) {
        std::string l(label);
        return std::string(24 - l.size(), ' ') + l + "   = " + std::to_string(v) + "\n";
    };
    return line("tag.Tag", tag) + line("tag.Type", type) + line("tag.Count", count);
}

}  // namespace tifftest
