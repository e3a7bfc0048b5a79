#include "embedded_signature.h"

#include <algorithm>
#include <deque>
#include <limits>

#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include "openssl_handles.h"
#include "signed_data_shape.h"
#include "text.h"
#include "vds/signature_format.h"

namespace vds::core {
namespace {

const ASN1_OBJECT* FileNameAttribute() {
    static const OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(format::kFileNameAttributeOid, 1));
    return object.get();
}

std::string AlgorithmName(const X509_ALGOR* algorithm) {
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    const int nid = OBJ_obj2nid(object);
    if (nid != NID_undef) {
        return OBJ_nid2sn(nid);
    }
    char text[128] = "";
    OBJ_obj2txt(text, sizeof(text), object, 1);
    return text;
}

// Digests of the covered content, computed once per algorithm.
class DigestCache {
public:
    DigestCache(const ObjectReader& reader, std::uint64_t size) : reader_(reader), size_(size) {}

    VdsResult Get(const EVP_MD* algorithm, const std::vector<std::uint8_t>** digest) {
        for (const auto& entry : entries_) {
            if (entry.algorithm == algorithm) {
                *digest = &entry.value;
                return vdsOk;
            }
        }
        std::vector<std::vector<std::uint8_t>> values;
        const VdsResult result = reader_.Digest(size_, {algorithm}, &values);
        if (result != vdsOk) {
            return result;
        }
        entries_.push_back({algorithm, EVP_MD_get0_name(algorithm), std::move(values.front())});
        *digest = &entries_.back().value;
        return vdsOk;
    }

    std::vector<VdsDigest> View() const {
        std::vector<VdsDigest> view;
        for (const auto& entry : entries_) {
            view.push_back({entry.name, entry.value.data(), entry.value.size()});
        }
        return view;
    }

private:
    struct Entry {
        const EVP_MD* algorithm;
        const char* name;
        std::vector<std::uint8_t> value;
    };

    const ObjectReader& reader_;
    std::uint64_t size_;
    std::deque<Entry> entries_;
};

// The bytes are exactly what OpenSSL writes for what it read: one DER
// encoding. OpenSSL re-encodes the signed attributes before checking their
// signature, so without this a re-tagged or reordered attribute would pass.
bool IsCanonical(CMS_ContentInfo* cms, const std::vector<std::uint8_t>& der) {
    unsigned char* encoded = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &encoded);
    const OpenSslBytes owned(encoded);
    return length > 0 && static_cast<std::size_t>(length) == der.size() &&
           std::equal(der.begin(), der.end(), encoded);
}

std::vector<std::uint8_t> NameBytes(const X509_NAME* name) {
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_NAME(name, &encoded);
    const OpenSslBytes owned(encoded);
    if (length <= 0) {
        return {};
    }
    return std::vector<std::uint8_t>(encoded, encoded + length);
}

// The SignerInfo names this certificate byte for byte: OpenSSL's own
// comparison ignores the letter case and spacing of the issuer name.
bool NamesExactly(CMS_SignerInfo* signerInfo, X509* certificate) {
    ASN1_OCTET_STRING* keyId = nullptr;
    X509_NAME* issuer = nullptr;
    ASN1_INTEGER* serial = nullptr;
    if (CMS_SignerInfo_get0_signer_id(signerInfo, &keyId, &issuer, &serial) != 1 ||
        issuer == nullptr || serial == nullptr) {
        return false;
    }
    const std::vector<std::uint8_t> named = NameBytes(issuer);
    return !named.empty() && named == NameBytes(X509_get_issuer_name(certificate)) &&
           ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(certificate)) == 0;
}

// The signature algorithm is the signer's key type, alone or paired with
// the SignerInfo's digest (a GOST signature labelled RSA is refused).
bool AlgorithmFitsKey(const X509_ALGOR* signatureAlgorithm, int digestNid, X509* signer) {
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, signatureAlgorithm);
    const int signatureNid = OBJ_obj2nid(object);
    EVP_PKEY* key = X509_get0_pubkey(signer);
    if (signatureNid == NID_undef || key == nullptr) {
        return false;
    }
    const int keyNid = EVP_PKEY_get_base_id(key);
    int pairedDigest = NID_undef;
    int pairedKey = NID_undef;
    if (OBJ_find_sigid_algs(signatureNid, &pairedDigest, &pairedKey) == 1) {
        return EVP_PKEY_type(pairedKey) == keyNid && pairedDigest == digestNid;
    }
    return EVP_PKEY_type(signatureNid) == keyNid;
}

bool EqualBytes(const ASN1_OCTET_STRING* value, const std::vector<std::uint8_t>& expected) {
    return value != nullptr &&
           static_cast<std::size_t>(ASN1_STRING_length(value)) == expected.size() &&
           CRYPTO_memcmp(ASN1_STRING_get0_data(value), expected.data(), expected.size()) == 0;
}

struct SignerInfoOutcome {
    VdsVerificationFlags flags = 0;
    std::int64_t signingTime = 0;
    ChainOutcome chain;
};

class SignedDataVerifier {
public:
    SignedDataVerifier(const VerificationRequest& request,
                       const format::SignatureLocation& location)
        : request_(request),
          location_(location),
          handler_(request.verifier->handler),
          digests_(*request.reader, location.contentSize) {}

    VdsResult Verify(SignatureOutcome* outcome) {
        outcome->checkedContentSize = location_.contentSize;
        std::vector<std::uint8_t> der(location_.signatureSize);
        const VdsResult read =
            request_.reader->ReadExact(location_.contentSize, der.data(), der.size());
        if (read != vdsOk) {
            return read;
        }
        const unsigned char* cursor = der.data();
        OpenSslPtr<CMS_ContentInfo> cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
        if (!cms || cursor != der.data() + der.size() ||
            OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed ||
            CMS_is_detached(cms.get()) != 1 ||
            OBJ_obj2nid(CMS_get0_eContentType(cms.get())) != NID_pkcs7_data ||
            !IsCanonical(cms.get(), der) || !HasStrictSignedDataShape(der.data(), der.size())) {
            ERR_clear_error();
            outcome->flags = vdsFlagEmbedded | vdsFlagMalformedContent;
            return vdsOk;
        }
        OpenSslPtr<STACK_OF(X509)> certificates(CMS_get1_certs(cms.get()));
        ERR_clear_error();
        STACK_OF(CMS_SignerInfo)* signerInfos = CMS_get0_SignerInfos(cms.get());
        const int signerCount = sk_CMS_SignerInfo_num(signerInfos);
        if (handler_ != nullptr) {
            handler_->OnSignedDataStarted(
                certificates ? static_cast<std::size_t>(sk_X509_num(certificates.get())) : 0,
                signerCount > 0 ? static_cast<std::size_t>(signerCount) : 0);
        }
        VdsVerificationFlags decisive = signerCount > 0
                                            ? VdsVerificationFlags{0}
                                            : VdsVerificationFlags{vdsFlagMalformedContent};
        bool trusted = false;
        for (int index = 0; index < signerCount; ++index) {
            SignerInfoOutcome signer;
            const VdsResult result = VerifySignerInfo(sk_CMS_SignerInfo_value(signerInfos, index),
                                                      certificates.get(), &signer);
            if (result != vdsOk) {
                return result;
            }
            if (handler_ != nullptr) {
                handler_->OnSignerInfoChecked(signer.signingTime, signer.flags);
            }
            decisive = signer.flags;
            outcome->chain = std::move(signer.chain);
            if ((decisive & vdsFlagsFailure) == 0) {
                trusted = true;
                break;
            }
            if (index + 1 < signerCount && handler_ != nullptr &&
                !handler_->IsNextSignerInfoRequired()) {
                break;
            }
        }
        outcome->trusted = trusted;
        outcome->flags = vdsFlagSigned | vdsFlagEmbedded | decisive |
                         (trusted ? VdsVerificationFlags{vdsFlagTrusted} : 0);
        if (handler_ != nullptr) {
            handler_->OnSignedDataChecked(outcome->flags);
        }
        return vdsOk;
    }

private:
    VdsResult VerifySignerInfo(CMS_SignerInfo* signerInfo, STACK_OF(X509) * certificates,
                               SignerInfoOutcome* outcome) {
        X509_ALGOR* digestAlgorithm = nullptr;
        X509_ALGOR* signatureAlgorithm = nullptr;
        CMS_SignerInfo_get0_algs(signerInfo, nullptr, nullptr, &digestAlgorithm,
                                 &signatureAlgorithm);
        if (handler_ != nullptr) {
            handler_->OnSignerInfoStarted(AlgorithmName(digestAlgorithm).c_str(),
                                          AlgorithmName(signatureAlgorithm).c_str());
        }
        const ASN1_OBJECT* digestObject = nullptr;
        X509_ALGOR_get0(&digestObject, nullptr, nullptr, digestAlgorithm);
        const EVP_MD* algorithm = AcceptedDigest(OBJ_obj2nid(digestObject));
        if (algorithm == nullptr) {
            outcome->flags |= vdsFlagMalformedContent;
            return vdsOk;
        }
        const std::vector<std::uint8_t>* digest = nullptr;
        const VdsResult result = digests_.Get(algorithm, &digest);
        if (result != vdsOk) {
            return result;
        }
        if (handler_ != nullptr) {
            const auto view = digests_.View();
            const std::uint64_t objectSize = request_.reader->Size();
            handler_->OnContentProcessed(location_.contentSize, objectSize - location_.contentSize,
                                         objectSize, request_.purpose, view.data(), view.size());
        }
        CheckSignedAttributes(signerInfo, algorithm, *digest, outcome);

        X509* signer = nullptr;
        for (int index = 0; certificates != nullptr && index < sk_X509_num(certificates); ++index) {
            if (NamesExactly(signerInfo, sk_X509_value(certificates, index))) {
                signer = sk_X509_value(certificates, index);
                break;
            }
        }
        if (signer == nullptr) {
            // Without its certificate the signature cannot even be checked.
            outcome->flags |= vdsFlagIncompleteChain;
            return vdsOk;
        }
        if (!AlgorithmFitsKey(signatureAlgorithm, OBJ_obj2nid(digestObject), signer)) {
            outcome->flags |= vdsFlagMalformedContent;
        }
        CMS_SignerInfo_set1_signer_cert(signerInfo, signer);
        if (CMS_SignerInfo_verify(signerInfo) != 1) {
            outcome->flags |= vdsFlagSignatureValueNotMatched;
        }
        ERR_clear_error();
        outcome->chain = ValidateChain(*request_.verifier, signer, certificates, request_.purpose);
        outcome->flags |= outcome->chain.flags;
        return vdsOk;
    }

    void CheckSignedAttributes(CMS_SignerInfo* signerInfo, const EVP_MD* algorithm,
                               const std::vector<std::uint8_t>& digest,
                               SignerInfoOutcome* outcome) {
        if (CMS_signed_get_attr_count(signerInfo) <= 0) {
            // Without signed attributes nothing ties the signature to the content.
            outcome->flags |= vdsFlagMalformedContent;
            return;
        }
        // -3: exactly one such attribute with exactly one value.
        const auto* messageDigest =
            static_cast<const ASN1_OCTET_STRING*>(CMS_signed_get0_data_by_OBJ(
                signerInfo, OBJ_nid2obj(NID_pkcs9_messageDigest), -3, V_ASN1_OCTET_STRING));
        if (messageDigest == nullptr) {
            outcome->flags |= vdsFlagMalformedContent;
        } else if (!EqualBytes(messageDigest, digest)) {
            outcome->flags |= vdsFlagSignatureValueNotMatched;
        }
        const auto* contentType = static_cast<const ASN1_OBJECT*>(CMS_signed_get0_data_by_OBJ(
            signerInfo, OBJ_nid2obj(NID_pkcs9_contentType), -3, V_ASN1_OBJECT));
        if (contentType == nullptr || OBJ_obj2nid(contentType) != NID_pkcs7_data) {
            outcome->flags |= vdsFlagMalformedContent;
        }
        const int timeIndex = CMS_signed_get_attr_by_NID(signerInfo, NID_pkcs9_signingTime, -1);
        if (timeIndex >= 0) {
            const ASN1_TYPE* value =
                X509_ATTRIBUTE_get0_type(CMS_signed_get_attr(signerInfo, timeIndex), 0);
            if (value != nullptr &&
                (value->type == V_ASN1_UTCTIME || value->type == V_ASN1_GENERALIZEDTIME)) {
                ToUnixTime(value->value.utctime, &outcome->signingTime);
            }
        }
        if (request_.additionalContent != nullptr) {
            CheckAdditionalContent(signerInfo, algorithm, outcome);
        }
        ERR_clear_error();
    }

    // The signature must carry the digest of exactly this additional content.
    void CheckAdditionalContent(CMS_SignerInfo* signerInfo, const EVP_MD* algorithm,
                                SignerInfoOutcome* outcome) {
        const VdsBlob& content = *request_.additionalContent;
        std::vector<std::uint8_t> digest;
        if (!DigestBytes(algorithm, content.data, content.size, &digest)) {
            throw std::bad_alloc();
        }
        if (handler_ != nullptr) {
            const VdsDigest view{EVP_MD_get0_name(algorithm), digest.data(), digest.size()};
            handler_->OnAdditionalContent(content, &view, 1);
        }
        const auto* bound = static_cast<const ASN1_OCTET_STRING*>(
            CMS_signed_get0_data_by_OBJ(signerInfo, FileNameAttribute(), -3, V_ASN1_OCTET_STRING));
        if (!EqualBytes(bound, digest)) {
            outcome->flags |= vdsFlagSignatureValueNotMatched;
        }
    }

    const VerificationRequest& request_;
    format::SignatureLocation location_;
    IVdsVerificationResultHandler* handler_;
    DigestCache digests_;
};

VdsResult ReadTrailer(const ObjectReader& reader, std::uint64_t end, format::TrailerStatus* status,
                      format::SignatureLocation* location) {
    if (end < format::kTrailerSize) {
        *status = format::TrailerStatus::Absent;
        return vdsOk;
    }
    std::uint8_t trailer[format::kTrailerSize];
    const VdsResult result = reader.ReadExact(end - format::kTrailerSize, trailer, sizeof(trailer));
    if (result != vdsOk) {
        return result;
    }
    *status = format::ParseTrailer(trailer, end, location);
    return vdsOk;
}

}  // namespace

VdsResult VerifyEmbeddedSignatures(const VerificationRequest& request, SignatureOutcome* outcome) {
    IVdsVerificationResultHandler* handler = request.verifier->handler;
    format::TrailerStatus status = format::TrailerStatus::Absent;
    format::SignatureLocation location;
    VdsResult result = ReadTrailer(*request.reader, request.reader->Size(), &status, &location);
    if (result != vdsOk) {
        return result;
    }
    if (status == format::TrailerStatus::Absent) {
        outcome->flags = vdsFlagUnsigned;
        return vdsOk;
    }
    if (status == format::TrailerStatus::Malformed) {
        outcome->flags = vdsFlagEmbedded | vdsFlagMalformedContent;
        return vdsOk;
    }
    for (;;) {
        SignatureOutcome current;
        result = SignedDataVerifier(request, location).Verify(&current);
        if (result != vdsOk) {
            return result;
        }
        *outcome = std::move(current);
        if (outcome->trusted) {
            return vdsOk;
        }
        // An earlier signature inside the covered content may still vouch for it.
        format::SignatureLocation inner;
        result = ReadTrailer(*request.reader, location.contentSize, &status, &inner);
        if (result != vdsOk) {
            return result;
        }
        if (status != format::TrailerStatus::Present ||
            (handler != nullptr && !handler->IsNextSignedDataRequired())) {
            return vdsOk;
        }
        location = inner;
    }
}

}  // namespace vds::core
