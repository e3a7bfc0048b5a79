#include "vds/verifier.h"

#include <cstdlib>
#include <limits>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/signed_file_name.h"
#include "common/trace_level.h"
#include "crypto/vds/service/log_sink.h"
#include "crypto/vds/service/service.h"
#include "ruk/exception.h"
#include "ruk/io.h"
#include "trust/trust_material.h"
#include "utils/file_utils.h"
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
const char* CrlEmpty() {
    return "Revocation list %1% is empty";
}
const char* CrlUnusable() {
    return "Revocation list %1% can't be used: %2%";
}
const char* NotAContainer() {
    return "it is not a DER-encoded revocation container";
}
const char* RootNeedsCrl() {
    return "Trusted root %1% requires a revocation list, but none was given (--crl)";
}
const char* RevocationNotChecked() {
    return "Revocation of the signer of %1% was not checked: no revocation list";
}
const char* WhyRefused() {
    return "VDS signature of file %1% failed the checks: %2%";
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

std::uint32_t RootIndex(TrustedRoot root) {
    const auto index = static_cast<std::uint32_t>(root);
    if (index > 3) {
        std::abort();  // a programming error: there are four roots
    }
    return index;
}

// One limit for a CRL from a file and from storage.
void CheckCrlSize(std::uint64_t size) {
    if (size > std::numeric_limits<std::uint32_t>::max() ||
        size > std::numeric_limits<std::size_t>::max()) {
        ICT_THROW(Exception(CrlTooLarge()));
    }
}

// A revocation container is one DER SEQUENCE filling all its bytes. Checked
// before the service copies and parses it, so that a large file of anything
// else costs nothing.
bool IsOneDerSequence(const std::uint8_t* bytes, std::size_t size) {
    if (size < 2 || bytes[0] != 0x30) {
        return false;
    }
    std::uint64_t length = bytes[1];
    std::size_t header = 2;
    if ((bytes[1] & 0x80) != 0) {
        const std::size_t count = bytes[1] & 0x7Fu;
        if (count == 0 || count > 8 || size < 2 + count) {
            return false;
        }
        length = 0;
        for (std::size_t index = 0; index < count; ++index) {
            length = (length << 8) | bytes[2 + index];
        }
        header += count;
    }
    return length == size - header;
}

std::vector<service::ByteRange> Ranges(const std::vector<std::vector<std::uint8_t>>& blobs) {
    std::vector<service::ByteRange> ranges;
    for (const auto& blob : blobs) {
        ranges.push_back({blob.data(), blob.size()});
    }
    return ranges;
}

}  // namespace

VdsSignatureVerifier::VdsSignatureVerifier(TracerPtr tracer,
                                           const std::vector<TrustedRoot>& trustedRoots,
                                           const boost::optional<boost::filesystem::path>& crlPath,
                                           bool bindFileName, Environment environment)
    : tracer_(std::move(tracer)),
      output_(environment.output ? std::move(environment.output)
                                 : std::make_shared<ConsoleOutput>(false)),
      bindFileName_(bindFileName) {
    if (!environment.requiresRevocationList) {
        environment.requiresRevocationList = [](TrustedRoot root) {
            return trust::RootRequiresRevocationList(RootIndex(root));
        };
    }
    for (const TrustedRoot root : trustedRoots) {
        std::vector<std::uint8_t> certificate = trust::GetRootCertificate(RootIndex(root));
        tracer_->Trace(trace_level::Detail, UsingCertificate(), ToName(root));
        // A revocation list that is given must cover every selected root;
        // without one only the roots that demand it are refused.
        if (crlPath) {
            requiredRoots_.push_back(std::move(certificate));
        } else if (environment.requiresRevocationList(root)) {
            ICT_THROW(Exception(MessageFormat(RootNeedsCrl(), ToName(root))));
        } else {
            optionalRoots_.push_back(std::move(certificate));
        }
    }
    if (!crlPath) {
        return;
    }
    boost::system::error_code error;
    if (boost::filesystem::is_directory(*crlPath, error)) {
        ReadCrlFromStorage(*crlPath, environment.openStorage);
    } else {
        ReadCrlFromFile(*crlPath);
    }
    CheckCrlIsUsable(*crlPath);
}

void VdsSignatureVerifier::ReadCrlFromFile(const boost::filesystem::path& file) {
    boost::system::error_code error;
    const std::uintmax_t size = boost::filesystem::file_size(file, error);
    if (!error) {
        CheckCrlSize(size);
    }
    const Bytes bytes = ReadWholeFile(file);
    CheckCrlSize(bytes.size());  // it may have grown since
    crl_ = ZeroedBuffer(bytes);
}

void VdsSignatureVerifier::CheckCrlIsUsable(const boost::filesystem::path& path) const {
    if (crl_.Size() == 0) {
        ICT_THROW(Exception(MessageFormat(CrlEmpty(), path.string())));
    }
    if (!IsOneDerSequence(crl_.Data(), crl_.Size())) {
        VDS_THROW_WITH_RESULT(MessageFormat(CrlUnusable(), path.string(), NotAContainer()),
                              ruk::result::InvalidFormat);
    }
    // The service decides whether the databases fit the roots; asked once
    // here, a list it cannot use fails the run before any file.
    const service::ScopedLogSink sink(std::make_shared<TracerLogSink>(tracer_));
    service::IVdsSignatureVerifierPtr verifier;
    const ruk::result_t code = CreateServiceVerifier(&verifier);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(MessageFormat(CrlUnusable(), path.string(), ruk::GetResultText(code)),
                              code);
    }
}

ruk::result_t VdsSignatureVerifier::CreateServiceVerifier(
    service::IVdsSignatureVerifierPtr* verifier) const {
    return service::VdsCreateVerifierWithOptionalCrls(
        Ranges(requiredRoots_), Ranges(optionalRoots_), {crl_.Data(), crl_.Size()}, verifier);
}

void VdsSignatureVerifier::Report(unsigned level, const std::string& line) const {
    output_->Write(ConsoleOutput::Error, line);
    // On the console the line is already shown; the log file gets it too.
    if (tracer_->WritesToFile()) {
        tracer_->Write(level, line);
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
    CheckCrlSize(size);
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
    service::IVdsSignatureVerifierPtr verifier;
    code = CreateServiceVerifier(&verifier);
    if (ruk::Failed(code)) {
        VDS_THROW_WITH_RESULT(CantCreateVerifier(), code);
    }

    const std::vector<std::uint8_t> purpose = trust::GetPurposeOid();
    const service::ByteRange purposeRange{purpose.data(), purpose.size()};
    service::IVdsVerificationResultPtr result;
    if (bindFileName_) {
        const std::vector<std::uint8_t> name = SignedFileNameBytes(path);
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
        VdsVerificationFlags flags = 0;
        if (ruk::Succeeded(result->GetVerificationFlags(&flags)) &&
            (flags & vdsFlagRevocationCheckSkipped) != 0) {
            Report(trace_level::Warning, MessageFormat(RevocationNotChecked(), path.string()));
        }
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
    if (result) {
        // The literal line below leaves out what the service alone names
        // ("Unsigned", "UntrustedRoot"): say why beside it.
        Report(trace_level::Error,
               MessageFormat(WhyRefused(), path.string(), service::VerificationFlagsText(flags)));
    }
    VDS_THROW_WITH_RESULT(MessageFormat(CantVerify(), path.string(),
                                        result ? VerificationFlagsToText(flags) : "None"),
                          code);
}

}  // namespace integrity_check_tool::vds
