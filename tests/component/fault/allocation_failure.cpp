#include "allocation_failure.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace fault_test {
namespace {

std::atomic<long long> countdown{-1};
std::atomic<bool> failed{false};

void* Allocate(std::size_t size) {
    if (countdown.load() >= 0 && countdown.fetch_sub(1) == 0) {
        failed = true;
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* AllocateOrNull(std::size_t size) noexcept {
    try {
        return Allocate(size);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

void FailAllocation(std::size_t index) {
    failed = false;
    countdown = static_cast<long long>(index);
}

void Disarm() {
    countdown = -1;
}

bool AllocationFailed() {
    return failed;
}

}  // namespace fault_test

void* operator new(std::size_t size) {
    return fault_test::Allocate(size);
}
void* operator new[](std::size_t size) {
    return fault_test::Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return fault_test::AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return fault_test::AllocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
