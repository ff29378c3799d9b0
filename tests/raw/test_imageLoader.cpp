// Frame loading from files and from host buffers; clip folder helpers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "cinedng/cd_directory.h"
#include "raw_test_util.h"

using namespace cinedng;
using rawtest::failureOf;
namespace fs = std::filesystem;

namespace {

const char* const kRange = "cd_imageLoader - imageNumber is not in a legal range";

// A fresh folder under the build tree, removed again at the end of the test.
struct TempFolder {
    std::string path = std::string(CINEDNG_BINARY_DIR) + "/imageLoader-" + std::to_string(getpid()) + "/";
    TempFolder() { fs::create_directories(path); }
    ~TempFolder() { fs::remove_all(path); }
    // A file of `size` bytes counting up in steps of 7 from `start` (sparse and unwritten for start < 0).
    std::string write(const std::string& name, size_t size, int start = 1) const {
        std::string s(start < 0 ? 0 : size, '\0');
        for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<char>(start + i * 7);
        std::ofstream(path + name, std::ios::binary) << s;
        fs::resize_file(path + name, size);
        return s;
    }
};

std::string head(const cd_imageLoader& l, size_t n) { return std::string(reinterpret_cast<const char*>(l.buffer()), n); }

}  // namespace

TEST(ImageLoaderFiles, ConfigureChecksThenFramesWithStatusesForMissingAndOutgrownFiles) {
    TempFolder dir;
    dir.write("empty.dng", 0);
    dir.write("exact.dng", 128000000, -1);
    dir.write("over.dng", 128000001, -1);
    cd_imageLoader loader;
    EXPECT_EQ(failureOf([&] { loader.configure("", {"a.dng"}); }), "cd_imageLoader - the DNG source folder path is ''");
    EXPECT_EQ(failureOf([&] { loader.configure(dir.path, {}); }), "cd_imageLoader - no filenames provided");
    EXPECT_EQ(failureOf([&] { loader.configure(dir.path, {"empty.dng", "missing.dng"}); }),
              "cd_imageLoader - the file size of the clip's largest file is in an illegal range <= 0");
    EXPECT_EQ(failureOf([&] { loader.configure(dir.path, {"exact.dng", "over.dng"}); }),
              "cd_imageLoader - the file size of the clip's largest file is in an illegal range > 128e6");
    EXPECT_EQ(loader.configure(dir.path, {"exact.dng"}), 0);
    EXPECT_EQ(loader.bufferSize(), 128000000u + 66000u);

    const std::string a = dir.write("a.dng", 1000, 1);
    dir.write("b.dng", 3000, 9);
    ASSERT_EQ(loader.configure(dir.path, {"a.dng", "gone.dng", "b.dng"}), 0);
    EXPECT_EQ(loader.bufferSize(), 3000u + 66000u);  // the largest file that exists, plus the slack
    ASSERT_EQ(loader.getImageObject(2), 0);
    ASSERT_EQ(loader.getImageObject(0), 0);
    EXPECT_EQ(loader.imageSize(), 1000u);
    EXPECT_EQ(head(loader, 1000), a);
    EXPECT_EQ(loader.stats().bytesProcessed, 4000u);
    EXPECT_EQ(loader.getImageObject(1), 1005);  // cannot be opened
    EXPECT_EQ(failureOf([&] { loader.getImageObject(-1); }), kRange);
    EXPECT_EQ(failureOf([&] { loader.getImageObject(3); }), kRange);
    // A file that has outgrown the buffer since configure is cut at the buffer's size.
    const std::string grown = dir.write("a.dng", loader.bufferSize() + 1, 5);
    EXPECT_EQ(loader.getImageObject(0), 1006);
    EXPECT_EQ(loader.imageSize(), loader.bufferSize());
    EXPECT_EQ(head(loader, loader.bufferSize()), grown.substr(0, loader.bufferSize()));
}

TEST(ImageLoaderHostBuffers, ServesHostBytesInPlace) {
    cd_imageLoader loader;
    EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(0); }),
              "cd_imageLoader - requesting data from array that has not been provided. Please use "
              "setImageBuffersForSequence first");
    unsigned char frame0[16] = {'I', 'I', 42, 0};
    auto d0 = KSData::dataWithBytesNoCopy(frame0, sizeof frame0, false);
    EXPECT_EQ(loader.setImageBuffersForSequence({KSData::dataWithLength(40), d0}), 2);
    EXPECT_EQ(d0.use_count(), 2);  // shared, not copied
    EXPECT_EQ(loader.getImageObjectFromDataBuffersWithIndex(1), frame0);
    EXPECT_EQ(loader.imageSize(), 16u);
    EXPECT_EQ(loader.setImageBuffersForSequence({}), 0);  // an empty array refuses every number
    EXPECT_EQ(d0.use_count(), 1);                         // and the previous objects are released
    for (int i : {-1, 0, 1}) EXPECT_EQ(failureOf([&] { loader.getImageObjectFromDataBuffersWithIndex(i); }), kRange);
    EXPECT_EQ(failureOf([&] { loader.getImageObject(0); }), kRange);  // the file source is independent
}

TEST(Directory, ExtensionRuleSizesAndFolderNames) {
    // Matches in any case, and any name one character shorter than the extension (the size
    // difference wraps to "not found"); no match when the first occurrence is not at the end.
    TempFolder dir;
    for (const char* name : {"b.dng", "A.DNG", "abc", "c.txt", "a.dng.dng", "dngs", "frame.dng", "ab", "abcde"})
        dir.write(name, 10);
    std::vector<std::string> names = cd_directory::getAllFileNames(dir.path, ".dNg");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"A.DNG", "abc", "b.dng", "frame.dng"}));
    dir.write("big.dng", 1234);
    EXPECT_EQ(cd_directory::getLargestFileSize(dir.path, {"b.dng", "nowhere", "big.dng"}), 1234);  // the missing one is -1
    std::string a = "/data/clip", b = "/data/clip/", empty;
    for (std::string* path : {&a, &b, &empty}) EXPECT_EQ(cd_directory::cleanupFolderName(*path), *path);
    EXPECT_EQ(a + "|" + b + "|" + empty, "/data/clip/|/data/clip/|/");  // one slash, added only where missing
}
