#include "cinedng/cd_directory.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

bool cd_directory::extensionMatches(const std::string& name, const std::string& extension) {
    const std::string lowerName = cd_changeCase::toLowerCase(name);
    const std::string lowerExtension = cd_changeCase::toLowerCase(extension);
    // Deliberately a single comparison of unsigned sizes: when the name is shorter than the
    // extension the difference wraps, and it equals "not found" when it is shorter by one.
    const uint64_t firstAt = static_cast<uint64_t>(lowerName.find(lowerExtension));
    const uint64_t expectedAt =
        static_cast<uint64_t>(lowerName.size()) - static_cast<uint64_t>(lowerExtension.size());
    return firstAt == expectedAt;
}

std::vector<std::string> cd_directory::getAllFileNames(const std::string& folder, const std::string& extension) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) throw cd_exception("cd_directory - the folder could not be opened: " + folder);
    std::vector<std::string> names;
    while (const dirent* entry = readdir(dir)) {
        const std::string name(entry->d_name);
        if (extensionMatches(name, extension)) names.push_back(name);
    }
    closedir(dir);
    return names;
}

bool cd_directory::validFolderName(const std::string& folder) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return false;
    closedir(dir);
    return true;
}

bool cd_directory::validFileName(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return false;
    std::fclose(file);
    return true;
}

std::string cd_directory::cleanupFolderName(std::string& folder) {
    if (folder.empty() || folder.back() != '/') folder += '/';
    return folder;
}

int64_t cd_directory::getFileSize(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return -1;
    return static_cast<int64_t>(status.st_size);
}

int64_t cd_directory::getLargestFileSize(const std::string& folder, const std::vector<std::string>& names) {
    int64_t largest = -1;
    for (const std::string& name : names) largest = std::max(largest, getFileSize(folder + name));
    return largest;
}

}  // namespace cinedng
