#pragma once
// cd_zeroedFloats: an owned buffer of zero floats whose pages are committed only when first written.
//
// The batch driver allocates its raw images this way before it forks its workers: pages the parent
// never touched are not copied into every worker that writes them, and a large buffer is mapped
// with transparent huge pages where the system offers them, so that a worker's first pass over the
// image takes a few dozen page faults instead of thousands.
#include <cstddef>

namespace cinedng {

class cd_zeroedFloats {
public:
    cd_zeroedFloats() = default;
    // n zero floats; raises "cd_zeroedFloats - the buffer could not be allocated" on failure.
    explicit cd_zeroedFloats(size_t n);
    ~cd_zeroedFloats();
    cd_zeroedFloats(cd_zeroedFloats&& other) noexcept;
    cd_zeroedFloats& operator=(cd_zeroedFloats&& other) noexcept;
    cd_zeroedFloats(const cd_zeroedFloats&) = delete;
    cd_zeroedFloats& operator=(const cd_zeroedFloats&) = delete;

    float* get() const { return data_; }
    size_t size() const { return count_; }

private:
    void release();

    float* data_ = nullptr;
    size_t count_ = 0;
    size_t mappedBytes_ = 0;  // 0: allocated with calloc
};

}  // namespace cinedng
