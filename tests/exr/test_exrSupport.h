#pragma once
// Helpers shared by the EXR tests: an independent reader of a written attribute list, little-endian
// readers and a scratch folder per test.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace exrtest {

using Bytes = std::vector<unsigned char>;

inline uint32_t le32(const unsigned char* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24); }
inline uint64_t le64(const unsigned char* p) { return le32(p) | (uint64_t(le32(p + 4)) << 32); }
inline float lef32(const unsigned char* p) { return std::bit_cast<float>(le32(p)); }

struct Header {
    std::vector<std::string> order;                          // attribute names as written
    std::map<std::string, std::pair<std::string, Bytes>> a;  // name -> (type, value bytes)
    std::size_t end = 0;                                     // offset just past the closing null byte
    const unsigned char* at(const std::string& n) const { return a.at(n).second.data(); }
};

// Reads the attribute list that follows magic and version.
inline Header parseHeader(const Bytes& b) {
    Header h;
    std::size_t pos = 8;
    auto readZ = [&] {
        std::string s;
        for (; pos < b.size() && b[pos] != 0; ++pos) s.push_back(static_cast<char>(b[pos]));
        if (pos++ >= b.size()) throw std::runtime_error("header runs past the data");
        return s;
    };
    for (std::string name = readZ(); !name.empty(); name = readZ()) {
        const std::string type = readZ();
        if (pos + 4 > b.size() || pos + 4 + le32(&b[pos]) > b.size()) throw std::runtime_error("value past the data");
        const std::size_t size = le32(&b[pos]);
        h.order.push_back(name);
        h.a[name] = {type, Bytes(b.begin() + pos + 4, b.begin() + pos + 4 + size)};
        pos += 4 + size;
    }
    h.end = pos;
    return h;
}

// An empty folder under the build tree for the running test, with a trailing separator.
inline std::string scratchFolder() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path dir = std::filesystem::path(CINEDNG_BINARY_DIR) / "exr_test_files" /
                                      (std::string(info->test_suite_name()) + "." + info->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir.string() + "/";
}

}  // namespace exrtest
