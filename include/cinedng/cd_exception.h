#pragma once
// The library's one failure type. Every structural or argument failure of a stage is raised as a
// cd_exception whose what() is exactly the message text, e.g. "cd_parseTiff - illegal TIFF version".
#include <stdexcept>
#include <string>

namespace cinedng {

class cd_exception : public std::runtime_error {
public:
    explicit cd_exception(const std::string& message) : std::runtime_error(message) {}
    explicit cd_exception(const char* message) : std::runtime_error(message) {}
};

}  // namespace cinedng
