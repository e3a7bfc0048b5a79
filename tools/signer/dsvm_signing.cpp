#include "dsvm_signing.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "common/exception.h"
#include "common/message_format.h"
#include "dsvm/io_object_reader.h"
#include "ruk/exception.h"
#include "ruk/io.h"
#include "utils/atomic_file.h"
#include "utils/file_utils.h"

namespace integrity_check_tool::signer {
namespace {

const char* CantInitialize() {
    return "Can't initialize DSVM2 library: %1%";
}
const char* CantLoadKey() {
    return "Can't load private key %1%: %2%";
}
const char* CantOpenFile() {
    return "Can't open file %1%. Reason: %2%";
}
const char* AlreadySigned() {
    return "File %1% is already signed; use --replace to sign it again";
}
const char* DamagedSignature() {
    return "File %1% ends in a damaged signature and can't be re-signed: %2%";
}
const char* CantSign() {
    return "Can't sign file %1%: %2%";
}
const char* CantCopy() {
    return "Can't copy the content of %1%. Reason: %2%";
}

constexpr std::size_t kCopyBlockSize = 1024 * 1024;

std::string ResultText(DsvmResult result) {
    const char* text = DsvmGetResultText(result);
    return text != nullptr ? text : "unknown DSVM result";
}

// Copies the first `size` bytes of `source` to `target`.
void CopyPrefix(ruk::IIO& source, std::uint64_t size, ruk::IIO& target) {
    std::uint64_t position = 0;
    RUK_CHECK(source.Seek(0, ruk::SeekOrigin::Begin, &position));
    std::vector<std::uint8_t> block(kCopyBlockSize);
    for (std::uint64_t left = size; left > 0;) {
        const auto chunk = static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
        std::size_t read = 0;
        RUK_CHECK(ruk::ReadFully(source, block.data(), chunk, &read));
        if (read != chunk) {
            RUK_THROW_RESULT(ruk::result::EndOfStream);
        }
        std::size_t written = 0;
        RUK_CHECK(target.Write(block.data(), chunk, &written));
        left -= chunk;
    }
}

}  // namespace

DsvmSigner::DsvmSigner(const boost::filesystem::path& keyFile) {
    const Bytes pem = ReadWholeFile(keyFile);
    const DsvmResult initialized = DsvmInitialize();
    if (initialized != DSVM_OK) {
        ICT_THROW(Exception(MessageFormat(CantInitialize(), ResultText(initialized))));
    }
    DsvmResult result = DsvmParamsCreate(&keys_);
    if (result == DSVM_OK) {
        result =
            DsvmParamsAddPrivateKey(keys_, reinterpret_cast<const char*>(pem.data()), pem.size());
    }
    if (result == DSVM_OK) {
        result = DsvmHandleCreate(DSVM_GOST_2012, &handle_);
    }
    if (result != DSVM_OK) {
        DsvmHandleDestroy(handle_);
        DsvmParamsDestroy(keys_);
        DsvmRelease();
        ICT_THROW(Exception(MessageFormat(CantLoadKey(), keyFile.string(), ResultText(result))));
    }
}

DsvmSigner::~DsvmSigner() {
    DsvmHandleDestroy(handle_);
    DsvmParamsDestroy(keys_);
    DsvmRelease();
}

void DsvmSigner::Sign(const boost::filesystem::path& file, bool replace) const {
    ruk::intrusive_ptr<ruk::IIO> io;
    ruk::result_t opened = ruk::OpenFileIO(file, ruk::OpenMode::Read, &io);
    std::unique_ptr<::dsvm::IoObjectReader> reader;
    if (ruk::Succeeded(opened)) {
        opened = ::dsvm::IoObjectReader::Create(io, &reader);
    }
    if (ruk::Failed(opened)) {
        ICT_THROW(
            Exception(MessageFormat(CantOpenFile(), file.string(), ruk::GetResultText(opened))));
    }

    std::uint64_t position = 0;
    const DsvmResult found = DsvmGetSignatureProperty(
        reader->Get(), DSVM_PROPERTY_SIGNATURE_POSITION, &position, sizeof(position));
    if (found == DSVM_OK) {
        if (!replace) {
            ICT_THROW(Exception(MessageFormat(AlreadySigned(), file.string())));
        }
        reader->Limit(position);
    } else if (found != DSVM_E_SIGNATURE_NOT_FOUND && found != DSVM_E_EMPTY_OBJECT) {
        ICT_THROW(Exception(MessageFormat(DamagedSignature(), file.string(), ResultText(found))));
    }

    std::vector<std::uint8_t> signature(DSVM_MAX_SIGNATURE_SIZE);
    std::size_t signatureSize = signature.size();
    const DsvmResult signedResult =
        DsvmSignObject(handle_, keys_, reader->Get(), signature.data(), &signatureSize);
    if (signedResult != DSVM_OK) {
        ICT_THROW(Exception(MessageFormat(CantSign(), file.string(), ResultText(signedResult))));
    }
    signature.resize(signatureSize);

    const std::uint64_t contentSize = reader->GetSize();
    WriteFileAtomically(file, [&](ruk::IIO& target) {
        try {
            CopyPrefix(*io, contentSize, target);
        } catch (...) {
            ICT_THROW(Exception(MessageFormat(CantCopy(), file.string(), CurrentExceptionText())));
        }
        std::size_t written = 0;
        RUK_CHECK(target.Write(signature.data(), signature.size(), &written));
        // The source must be closed before the temporary replaces it.
        reader.reset();
        io.reset();
    });
}

}  // namespace integrity_check_tool::signer
