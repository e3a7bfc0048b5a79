#include "vds/signing.h"

#include <cstdint>
#include <fstream>

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <boost/filesystem/operations.hpp>

#include "openssl_support/error_text.h"
#include "ruk/file_replacement.h"
#include "ruk/io.h"
#include "vds/authenticode_format.h"
#include "vds/der.h"
#include "vds/pe_format.h"
#include "vds/signature_format.h"
#include "vds/vds_core.h"

namespace vds::signing {
namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kCopyBlock = 1024 * 1024;
constexpr std::size_t kLargestProgram = UINT32_MAX;

std::string OpenSslReason() {
    return openssl_support::TakeErrorText("unknown OpenSSL error");
}

void LoadEngine() {
    if (VdsInitializeLibrary() != vdsOk) {
        throw Error("Can't load the OpenSSL \"gost\" engine");
    }
}

std::unique_ptr<BIO, decltype(&BIO_free)> OpenBio(const fs::path& path) {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_file(path.string().c_str(), "rb"),
                                                  BIO_free);
    if (!bio) {
        throw Error("Can't open " + path.string() + ": " + OpenSslReason());
    }
    return bio;
}

std::vector<std::shared_ptr<X509>> ReadCertificates(const fs::path& path) {
    auto bio = OpenBio(path);
    std::vector<std::shared_ptr<X509>> certificates;
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) {
        certificates.emplace_back(certificate, X509_free);
    }
    ERR_clear_error();  // the end of the file reads as an error
    if (certificates.empty()) {
        throw Error("No PEM certificate in " + path.string());
    }
    return certificates;
}

const EVP_MD* DigestFor(EVP_PKEY* key) {
    switch (EVP_PKEY_get_base_id(key)) {
        case NID_id_GostR3410_2012_256:
            return EVP_get_digestbynid(NID_id_GostR3411_2012_256);
        case NID_id_GostR3410_2012_512:
            return EVP_get_digestbynid(NID_id_GostR3411_2012_512);
        default:
            return EVP_sha256();
    }
}

std::vector<std::uint8_t> Digest(const EVP_MD* algorithm, const std::vector<std::uint8_t>& data) {
    std::vector<std::uint8_t> digest(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest.data(), &length, algorithm, nullptr) != 1) {
        throw Error("Can't compute a digest: " + OpenSslReason());
    }
    digest.resize(length);
    return digest;
}

format::TrailerStatus ReadTrailer(const fs::path& file, std::uint64_t size,
                                  format::SignatureLocation* location) {
    if (size < format::kTrailerSize) {
        return format::TrailerStatus::Absent;
    }
    std::ifstream stream(file.string(), std::ios::binary);
    std::uint8_t trailer[format::kTrailerSize];
    stream.seekg(static_cast<std::streamoff>(size - format::kTrailerSize));
    stream.read(reinterpret_cast<char*>(trailer), sizeof(trailer));
    if (!stream) {
        throw Error("Can't read " + file.string());
    }
    return format::ParseTrailer(trailer, size, location);
}

// The file's new content, which takes its place whole or not at all, with
// the file's permissions.
class Replacement {
public:
    explicit Replacement(const fs::path& target) : target_(target) {
        const ruk::result_t created = file_.Create(target);
        if (ruk::Failed(created)) {
            throw Error("Can't write " + target.string() + ": " + ruk::GetResultText(created));
        }
    }

    void CopyPrefix(std::uint64_t size) {
        std::ifstream input(target_.string(), std::ios::binary);
        std::vector<char> block(kCopyBlock);
        for (std::uint64_t copied = 0; copied < size;) {
            const auto chunk =
                static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, size - copied));
            input.read(block.data(), static_cast<std::streamsize>(chunk));
            std::size_t written = 0;
            if (!input || ruk::Failed(file_.Stream().Write(block.data(), chunk, &written))) {
                throw Error("Can't copy " + target_.string() + " to " + Path().string());
            }
            copied += chunk;
        }
    }

    void Append(const std::uint8_t* bytes, std::size_t size) {
        std::size_t written = 0;
        if (ruk::Failed(file_.Stream().Write(bytes, size, &written))) {
            throw Error("Can't write " + Path().string());
        }
    }

    const fs::path& Path() const { return file_.TemporaryPath(); }

    void Commit() {
        if (ruk::Failed(file_.Close())) {
            throw Error("Can't write " + Path().string());
        }
        boost::system::error_code error;
        fs::permissions(Path(), fs::status(target_, error).permissions(), error);
        const ruk::result_t renamed = file_.Commit();
        if (ruk::Failed(renamed)) {
            throw Error("Can't replace " + target_.string() + ": " + ruk::GetResultText(renamed));
        }
    }

private:
    fs::path target_;
    ruk::FileReplacement file_;
};

}  // namespace

SignerMaterial LoadSignerMaterial(const fs::path& certificate, const fs::path& key,
                                  const boost::optional<fs::path>& chain) {
    LoadEngine();
    SignerMaterial material;
    material.certificate = ReadCertificates(certificate).front();
    auto keyBio = OpenBio(key);
    EVP_PKEY* privateKey = PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr);
    if (privateKey == nullptr) {
        throw Error("Can't read the private key " + key.string() + ": " + OpenSslReason());
    }
    material.key.reset(privateKey, EVP_PKEY_free);
    if (X509_check_private_key(material.certificate.get(), privateKey) != 1) {
        throw Error("The key " + key.string() + " does not belong to the certificate " +
                    certificate.string());
    }
    if (chain) {
        material.chain = ReadCertificates(*chain);
    }
    return material;
}

namespace {

// A CMS SignedData over `content`: detached over id-data, or, given a
// content type, holding the content under that type.
std::vector<std::uint8_t> SignCms(BIO* content, const SignerMaterial& material,
                                  const SignOptions& options, const char* contentType) {
    LoadEngine();
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> extra(
        sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); });
    for (const auto& certificate : material.chain) {
        sk_X509_push(extra.get(), certificate.get());
    }
    const unsigned int placement = contentType == nullptr ? CMS_DETACHED : 0u;
    const unsigned int flags = CMS_PARTIAL | CMS_BINARY | placement;
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        CMS_sign(nullptr, nullptr, extra.get(), nullptr, flags), CMS_ContentInfo_free);
    if (cms && contentType != nullptr) {
        std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> type(OBJ_txt2obj(contentType, 1),
                                                                       ASN1_OBJECT_free);
        if (!type || CMS_set1_eContentType(cms.get(), type.get()) != 1) {
            throw Error("Can't set the content type: " + OpenSslReason());
        }
    }
    const EVP_MD* algorithm = DigestFor(material.key.get());
    CMS_SignerInfo* signer =
        cms ? CMS_add1_signer(cms.get(), material.certificate.get(), material.key.get(), algorithm,
                              CMS_BINARY | CMS_NOSMIMECAP)
            : nullptr;
    if (signer == nullptr) {
        throw Error("Can't prepare the signature: " + OpenSslReason());
    }
    if (options.additionalContent) {
        const auto digest = Digest(algorithm, *options.additionalContent);
        std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> oid(
            OBJ_txt2obj(format::kFileNameAttributeOid, 1), ASN1_OBJECT_free);
        if (!oid ||
            CMS_signed_add1_attr_by_OBJ(signer, oid.get(), V_ASN1_OCTET_STRING, digest.data(),
                                        static_cast<int>(digest.size())) != 1) {
            throw Error("Can't add the file-name attribute: " + OpenSslReason());
        }
    }
    if (CMS_final(cms.get(), content, nullptr, CMS_BINARY | placement) != 1) {
        throw Error("Can't sign: " + OpenSslReason());
    }
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &der);
    if (length <= 0) {
        throw Error("Can't encode the signature: " + OpenSslReason());
    }
    std::vector<std::uint8_t> bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

}  // namespace

std::vector<std::uint8_t> SignContent(BIO* content, const SignerMaterial& material,
                                      const SignOptions& options) {
    return SignCms(content, material, options, nullptr);
}

namespace {

void Store32(std::vector<std::uint8_t>& bytes, std::uint64_t offset, std::uint32_t value) {
    for (std::size_t index = 0; index < 4; ++index) {
        bytes[offset + index] = static_cast<std::uint8_t>(value >> (8 * index));
    }
}

// A program is signed only up to 4 GiB, which bounds what is read.
std::vector<std::uint8_t> ReadProgram(const fs::path& file) {
    ruk::intrusive_ptr<ruk::IIO> io;
    std::vector<std::uint8_t> bytes;
    if (ruk::Failed(ruk::OpenFileIO(file, ruk::OpenMode::Read, &io)) ||
        ruk::Failed(ruk::ReadWhole(*io, kLargestProgram, &bytes))) {
        throw Error("Can't read " + file.string());
    }
    return bytes;
}

// Whether the file is a program, reading only its headers.
format::PeStatus ParseProgram(const fs::path& file, std::uint64_t size, format::PeLayout* layout) {
    std::ifstream stream(file.string(), std::ios::binary);
    format::PeStatus status = format::PeStatus::NotPe;
    const VdsResult result = format::ParsePe(
        [&stream](std::uint64_t offset, void* buffer, std::size_t count) {
            stream.seekg(static_cast<std::streamoff>(offset));
            stream.read(static_cast<char*>(buffer), static_cast<std::streamsize>(count));
            return stream ? vdsOk : vdsErrCallbackRead;
        },
        size, &status, layout);
    if (result != vdsOk) {
        throw Error("Can't read " + file.string());
    }
    return status;
}

// The Authenticode signature of a program goes into its certificate table:
// the image is padded to 8 bytes, digested as the table's readers digest it,
// and the SignedData over its SpcIndirectDataContent becomes the one
// WIN_CERTIFICATE; the directory entry and the checksum are set to match.
std::vector<std::uint8_t> SignProgram(const fs::path& file, std::vector<std::uint8_t> bytes,
                                      format::PeLayout layout, const SignerMaterial& material,
                                      const SignOptions& options) {
    if (layout.securityEntryOffset == 0) {
        throw Error("Program " + file.string() + " has no certificate-table directory entry");
    }
    if (layout.tableSize != 0) {
        if (options.nest) {
            throw Error("Program " + file.string() +
                        " is already signed; nested program signatures are not made here");
        }
        if (!options.replace) {
            throw Error("File " + file.string() + " is already signed (use --replace)");
        }
        bytes.resize(layout.tableOffset);
    }
    bytes.resize((bytes.size() + 7) / 8 * 8, 0);
    layout.tableOffset = 0;
    layout.tableSize = 0;
    const EVP_MD* algorithm = DigestFor(material.key.get());
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) {
        throw Error("Can't compute a digest: " + OpenSslReason());
    }
    for (const auto& range : format::ImageDigestRanges(layout, bytes.size())) {
        EVP_DigestUpdate(context.get(), bytes.data() + range.offset, range.size);
    }
    format::IndirectDataDigest digest;
    digest.digest.resize(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest.digest.data(), &length) != 1) {
        throw Error("Can't compute a digest: " + OpenSslReason());
    }
    digest.digest.resize(length);
    char dotted[80] = "";
    OBJ_obj2txt(dotted, sizeof(dotted), OBJ_nid2obj(EVP_MD_get_type(algorithm)), 1);
    digest.algorithm = format::EncodeOid(dotted);
    if (digest.algorithm.empty()) {
        throw Error("Can't encode the digest algorithm: " + OpenSslReason());
    }
    const std::vector<std::uint8_t> indirect = format::MakeIndirectData(digest);
    // The signed content is the SpcIndirectDataContent's octets: what the
    // messageDigest of Authenticode covers.
    std::unique_ptr<BIO, decltype(&BIO_free)> content(
        BIO_new_mem_buf(indirect.data(), static_cast<int>(indirect.size())), BIO_free);
    std::vector<std::uint8_t> signature =
        SignCms(content.get(), material, options, format::kSpcIndirectDataOid);
    if (!format::CmsToAuthenticode(&signature)) {
        throw Error("Can't encode the signature of " + file.string());
    }
    const std::uint64_t entrySize =
        (format::kWinCertificateHeaderSize + signature.size() + 7) / 8 * 8;
    if (bytes.size() + entrySize > UINT32_MAX) {
        throw Error("Program " + file.string() + " is too large to be signed");
    }
    const std::uint64_t tableOffset = bytes.size();
    bytes.resize(tableOffset + entrySize, 0);
    // The entry's length counts its padding, as other signing tools write it.
    Store32(bytes, tableOffset, static_cast<std::uint32_t>(entrySize));
    bytes[tableOffset + 4] = static_cast<std::uint8_t>(format::kWinCertificateRevision);
    bytes[tableOffset + 5] = static_cast<std::uint8_t>(format::kWinCertificateRevision >> 8);
    bytes[tableOffset + 6] = static_cast<std::uint8_t>(format::kWinCertificateTypePkcsSignedData);
    bytes[tableOffset + 7] = 0;
    std::copy(signature.begin(), signature.end(),
              bytes.begin() +
                  static_cast<std::ptrdiff_t>(tableOffset + format::kWinCertificateHeaderSize));
    Store32(bytes, layout.securityEntryOffset, static_cast<std::uint32_t>(tableOffset));
    Store32(bytes, layout.securityEntryOffset + 4, static_cast<std::uint32_t>(entrySize));
    Store32(bytes, layout.checksumOffset,
            format::PeChecksum(bytes.data(), bytes.size(), layout.checksumOffset));
    return bytes;
}

}  // namespace

void SignFile(const fs::path& file, const SignerMaterial& material, const SignOptions& options) {
    boost::system::error_code error;
    if (!fs::is_regular_file(file, error)) {
        throw Error("File " + file.string() + " is not a regular file");
    }
    const std::uint64_t size = fs::file_size(file);
    format::PeLayout layout;
    const format::PeStatus program = ParseProgram(file, size, &layout);
    if (program != format::PeStatus::NotPe) {
        if (program == format::PeStatus::Malformed || size > UINT32_MAX) {
            throw Error("Program " + file.string() +
                        " has damaged headers or a damaged certificate table");
        }
        const std::vector<std::uint8_t> bytes =
            SignProgram(file, ReadProgram(file), std::move(layout), material, options);
        Replacement replacement(file);
        replacement.Append(bytes.data(), bytes.size());
        replacement.Commit();
        return;
    }
    format::SignatureLocation location;
    const auto status = ReadTrailer(file, size, &location);
    std::uint64_t contentSize = size;
    if (status != format::TrailerStatus::Absent && !options.nest) {
        if (!options.replace) {
            throw Error("File " + file.string() + " is already signed (use --replace)");
        }
        if (status == format::TrailerStatus::Malformed) {
            throw Error("File " + file.string() + " ends with a damaged signature trailer");
        }
        contentSize = location.contentSize;
    }
    Replacement replacement(file);
    replacement.CopyPrefix(contentSize);
    std::vector<std::uint8_t> signature;
    {
        // Signed from the copy: the signature covers exactly the bytes it will follow.
        auto content = OpenBio(replacement.Path());
        signature = SignContent(content.get(), material, options);
    }
    if (signature.size() > format::kMaxSignatureSize) {
        throw Error("The signature of " + file.string() + " is too large");
    }
    const auto trailer = format::MakeTrailer(static_cast<std::uint32_t>(signature.size()));
    replacement.Append(signature.data(), signature.size());
    replacement.Append(trailer.data(), trailer.size());
    replacement.Commit();
}

}  // namespace vds::signing
