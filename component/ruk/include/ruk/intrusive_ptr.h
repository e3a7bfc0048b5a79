#pragma once

#include <atomic>
#include <utility>

#include <boost/intrusive_ptr.hpp>

namespace ruk {

// Base of every reference-counted framework object. The count starts at zero;
// the first intrusive_ptr takes ownership.
class RefCounted {
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

    long UseCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

protected:
    virtual ~RefCounted() = default;

private:
    friend void intrusive_ptr_add_ref(const RefCounted* object) noexcept {
        object->refs_.fetch_add(1, std::memory_order_relaxed);
    }
    friend void intrusive_ptr_release(const RefCounted* object) noexcept {
        if (object->refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete object;
        }
    }

    mutable std::atomic<long> refs_{0};
};

template <typename T>
using intrusive_ptr = boost::intrusive_ptr<T>;

template <typename T, typename... Args>
intrusive_ptr<T> MakeIntrusive(Args&&... args) {
    return intrusive_ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace ruk
