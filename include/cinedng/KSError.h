#pragma once
// The host's error object: a domain, an integer code and a localized description. Operations hand it
// back through a nullable out-parameter (std::shared_ptr<KSError>* error): they check the pointer
// for null before storing into it.
#include <memory>
#include <string>

namespace cinedng {

class KSError {
public:
    KSError(std::string domain, long code, std::string localizedDescription)
        : domain_(std::move(domain)), code_(code), localizedDescription_(std::move(localizedDescription)) {}

    static std::shared_ptr<KSError> errorWithDomain(const std::string& domain, long code,
                                                    const std::string& localizedDescription) {
        return std::make_shared<KSError>(domain, code, localizedDescription);
    }

    const std::string& domain() const { return domain_; }
    long code() const { return code_; }
    const std::string& localizedDescription() const { return localizedDescription_; }
    std::string description() const {
        return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + localizedDescription_ + "\"";
    }

private:
    std::string domain_;
    long code_;
    std::string localizedDescription_;
};

// Stores an error through an optional out-parameter.
inline void KSSetError(std::shared_ptr<KSError>* out, std::shared_ptr<KSError> error) {
    if (out) *out = std::move(error);
}

}  // namespace cinedng
