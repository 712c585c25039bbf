// Host buffers that end exactly where an inaccessible page begins, so any
// read or write past them faults.
#pragma once
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

class GuardedBlock {
  public:
    explicit GuardedBlock(size_t bytes) {
        const size_t page = (size_t)sysconf(_SC_PAGESIZE);
        len_ = (bytes + page - 1) / page * page + page;
        base_ = (uint8_t *)mmap(nullptr, len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base_ == MAP_FAILED) base_ = nullptr, len_ = 0;
        else mprotect(base_ + len_ - page, page, PROT_NONE);
        data_ = base_ ? base_ + len_ - page - bytes : nullptr;
    }
    ~GuardedBlock() {
        if (base_) munmap(base_, len_);
    }
    GuardedBlock(const GuardedBlock &) = delete;
    GuardedBlock &operator=(const GuardedBlock &) = delete;
    uint8_t *data() const { return data_; }

  private:
    uint8_t *base_, *data_;
    size_t len_;
};
