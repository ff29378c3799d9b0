#pragma once
// The host's byte-data object: a length and a pointer to bytes that the object either owns or
// merely wraps (created over existing bytes without copying). Shared with std::shared_ptr.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cinedng {

class KSData {
public:
    // A copy of the given bytes, owned by the object.
    static std::shared_ptr<KSData> dataWithBytes(const void* bytes, size_t length);
    // length zero bytes, owned by the object.
    static std::shared_ptr<KSData> dataWithLength(size_t length);
    // Wraps caller memory without copying. With freeWhenDone the object releases the bytes with
    // free() when it is destroyed (they must come from malloc); otherwise the caller keeps them alive.
    static std::shared_ptr<KSData> dataWithBytesNoCopy(void* bytes, size_t length, bool freeWhenDone);
    // Reads a whole file; nullptr when it cannot be read.
    static std::shared_ptr<KSData> dataWithContentsOfFile(const std::string& path);

    ~KSData();
    KSData(const KSData&) = delete;
    KSData& operator=(const KSData&) = delete;

    const unsigned char* bytes() const { return bytes_; }
    unsigned char* mutableBytes() { return bytes_; }
    size_t length() const { return length_; }
    bool ownsBytes() const { return !wrapped_ || freeWhenDone_; }

    // Appends bytes; only for objects that own their bytes (wrapped bytes are never reallocated).
    void appendBytes(const void* bytes, size_t length);
    void reserve(size_t capacity);

    std::string description() const;

private:
    KSData() = default;
    std::vector<unsigned char> storage_;
    unsigned char* bytes_ = nullptr;
    size_t length_ = 0;
    bool wrapped_ = false;
    bool freeWhenDone_ = false;
};

// Releases a buffer that the library allocated with malloc for the caller (for example the RGBA
// buffer of KSCinemaDNGFileSequence::rgbBufferFromRawBuffer). nullptr is accepted.
void KSFreeBuffer(void* buffer);

}  // namespace cinedng
