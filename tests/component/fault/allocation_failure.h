#pragma once

#include <cstddef>

// Makes one chosen C++ allocation of this program throw std::bad_alloc, so
// that a test can walk a failure through every allocation of an operation.
namespace fault_test {

// The `index`-th allocation from now (0: the next one) throws; every other
// allocation succeeds. Disarm() stops it.
void FailAllocation(std::size_t index);
void Disarm();
// Whether the armed allocation has been reached (and thrown).
bool AllocationFailed();

// Calls `operation` with the first, second, ... allocation failing until it
// runs through without reaching the armed one; returns how many runs failed.
template <typename Operation>
std::size_t FailEachAllocation(Operation operation) {
    for (std::size_t index = 0;; ++index) {
        FailAllocation(index);
        try {
            operation();
        } catch (...) {
        }
        const bool failed = AllocationFailed();
        Disarm();
        if (!failed) {
            return index;
        }
    }
}

}  // namespace fault_test
