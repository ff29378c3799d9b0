#include "cinedng/cd_zeroedFloats.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {
// Below this size a plain zeroed allocation is as good.
constexpr size_t kMapThreshold = size_t(4) << 20;
constexpr size_t kHugePage = size_t(2) << 20;
}  // namespace

cd_zeroedFloats::cd_zeroedFloats(size_t n) : count_(n) {
    if (n > static_cast<size_t>(-1) / sizeof(float) / 4)
        throw cd_exception("cd_zeroedFloats - the buffer could not be allocated");
    const size_t bytes = (n == 0 ? 1 : n) * sizeof(float);
    if (bytes >= kMapThreshold) {
        // Map one huge page more than needed and keep a huge-page aligned part, so that the whole
        // buffer can be backed by huge pages.
        const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
        void* p = ::mmap(nullptr, rounded + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p != MAP_FAILED) {
            const uintptr_t begin = reinterpret_cast<uintptr_t>(p);
            const uintptr_t aligned = (begin + kHugePage - 1) / kHugePage * kHugePage;
            if (aligned > begin) ::munmap(p, aligned - begin);
            const uintptr_t tail = aligned + rounded;
            const uintptr_t end = begin + rounded + kHugePage;
            if (end > tail) ::munmap(reinterpret_cast<void*>(tail), end - tail);
#ifdef MADV_HUGEPAGE
            ::madvise(reinterpret_cast<void*>(aligned), rounded, MADV_HUGEPAGE);  // advice only
#endif
            data_ = reinterpret_cast<float*>(aligned);
            mappedBytes_ = rounded;
            return;
        }
    }
    data_ = static_cast<float*>(std::calloc(bytes / sizeof(float), sizeof(float)));
    if (data_ == nullptr) throw cd_exception("cd_zeroedFloats - the buffer could not be allocated");
}

cd_zeroedFloats::~cd_zeroedFloats() { release(); }

cd_zeroedFloats::cd_zeroedFloats(cd_zeroedFloats&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      count_(std::exchange(other.count_, 0)),
      mappedBytes_(std::exchange(other.mappedBytes_, 0)) {}

cd_zeroedFloats& cd_zeroedFloats::operator=(cd_zeroedFloats&& other) noexcept {
    if (this != &other) {
        release();
        data_ = std::exchange(other.data_, nullptr);
        count_ = std::exchange(other.count_, 0);
        mappedBytes_ = std::exchange(other.mappedBytes_, 0);
    }
    return *this;
}

void cd_zeroedFloats::release() {
    if (data_ == nullptr) return;
    if (mappedBytes_ != 0)
        ::munmap(data_, mappedBytes_);
    else
        std::free(data_);
    data_ = nullptr;
    count_ = 0;
    mappedBytes_ = 0;
}

}  // namespace cinedng
