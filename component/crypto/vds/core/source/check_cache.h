#pragma once

#include <functional>
#include <string>

namespace vds::core {

// Remembers the outcome of checks that depend on nothing but their input
// bytes (a root's signature over itself, a CRL's signature by its root).
// Verifiers are made for every object; this keeps them from repeating the
// same signature checks. `key` must hold every byte the check reads.
bool CachedCheck(const std::string& key, const std::function<bool()>& check);

}  // namespace vds::core
