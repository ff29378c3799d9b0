#pragma once
// The host's named exception (a name and a reason). It is a cd_exception, so what() is the reason.
#include <string>

#include "cinedng/cd_exception.h"

namespace cinedng {

class KSException : public cd_exception {
public:
    KSException(std::string name, const std::string& reason) : cd_exception(reason), name_(std::move(name)) {}
    const std::string& name() const { return name_; }
    std::string reason() const { return what(); }

private:
    std::string name_;
};

}  // namespace cinedng
