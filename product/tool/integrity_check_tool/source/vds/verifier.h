#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "common/enumerations.h"
#include "ruk/result.h"
#include "signature/i_signature_verifier.h"
#include "storage/storage.h"
#include "tracer.h"
#include "vds/zeroed_buffer.h"

namespace integrity_check_tool::vds {

// Checks VDS signatures against the selected compiled-in roots and, when a
// CRL path is given, the revocation container read from that file or from
// the "vdscrl.rdb" container of that storage directory. Roots and CRL are
// read once, in the constructor; every failure is thrown.
class VdsSignatureVerifier : public ISignatureVerifier {
public:
    using StorageOpener =
        std::function<ruk::result_t(const boost::filesystem::path&, storage::IStoragePtr*)>;

    VdsSignatureVerifier(TracerPtr tracer, const std::vector<TrustedRoot>& trustedRoots,
                         const boost::optional<boost::filesystem::path>& crlPath, bool bindFileName,
                         const StorageOpener& openStorage = storage::OpenDirectoryStorage);

    std::string GetName() const override;
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* content) const override;

    // The revocation container as read (empty without a CRL path).
    const ZeroedBuffer& GetCrlContainer() const { return crl_; }

private:
    void ReadCrlFromStorage(const boost::filesystem::path& directory,
                            const StorageOpener& openStorage);

    TracerPtr tracer_;
    std::vector<std::vector<std::uint8_t>> roots_;
    ZeroedBuffer crl_;
    bool bindFileName_;
};

}  // namespace integrity_check_tool::vds
