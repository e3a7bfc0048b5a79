#include "vds/signing.h"

#include <fstream>

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <boost/filesystem/operations.hpp>

#include "vds/signature_format.h"
#include "vds/vds_core.h"

namespace vds::signing {
namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kCopyBlock = 1024 * 1024;

std::string OpenSslReason() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) {
        return "unknown OpenSSL error";
    }
    char text[256];
    ERR_error_string_n(code, text, sizeof(text));
    return text;
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

void CopyPrefix(const fs::path& from, const fs::path& to, std::uint64_t size) {
    std::ifstream input(from.string(), std::ios::binary);
    std::ofstream output(to.string(), std::ios::binary | std::ios::trunc);
    std::vector<char> block(kCopyBlock);
    for (std::uint64_t copied = 0; copied < size;) {
        const auto chunk =
            static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, size - copied));
        input.read(block.data(), static_cast<std::streamsize>(chunk));
        output.write(block.data(), static_cast<std::streamsize>(chunk));
        if (!input || !output) {
            throw Error("Can't copy " + from.string() + " to " + to.string());
        }
        copied += chunk;
    }
    output.close();
    if (!output) {
        throw Error("Can't write " + to.string());
    }
}

void Append(const fs::path& file, const std::uint8_t* bytes, std::size_t size) {
    std::ofstream output(file.string(), std::ios::binary | std::ios::app);
    output.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    output.close();
    if (!output) {
        throw Error("Can't write " + file.string());
    }
}

// Removes the temporary file unless it was moved into place.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path& beside)
        : path_(beside.parent_path() /
                fs::unique_path("." + beside.filename().string() + ".%%%%%%%%.tmp")) {}
    ~TemporaryFile() {
        if (!committed_) {
            boost::system::error_code ignored;
            fs::remove(path_, ignored);
        }
    }
    const fs::path& Path() const { return path_; }
    void MoveTo(const fs::path& target) {
        boost::system::error_code error;
        fs::permissions(path_, fs::status(target, error).permissions(), error);
        fs::rename(path_, target, error);
        if (error) {
            throw Error("Can't replace " + target.string() + ": " + error.message());
        }
        committed_ = true;
    }

private:
    fs::path path_;
    bool committed_ = false;
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

std::vector<std::uint8_t> SignContent(BIO* content, const SignerMaterial& material,
                                      const SignOptions& options) {
    LoadEngine();
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> extra(
        sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); });
    for (const auto& certificate : material.chain) {
        sk_X509_push(extra.get(), certificate.get());
    }
    const unsigned int flags = CMS_PARTIAL | CMS_DETACHED | CMS_BINARY;
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        CMS_sign(nullptr, nullptr, extra.get(), nullptr, flags), CMS_ContentInfo_free);
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
    if (CMS_final(cms.get(), content, nullptr, CMS_BINARY | CMS_DETACHED) != 1) {
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

void SignFile(const fs::path& file, const SignerMaterial& material, const SignOptions& options) {
    boost::system::error_code error;
    if (!fs::is_regular_file(file, error)) {
        throw Error("File " + file.string() + " is not a regular file");
    }
    const std::uint64_t size = fs::file_size(file);
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
    TemporaryFile temporary(file);
    CopyPrefix(file, temporary.Path(), contentSize);
    std::vector<std::uint8_t> signature;
    {
        auto content = OpenBio(temporary.Path());
        signature = SignContent(content.get(), material, options);
    }
    if (signature.size() > format::kMaxSignatureSize) {
        throw Error("The signature of " + file.string() + " is too large");
    }
    const auto trailer = format::MakeTrailer(static_cast<std::uint32_t>(signature.size()));
    Append(temporary.Path(), signature.data(), signature.size());
    Append(temporary.Path(), trailer.data(), trailer.size());
    temporary.MoveTo(file);
}

}  // namespace vds::signing
