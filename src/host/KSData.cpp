#include "cinedng/KSData.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cinedng/cd_exception.h"

namespace cinedng {

std::shared_ptr<KSData> KSData::dataWithBytes(const void* bytes, size_t length) {
    std::shared_ptr<KSData> d(new KSData());
    d->storage_.assign(static_cast<const unsigned char*>(bytes), static_cast<const unsigned char*>(bytes) + length);
    d->bytes_ = d->storage_.data();
    d->length_ = length;
    return d;
}

std::shared_ptr<KSData> KSData::dataWithLength(size_t length) {
    std::shared_ptr<KSData> d(new KSData());
    d->storage_.assign(length, 0);
    d->bytes_ = d->storage_.data();
    d->length_ = length;
    return d;
}

std::shared_ptr<KSData> KSData::dataWithBytesNoCopy(void* bytes, size_t length, bool freeWhenDone) {
    std::shared_ptr<KSData> d(new KSData());
    d->bytes_ = static_cast<unsigned char*>(bytes);
    d->length_ = length;
    d->wrapped_ = true;
    d->freeWhenDone_ = freeWhenDone;
    return d;
}

std::shared_ptr<KSData> KSData::dataWithContentsOfFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return nullptr;
    std::shared_ptr<KSData> d(new KSData());
    d->storage_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    d->bytes_ = d->storage_.data();
    d->length_ = d->storage_.size();
    return d;
}

KSData::~KSData() {
    if (wrapped_ && freeWhenDone_) std::free(bytes_);
}

void KSData::appendBytes(const void* bytes, size_t length) {
    if (wrapped_) throw cd_exception("KSData - cannot append to bytes the object does not own");
    storage_.insert(storage_.end(), static_cast<const unsigned char*>(bytes),
                    static_cast<const unsigned char*>(bytes) + length);
    bytes_ = storage_.data();
    length_ = storage_.size();
}

void KSData::reserve(size_t capacity) {
    if (wrapped_) return;
    storage_.reserve(capacity);
    bytes_ = storage_.data();
}

std::string KSData::description() const {
    // "{length = n, bytes = 0x...}": the first 24 bytes in hexadecimal, in groups of four.
    std::string s = "{length = " + std::to_string(length_) + ", bytes = 0x";
    char hex[3];
    const size_t shown = length_ <= 24 ? length_ : 24;
    for (size_t i = 0; i < shown; ++i) {
        std::snprintf(hex, sizeof hex, "%02x", bytes_[i]);
        s += hex;
        if (i % 4 == 3 && i + 1 < shown) s += " ";
    }
    if (shown < length_) s += " ... ";
    return s + "}";
}

void KSFreeBuffer(void* buffer) { std::free(buffer); }

}  // namespace cinedng
