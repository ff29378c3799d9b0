// Frame loading from files and from host buffers; clip folder helpers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cinedng/KSData.h"
#include "cinedng/cd_directory.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_imageLoader.h"

using namespace cinedng;
namespace fs = std::filesystem;

namespace {

const char* const kRange = "cd_imageLoader - imageNumber is not in a legal range";

// A fresh folder under the build tree, removed again at the end of the test.
class TempFolder {
public:
    TempFolder() {
        path_ = fs::path(CINEDNG_BINARY_DIR) / ("imageLoader-" + std::to_string(getpid()) + "-" + std::to_string(counter_++));
        fs::remove_all(path_);
        fs::create_directories(path_);
    }
    ~TempFolder() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    std::string prefix() const { return path_.string() + "/"; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
    }
    // A sparse file of the given size: no disk blocks are used.
    void sparse(const std::string& name, uintmax_t size) const {
        std::ofstream(file(name), std::ios::binary).close();
        fs::resize_file(file(name), size);
    }

private:
    fs::path path_;
    static inline int counter_ = 0;
};

std::string patterned(size_t n, unsigned char start) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(start + i * 7);
    return s;
}

template <class F>
std::string failureOf(F&& f) {
    try {
        f();
    } catch (const cd_exception& e) {
        return e.what();
    }
    return "(no failure)";
}

}  // namespace

TEST(ImageLoaderConfigure, RefusesMissingInputs) {
    cd_imageLoader loader;
    EXPECT_EQ(failureOf([&] { loader.configure("", {"a.dng"}); }),
              "cd_imageLoader - the DNG source folder path is ''");
    EXPECT_EQ(failureOf([&] { loader.configure("/tmp/", {}); }), "cd_imageLoader - no filenames provided");

    TempFolder dir;
    dir.write("empty.dng", "");
    const std::string nonPositive = "cd_imageLoader - the file size of the clip's largest file is in an illegal range <= 0";
    EXPECT_EQ(failureOf([&] { loader.configure(dir.prefix(), {"missing.dng"}); }), nonPositive);
    EXPECT_EQ(failureOf([&] { loader.configure(dir.prefix(), {"empty.dng", "missing.dng"}); }), nonPositive);
    EXPECT_EQ(loader.buffer(), nullptr);
}

TEST(ImageLoaderConfigure, LargestFrameLimitIs128MillionBytes) {
    TempFolder dir;
    dir.sparse("exact.dng", 128000000);
    dir.sparse("over.dng", 128000001);
    cd_imageLoader loader;
    EXPECT_EQ(loader.configure(dir.prefix(), {"exact.dng"}), 0);
    EXPECT_EQ(loader.bufferSize(), 128000000u + 66000u);
    EXPECT_NE(loader.buffer(), nullptr);
    EXPECT_EQ(failureOf([&] { loader.configure(dir.prefix(), {"exact.dng", "over.dng"}); }),
              "cd_imageLoader - the file size of the clip's largest file is in an illegal range > 128e6");
}

TEST(ImageLoaderFiles, ReadsFramesAndSkipsMissingOnesWhenSizing) {
    TempFolder dir;
    const std::string a = patterned(1000, 1), b = patterned(3000, 9);
    dir.write("a.dng", a);
    dir.write("b.dng", b);
    cd_imageLoader loader;
    ASSERT_EQ(loader.configure(dir.prefix(), {"a.dng", "gone.dng", "b.dng"}), 0);
    EXPECT_EQ(loader.bufferSize(), 3000u + 66000u);

    ASSERT_EQ(loader.getImageObject(2), 0);
    EXPECT_EQ(loader.imageSize(), 3000u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(loader.buffer()), 3000), b);
    ASSERT_EQ(loader.getImageObject(0), 0);
    EXPECT_EQ(loader.imageSize(), 1000u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(loader.buffer()), 1000), a);
    EXPECT_EQ(loader.stats().bytesProcessed, 4000u);

    // The missing frame cannot be opened: status 1005, nothing read.
    EXPECT_EQ(loader.getImageObject(1), 1005);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(loader.buffer()), 1000), a);

    EXPECT_EQ(failureOf([&] { loader.getImageObject(-1); }), kRange);
    EXPECT_EQ(failureOf([&] { loader.getImageObject(3); }), kRange);
}

TEST(ImageLoaderFiles, FrameThatOutgrewTheBufferIsCutWithStatus1006) {
    TempFolder dir;
    dir.write("f.dng", patterned(500, 3));
    cd_imageLoader loader;
    ASSERT_EQ(loader.configure(dir.prefix(), {"f.dng"}), 0);
    const uint64_t size = loader.bufferSize();

    // Growing within the headroom still reads the whole file.
    dir.write("f.dng", patterned(size, 5));
    EXPECT_EQ(loader.getImageObject(0), 0);
    EXPECT_EQ(loader.imageSize(), size);

    const std::string grown = patterned(size + 1, 5);
    dir.write("f.dng", grown);
    EXPECT_EQ(loader.getImageObject(0), 1006);
    EXPECT_EQ(loader.imageSize(), size);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(loader.buffer()), size), grown.substr(0, size));
}

TEST(ImageLoaderFiles, FullPathWithOneEmptyNameLoadsARealFrame) {
    const std::string path = std::string(CINEDNG_SAMPLES_DIR) + "/tinydng_colorchart.dng";
    std::ifstream in(path, std::ios::binary);
    ASSERT_TRUE(in) << path;
    const std::string expected((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    cd_imageLoader loader;
    ASSERT_EQ(loader.configure(path, {""}), 0);
    ASSERT_EQ(loader.getImageObject(0), 0);
    ASSERT_EQ(loader.imageSize(), expected.size());
    EXPECT_EQ(loader.imageSize(), 3906864u);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), reinterpret_cast<const char*>(loader.buffer())));
}

TEST(ImageLoaderHostBuffers, ServesHostBytesInPlace) {
    cd_imageLoader loader;
    EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(0); }),
              "cd_imageLoader - requesting data from array that has not been provided. Please use "
              "setImageBuffersForSequence first");

    unsigned char frame0[16] = {'I', 'I', 42, 0};
    auto d0 = KSData::dataWithBytesNoCopy(frame0, sizeof frame0, false);
    auto d1 = KSData::dataWithLength(40);
    EXPECT_EQ(loader.setImageBuffersForSequence({d0, d1}), 2);
    EXPECT_EQ(d0.use_count(), 2);  // shared, not copied

    EXPECT_EQ(loader.getImageObjectFromDataBuffersWithIndex(0), frame0);
    EXPECT_EQ(loader.imageSize(), 16u);
    EXPECT_EQ(loader.getImageObjectFromDataBuffersWithIndex(1), d1->bytes());
    EXPECT_EQ(loader.imageSize(), 40u);
    EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(-1); }), kRange);
    EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(2); }), kRange);

    // Replacing the array releases the previous objects.
    EXPECT_EQ(loader.setImageBuffersForSequence({d1}), 1);
    EXPECT_EQ(d0.use_count(), 1);
    EXPECT_EQ(loader.getImageObjectFromDataBuffersWithIndex(0), d1->bytes());

    // An empty array refuses every frame with the range message.
    EXPECT_EQ(loader.setImageBuffersForSequence({}), 0);
    for (int i : {-1, 0, 1}) EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(i); }), kRange);

    // The file source is independent: without configure every file frame is out of range.
    EXPECT_EQ(failureOf([&] { loader.getImageObject(0); }), kRange);
}

TEST(Directory, ExtensionRuleIncludingItsOddCases) {
    const std::string ext = ".dng";
    EXPECT_TRUE(cd_directory::extensionMatches("clip_0001.dng", ext));
    EXPECT_TRUE(cd_directory::extensionMatches("clip_0001.DNG", ext));
    EXPECT_TRUE(cd_directory::extensionMatches("clip_0001.dng", ".DnG"));
    EXPECT_TRUE(cd_directory::extensionMatches(".dng", ext));
    EXPECT_FALSE(cd_directory::extensionMatches("a.dng.dng", ext));  // first occurrence not at the end
    EXPECT_FALSE(cd_directory::extensionMatches("clip.dngx", ext));
    EXPECT_FALSE(cd_directory::extensionMatches("clip.tif", ext));
    // One character shorter than the extension: the size difference wraps to "not found".
    EXPECT_TRUE(cd_directory::extensionMatches("abc", ext));
    EXPECT_TRUE(cd_directory::extensionMatches("dng", ext));
    EXPECT_FALSE(cd_directory::extensionMatches("ab", ext));
    EXPECT_FALSE(cd_directory::extensionMatches("abcd", ext));
}

TEST(Directory, ListsMatchingEntries) {
    TempFolder dir;
    for (const char* name : {"b.dng", "A.DNG", "abc", "c.txt", "a.dng.dng", "dngs", "frame.dng"}) dir.write(name, "x");
    std::vector<std::string> names = cd_directory::getAllFileNames(dir.prefix(), ".dng");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"A.DNG", "abc", "b.dng", "frame.dng"}));
    EXPECT_THROW(cd_directory::getAllFileNames(dir.file("nowhere"), ".dng"), cd_exception);
}

TEST(Directory, PathsAndSizes) {
    TempFolder dir;
    dir.write("f.dng", std::string(1234, 'x'));
    dir.write("g.dng", std::string(10, 'x'));
    EXPECT_TRUE(cd_directory::validFolderName(dir.prefix()));
    EXPECT_FALSE(cd_directory::validFolderName(dir.file("nowhere")));
    EXPECT_FALSE(cd_directory::validFolderName(dir.file("f.dng")));
    EXPECT_TRUE(cd_directory::validFileName(dir.file("f.dng")));
    EXPECT_FALSE(cd_directory::validFileName(dir.file("nowhere")));
    EXPECT_EQ(cd_directory::getFileSize(dir.file("f.dng")), 1234);
    EXPECT_EQ(cd_directory::getFileSize(dir.file("nowhere")), -1);
    EXPECT_EQ(cd_directory::getLargestFileSize(dir.prefix(), {"g.dng", "nowhere", "f.dng"}), 1234);
    EXPECT_EQ(cd_directory::getLargestFileSize(dir.prefix(), {"nowhere"}), -1);

    std::string path = "/data/clip";
    EXPECT_EQ(cd_directory::cleanupFolderName(path), "/data/clip/");
    EXPECT_EQ(path, "/data/clip/");
    EXPECT_EQ(cd_directory::cleanupFolderName(path), "/data/clip/");
    std::string empty;
    EXPECT_EQ(cd_directory::cleanupFolderName(empty), "/");
    std::string root = "/";
    EXPECT_EQ(cd_directory::cleanupFolderName(root), "/");
}
