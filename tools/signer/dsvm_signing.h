#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

#include "dsvm/dsvm.h"

namespace integrity_check_tool::signer {

// Appends DSVM2 (GOST 2012 sign-in-object) signatures with one private key.
// Holds the library initialised for its lifetime.
class DsvmSigner {
public:
    // Reads the PEM private key; throws Exception naming the key file and why.
    explicit DsvmSigner(const boost::filesystem::path& keyFile);
    ~DsvmSigner();
    DsvmSigner(const DsvmSigner&) = delete;
    DsvmSigner& operator=(const DsvmSigner&) = delete;

    // Signs `file` in place, atomically. A file that is already signed is
    // refused unless `replace`, in which case its old signature is dropped
    // first. Throws Exception naming the file and the reason.
    void Sign(const boost::filesystem::path& file, bool replace) const;

private:
    DsvmParams* keys_ = nullptr;
    DsvmHandle* handle_ = nullptr;
};

}  // namespace integrity_check_tool::signer
