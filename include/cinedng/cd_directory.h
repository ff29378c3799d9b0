#pragma once
// Small file-system helpers for a clip folder: list the frames, check paths, measure files.
#include <cstdint>
#include <string>
#include <vector>

namespace cinedng {

class cd_directory {
public:
    // Names of the entries of folder whose lower-cased name ends in the lower-cased extension, in
    // the order the directory yields them. The test is: the first occurrence of the extension in
    // the name sits at (name length - extension length), both as unsigned 64-bit sizes, so
    // "a.dng.dng" does not match and a name shorter than the extension by exactly one character
    // matches (the difference wraps to the not-found value). A folder that cannot be opened raises
    // a cd_exception.
    static std::vector<std::string> getAllFileNames(const std::string& folder, const std::string& extension);
    // The one test above, on its own.
    static bool extensionMatches(const std::string& name, const std::string& extension);
    // True when the path can be opened as a directory.
    static bool validFolderName(const std::string& folder);
    // True when the file can be opened for reading (it is closed again at once).
    static bool validFileName(const std::string& path);
    // Appends "/" unless the path already ends in one (an empty path becomes "/"); returns it.
    static std::string cleanupFolderName(std::string& folder);
    // Size in bytes from the file system, -1 when the file cannot be queried.
    static int64_t getFileSize(const std::string& path);
    // Largest getFileSize(folder + name) over the names (-1 when none can be queried or no names).
    static int64_t getLargestFileSize(const std::string& folder, const std::vector<std::string>& names);
};

}  // namespace cinedng
