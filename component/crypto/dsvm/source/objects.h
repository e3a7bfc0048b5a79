#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/optional.hpp>

#include "crypto.h"
#include "dsvm/dsvm.h"

// The library's opaque objects behind the C handles.

struct DsvmHash {
    dsvm::detail::Streebog256 hash;
};

struct DsvmObjectEntry {
    DsvmObjectReader reader{};
    std::u16string name;
    boost::optional<dsvm::detail::Digest> hash;
    // DSVM_E_PROPERTY_NOT_FOUND until the object has been verified.
    DsvmResult result = DSVM_E_PROPERTY_NOT_FOUND;
};

struct DsvmParams {
    std::vector<dsvm::detail::Key> publicKeys;
    std::vector<dsvm::detail::Key> privateKeys;
    std::vector<DsvmObjectEntry> objects;
};

struct DsvmHandle {
    std::uint32_t gostVersion = DSVM_GOST_2012;
    bool prepared = false;
    std::vector<dsvm::detail::Key> registry;
};
