#include "vds/verifier.h"

#include <cstdlib>
#include <limits>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "crypto/vds/service/log_sink.h"
#include "crypto/vds/service/service.h"
#include "ruk/exception.h"
#include "ruk/io.h"
#include "trust/trust_material.h"
#include "utils/file_utils.h"
#include "vds/file_name_binding.h"
#include "vds/verification_flags.h"

namespace integrity_check_tool::vds {
namespace {

namespace service = crypto::vds::service;

const char* VerifyingFile() {
    return "Verifying VDS signature of file %1% ...";
}
const char* SignatureOk() {
    return "VDS signature of file %1% is OK";
}
const char* SignatureNotOk() {
    return "VDS signature of file %1% is not OK";
}
const char* CantVerify() {
    return "Can't verify VDS signature of file %1%. Flags: %2%";
}
const char* CantGetFlags() {
    return "Can't get VDS verification flags";
}
const char* CantGetContentSize() {
    return "Can't get checked content size";
}
const char* CantCreateVerifier() {
    return "Can't create VDS verifier";
}
const char* CantCreateIo() {
    return "Can't create IO from file %1%";
}
const char* UsingCertificate() {
    return "Using certificate '%1%' ...";
}
const char* FindingPosition() {
    return "Finding signature position ...";
}
const char* SignaturePosition() {
    return "Signature position: %1%";
}
const char* ReadingCrlFromStorage() {
    return "Reading CRL from storage %1% ...";
}
const char* OpeningContainer() {
    return "Opening %1% container ...";
}
const char* CantOpenContainer() {
    return "Failed to open container %1% in storage";
}
const char* ContainerOpened() {
    return "Container %1% opened successfully";
}
const char* CantGetContainerSize() {
    return "Can't get size of container %1%";
}
const char* CrlTooLarge() {
    return "CRL is too large";
}
const char* CantReadCrl() {
    return "Can't read CRL from storage";
}
const char* CrlRead() {
    return "CRL has been read successfully from storage %1%";
}

constexpr const char* kCrlContainerName = "vdscrl.rdb";

// Throws the message with the framework result code attached.
#define VDS_THROW_WITH_RESULT(message, code) \
    ICT_THROW(Exception(message) << ruk::ResultCodeInfo(code))

// The service's lines go to the tracer at the detail level.
class TracerLogSink : public service::ILogSink {
public:
    explicit TracerLogSink(TracerPtr tracer) : tracer_(std::move(tracer)) {}
    bool IsEnabled() const override { return tracer_->IsEnabled(trace_level::Detail); }
    void Write(const std::string& line) override { tracer_->Write(trace_level::Detail, line); }

private:
    TracerPtr tracer_;
};

std::vector<std::uint8_t> RootCertificate(TrustedRoot root) {
    const auto index = static_cast<std::uint32_t>(root);
    if (index > 3) {
        std::abort();  // a programming error: there are four roots
    }
    return trust::GetRootCertificate(index);
}

}  // namespace

VdsSignatureVerifier::VdsSignatureVerifier(TracerPtr tracer,
                                           const std::vector<TrustedRoot>& trustedRoots,
                                           const boost::optional<boost::filesystem::path>& crlPath,
                                           bool bindFileName, const StorageOpener& openStorage)
    : tracer_(std::move(tracer)), bindFileName_(bindFileName) {
    for (const TrustedRoot root : trustedRoots) {
        std::vector<std::uint8_t> certificate = RootCertificate(root);
        tracer_->Trace(trace_level::Detail, UsingCertificate(), ToName(root));
        roots_.push_back(std::move(certificate));
    }
    if (!crlPath) {
        return;
    }
    boost::system::error_code error;
    if (boost::filesystem::is_directory(*crlPath, error)) {
        ReadCrlFromStorage(*crlPath, openStorage);
    } else {
        crl_ = ZeroedBuffer(ReadWholeFile(*crlPath));
    }
}

void VdsSignatureVerifier::ReadCrlFromStorage(const boost::filesystem::path& directory,
                                              const StorageOpener& openStorage) {
    tracer_->Trace(trace_level::Detail, ReadingCrlFromStorage(), directory.string());
    storage::IStoragePtr storage;
    RUK_CHECK(openStorage(directory, &storage));
    tracer_->Trace(trace_level::Detail, OpeningContainer(), kCrlContainerName);
    storage::IContainerPtr container;
    ruk::result_t code = storage->OpenContainer(kCrlContainerName, &container);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(MessageFormat(CantOpenContainer(), kCrlContainerName), code);
    }
    tracer_->Trace(trace_level::Detail, ContainerOpened(), kCrlContainerName);
    std::uint64_t size = 0;
    code = container->GetSize(&size);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(MessageFormat(CantGetContainerSize(), kCrlContainerName), code);
    }
    if (size > std::numeric_limits<std::uint32_t>::max() ||
        size > std::numeric_limits<std::size_t>::max()) {
        ICT_THROW(Exception(CrlTooLarge()));
    }
    ZeroedBuffer buffer(static_cast<std::size_t>(size));
    std::size_t read = 0;
    code = container->Read(buffer.Data(), buffer.Size(), &read);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(CantReadCrl(), code);
    }
    if (read < buffer.Size()) {
        ICT_THROW(Exception(CantReadCrl()));
    }
    crl_ = std::move(buffer);
    tracer_->Trace(trace_level::Detail, CrlRead(), directory.string());
}

std::string VdsSignatureVerifier::GetName() const {
    return "VdsSignatureVerifier";
}

void VdsSignatureVerifier::Verify(const boost::filesystem::path& path,
                                  std::vector<std::uint8_t>* content) const {
    tracer_->Trace(trace_level::Detail, VerifyingFile(), path.string());
    ruk::intrusive_ptr<ruk::IIO> io;
    ruk::result_t code = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(MessageFormat(CantCreateIo(), path.string()), code);
    }

    const service::ScopedLogSink sink(std::make_shared<TracerLogSink>(tracer_));
    std::vector<service::ByteRange> roots;
    for (const auto& root : roots_) {
        roots.push_back({root.data(), root.size()});
    }
    service::IVdsSignatureVerifierPtr verifier;
    code = service::VdsCreateVerifierWithOptionalCrls(roots, {}, {crl_.Data(), crl_.Size()},
                                                      &verifier);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(CantCreateVerifier(), code);
    }

    const std::vector<std::uint8_t> purpose = trust::GetPurposeOid();
    const service::ByteRange purposeRange{purpose.data(), purpose.size()};
    service::IVdsVerificationResultPtr result;
    if (bindFileName_) {
        const std::vector<std::uint8_t> name = FileNameBindingContent(path);
        code = verifier->VerifyObjectWithAdditionalContent(io.get(), {name.data(), name.size()},
                                                           purposeRange, &result);
    } else {
        code = verifier->VerifyObject(io.get(), purposeRange, &result);
    }

    if (code == ruk::result::Success) {
        tracer_->Trace(trace_level::Detail, SignatureOk(), path.string());
        tracer_->Trace(trace_level::Detail, FindingPosition());
        std::uint64_t checkedSize = 0;
        const ruk::result_t sizeCode =
            result ? result->GetCheckedContentSize(&checkedSize) : ruk::result::InvalidArgument;
        if (ruk::Failed(sizeCode)) {
            VDS_THROW_WITH_RESULT(CantGetContentSize(), sizeCode);
        }
        tracer_->Trace(trace_level::Detail, SignaturePosition(), checkedSize);
        if (content != nullptr) {
            if (checkedSize > std::numeric_limits<std::size_t>::max()) {
                RUK_THROW_RESULT(ruk::result::OutOfMemory);
            }
            content->assign(static_cast<std::size_t>(checkedSize), 0);
            std::size_t read = 0;
            RUK_CHECK(io->Seek(0, ruk::SeekOrigin::Begin, nullptr));
            RUK_CHECK(ruk::ReadFully(*io, content->data(), content->size(), &read));
            if (read != content->size()) {
                RUK_THROW_RESULT(ruk::result::EndOfStream);
            }
        }
        return;
    }

    tracer_->Trace(trace_level::Detail, SignatureNotOk(), path.string());
    std::uint32_t flags = 0;
    if (result) {
        const ruk::result_t flagsCode = result->GetVerificationFlags(&flags);
        if (ruk::Failed(flagsCode)) {
            VDS_THROW_WITH_RESULT(CantGetFlags(), flagsCode);
        }
    }
    // The service never answers with a positive code; one is still taken as
    // acceptance, without content.
    if (code > 0) {
        return;
    }
    VDS_THROW_WITH_RESULT(MessageFormat(CantVerify(), path.string(),
                                        result ? VerificationFlagsToText(flags) : "None"),
                          code);
}

}  // namespace integrity_check_tool::vds
