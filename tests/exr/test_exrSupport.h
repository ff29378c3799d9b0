#pragma once
// Helpers shared by the EXR tests: an independent reader of the attribute list of a written header,
// little-endian readers, and a scratch folder per test.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "cinedng/cd_exception.h"

// A failed CD_ASSERT stops the process (death test), or, in a build with CINEDNG_ASSERT_THROWS,
// raises a cd_exception whose text is the condition.
#ifdef CINEDNG_ASSERT_THROWS
#define EXR_EXPECT_ASSERT(statement, regex)                                                          \
    do {                                                                                             \
        try {                                                                                        \
            statement;                                                                               \
            ADD_FAILURE() << "no assertion: " #statement;                                            \
        } catch (const cinedng::cd_exception& e) {                                                   \
            EXPECT_TRUE(::testing::internal::RE::PartialMatch(e.what(), ::testing::internal::RE(regex))) \
                << e.what();                                                                         \
        }                                                                                            \
    } while (0)
#else
#define EXR_EXPECT_ASSERT(statement, regex) EXPECT_DEATH(statement, regex)
#endif

namespace exrtest {

struct Attribute {
    std::string name;
    std::string type;
    std::vector<unsigned char> value;
};

inline uint32_t le32(const unsigned char* p) {
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline int32_t les32(const unsigned char* p) { return static_cast<int32_t>(le32(p)); }
inline uint64_t le64(const unsigned char* p) { return uint64_t(le32(p)) | (uint64_t(le32(p + 4)) << 32); }
inline float lef32(const unsigned char* p) {
    const uint32_t u = le32(p);
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

// Reads the attribute list that starts after magic and version; `end` receives the offset just
// past the terminating null byte.
inline std::vector<Attribute> parseHeader(const std::vector<unsigned char>& bytes, std::size_t* end = nullptr) {
    std::vector<Attribute> out;
    std::size_t pos = 8;
    auto readZ = [&](std::string& s) {
        s.clear();
        while (true) {
            if (pos >= bytes.size()) throw std::runtime_error("header runs past the data");
            const char c = static_cast<char>(bytes[pos++]);
            if (c == '\0') return;
            s.push_back(c);
        }
    };
    while (true) {
        Attribute a;
        readZ(a.name);
        if (a.name.empty()) break;
        readZ(a.type);
        if (pos + 4 > bytes.size()) throw std::runtime_error("size runs past the data");
        const uint32_t size = le32(&bytes[pos]);
        pos += 4;
        if (pos + size > bytes.size()) throw std::runtime_error("value runs past the data");
        a.value.assign(bytes.begin() + static_cast<std::ptrdiff_t>(pos),
                       bytes.begin() + static_cast<std::ptrdiff_t>(pos + size));
        pos += size;
        out.push_back(a);
    }
    if (end) *end = pos;
    return out;
}

inline std::vector<std::string> names(const std::vector<Attribute>& attrs) {
    std::vector<std::string> n;
    for (const Attribute& a : attrs) n.push_back(a.name);
    return n;
}

inline const Attribute* find(const std::vector<Attribute>& attrs, const std::string& name) {
    for (const Attribute& a : attrs)
        if (a.name == name) return &a;
    return nullptr;
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

inline std::vector<unsigned char> readFile(const std::string& path) {
    std::vector<unsigned char> data(std::filesystem::file_size(path));
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw std::runtime_error("cannot open " + path);
    const std::size_t n = std::fread(data.data(), 1, data.size(), f);
    std::fclose(f);
    data.resize(n);
    return data;
}

}  // namespace exrtest
