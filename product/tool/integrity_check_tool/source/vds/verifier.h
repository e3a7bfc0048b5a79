#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "common/console_output.h"
#include "common/enumerations.h"
#include "crypto/vds/service/service.h"
#include "ruk/result.h"
#include "signature/i_signature_verifier.h"
#include "storage/storage.h"
#include "tracer.h"
#include "vds/zeroed_buffer.h"

namespace integrity_check_tool::vds {

using VdsStorageOpener =
    std::function<ruk::result_t(const boost::filesystem::path&, storage::IStoragePtr*)>;

// What the run provides to the VDS verifier besides the arguments; tests
// replace parts.
struct VdsVerifierEnvironment {
    VdsStorageOpener openStorage = storage::OpenDirectoryStorage;
    // "CrlMustExist" of a root; by default the trust set's policy.
    std::function<bool(TrustedRoot)> requiresRevocationList;
    // Where warning and error lines go; null: a writer of its own.
    ConsoleOutputPtr output;
};

// Checks VDS signatures against the selected compiled-in roots and, when a
// CRL path is given, the revocation container read from that file or from
// the "vdscrl.rdb" container of that storage directory. Roots and CRL are
// read once, in the constructor; every failure is thrown.
//
// Revocation is never off without a word: a CRL path that yields nothing
// or a container the service cannot use fails the construction, a root
// that requires a revocation list fails it when no CRL path is given, and
// a file accepted without a revocation check gets a warning line.
class VdsSignatureVerifier : public ISignatureVerifier {
public:
    using StorageOpener = VdsStorageOpener;

    using Environment = VdsVerifierEnvironment;

    VdsSignatureVerifier(TracerPtr tracer, const std::vector<TrustedRoot>& trustedRoots,
                         const boost::optional<boost::filesystem::path>& crlPath, bool bindFileName,
                         Environment environment = {});

    std::string GetName() const override;
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* content) const override;

private:
    void ReadCrlFromFile(const boost::filesystem::path& file);
    void ReadCrlFromStorage(const boost::filesystem::path& directory,
                            const StorageOpener& openStorage);
    void CheckCrlIsUsable(const boost::filesystem::path& path) const;
    ruk::result_t CreateServiceVerifier(
        crypto::vds::service::IVdsSignatureVerifierPtr* verifier) const;
    // A line the user must see: standard error always, the log file too.
    void Report(unsigned level, const std::string& line) const;

    TracerPtr tracer_;
    ConsoleOutputPtr output_;
    // Roots whose databases must be in the container, and roots whose
    // databases are used when present.
    std::vector<std::vector<std::uint8_t>> requiredRoots_;
    std::vector<std::vector<std::uint8_t>> optionalRoots_;
    ZeroedBuffer crl_;
    bool bindFileName_;
};

}  // namespace integrity_check_tool::vds
