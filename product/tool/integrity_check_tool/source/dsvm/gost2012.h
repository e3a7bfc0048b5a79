#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "tracer.h"

namespace integrity_check_tool::dsvm {

// GOST 2012 signatures through the DSVM2 library. The library is initialised
// for as long as the object lives; everything else is made per file.
class Gost2012 {
public:
    using Blob = std::vector<std::uint8_t>;

    // Throws dsvm::Exception "Can't initialize DSVM2 library".
    explicit Gost2012(TracerPtr tracer);
    ~Gost2012();
    Gost2012(const Gost2012&) = delete;
    Gost2012& operator=(const Gost2012&) = delete;

    // Verifies the file's sign-in-object signature against the two key blobs
    // and, given `content`, fills it with the bytes the signature covers.
    // Both blobs must be valid keys: `requireBothKeys` is always true here,
    // since a trust set with a missing key is a broken build.
    // Throws dsvm::Exception naming the failed step and the DSVM result.
    void VerifySignature(const boost::filesystem::path& path, const Blob& firstKey,
                         const Blob& secondKey, bool requireBothKeys,
                         std::vector<std::uint8_t>* content) const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace integrity_check_tool::dsvm
