#include "embedded_signature.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <string>
#include <utility>

#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include "openssl_handles.h"
#include "signed_data_shape.h"
#include "text.h"
#include "timestamp.h"
#include "vds/authenticode_format.h"
#include "vds/der.h"
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
    DigestCache(const ObjectReader& reader, std::vector<format::ByteRange> ranges)
        : reader_(reader), ranges_(std::move(ranges)) {}

    VdsResult Get(const EVP_MD* algorithm, const std::vector<std::uint8_t>** digest) {
        for (const auto& entry : entries_) {
            if (entry.algorithm == algorithm) {
                *digest = &entry.value;
                return vdsOk;
            }
        }
        std::vector<std::vector<std::uint8_t>> values;
        const VdsResult result = reader_.Digest(ranges_, {algorithm}, &values);
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
    std::vector<format::ByteRange> ranges_;
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

const ASN1_OBJECT* IndirectDataType() {
    static const OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(format::kSpcIndirectDataOid, 1));
    return object.get();
}

const ASN1_OBJECT* NestedSignatureAttribute() {
    static const OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(format::kSpcNestedSignatureOid, 1));
    return object.get();
}

// The unsigned attributes a program's signature may carry, as DER OIDs.
const std::vector<std::string>& ProgramUnsignedAttributes() {
    static const std::vector<std::string> allowed = [] {
        std::vector<std::string> oids;
        for (const char* oid : {format::kSpcNestedSignatureOid, format::kRfc3161TimestampOid,
                                format::kCounterSignatureOid}) {
            const auto encoded = format::EncodeOid(oid);
            oids.emplace_back(encoded.begin(), encoded.end());
        }
        return oids;
    }();
    return allowed;
}

// The further SignedData that the first SignerInfo of a program's signature
// carries in its unsigned attributes (what `osslsigncode sign -nest` adds).
std::vector<std::vector<std::uint8_t>> NestedSignatures(CMS_SignerInfo* signerInfo) {
    std::vector<std::vector<std::uint8_t>> nested;
    for (int index = CMS_unsigned_get_attr_by_OBJ(signerInfo, NestedSignatureAttribute(), -1);
         index >= 0;
         index = CMS_unsigned_get_attr_by_OBJ(signerInfo, NestedSignatureAttribute(), index)) {
        X509_ATTRIBUTE* attribute = CMS_unsigned_get_attr(signerInfo, index);
        for (int value = 0; value < X509_ATTRIBUTE_count(attribute); ++value) {
            const ASN1_TYPE* type = X509_ATTRIBUTE_get0_type(attribute, value);
            if (type != nullptr && type->type == V_ASN1_SEQUENCE) {
                const ASN1_STRING* bytes = type->value.sequence;
                nested.emplace_back(ASN1_STRING_get0_data(bytes),
                                    ASN1_STRING_get0_data(bytes) + ASN1_STRING_length(bytes));
            }
        }
    }
    ERR_clear_error();
    return nested;
}

// What a SignedData must vouch for. An appended signature is detached over
// `id-data` and its messageDigest is the digest of the covered bytes; a
// program's signature holds an SpcIndirectDataContent whose DigestInfo is
// the digest of the image ranges, and its messageDigest covers that content.
struct SignedContent {
    bool authenticode = false;
    std::vector<format::ByteRange> ranges;
    std::uint64_t checkedContentSize = 0;
};

// A program carries few signatures; more than this is not looked at.
constexpr std::size_t kMaxSignedData = 8;

class SignedDataVerifier {
public:
    // `digests` caches the digests of the content's ranges.
    SignedDataVerifier(const VerificationRequest& request, const SignedContent& content,
                       DigestCache* digests)
        : request_(request),
          content_(content),
          handler_(request.verifier->handler),
          digests_(*digests) {}

    // Verifies one DER ContentInfo; `nested` receives the further SignedData
    // it carries.
    VdsResult Verify(std::vector<std::uint8_t> der, SignatureOutcome* outcome,
                     std::vector<std::vector<std::uint8_t>>* nested = nullptr) {
        outcome->checkedContentSize = content_.checkedContentSize;
        OpenSslPtr<CMS_ContentInfo> cms;
        bool wellFormed =
            !content_.authenticode ||
            format::RetagEncapsulatedContent(&der, format::kDerSequence, format::kDerOctetString);
        if (wellFormed) {
            const unsigned char* cursor = der.data();
            cms.reset(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
            wellFormed =
                cms && cursor == der.data() + der.size() &&
                OBJ_obj2nid(CMS_get0_type(cms.get())) == NID_pkcs7_signed &&
                IsCanonical(cms.get(), der) &&
                HasStrictSignedDataShape(der.data(), der.size(),
                                         content_.authenticode ? ProgramUnsignedAttributes()
                                                               : std::vector<std::string>{}) &&
                HasExpectedContent(cms.get());
        }
        ERR_clear_error();
        if (!wellFormed) {
            outcome->flags = vdsFlagEmbedded | vdsFlagMalformedContent;
            return vdsOk;
        }
        if (content_.authenticode) {
            // The image digest is the same for every SignerInfo.
            const std::vector<std::uint8_t>* image = nullptr;
            const VdsResult result = digests_.Get(imageAlgorithm_, &image);
            if (result != vdsOk) {
                return result;
            }
            if (*image != indirect_.digest) {
                contentFlags_ |= vdsFlagSignatureValueNotMatched;
            }
        }
        OpenSslPtr<STACK_OF(X509)> certificates(CMS_get1_certs(cms.get()));
        ERR_clear_error();
        STACK_OF(CMS_SignerInfo)* signerInfos = CMS_get0_SignerInfos(cms.get());
        const int signerCount = sk_CMS_SignerInfo_num(signerInfos);
        if (nested != nullptr && content_.authenticode && signerCount > 0) {
            *nested = NestedSignatures(sk_CMS_SignerInfo_value(signerInfos, 0));
        }
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
            signer.flags |= contentFlags_;
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
    // The encapsulated content is what the placement requires: nothing for
    // an appended signature; for a program an SpcIndirectDataContent naming
    // an accepted digest algorithm.
    bool HasExpectedContent(CMS_ContentInfo* cms) {
        const ASN1_OBJECT* type = CMS_get0_eContentType(cms);
        if (!content_.authenticode) {
            return CMS_is_detached(cms) == 1 && OBJ_obj2nid(type) == NID_pkcs7_data;
        }
        ASN1_OCTET_STRING** content = CMS_get0_content(cms);
        if (CMS_is_detached(cms) != 0 || OBJ_cmp(type, IndirectDataType()) != 0 ||
            content == nullptr || *content == nullptr) {
            return false;
        }
        indirectContent_.assign(ASN1_STRING_get0_data(*content),
                                ASN1_STRING_get0_data(*content) + ASN1_STRING_length(*content));
        if (!format::ParseIndirectData(indirectContent_.data(), indirectContent_.size(),
                                       &indirect_)) {
            return false;
        }
        const unsigned char* cursor = indirect_.algorithm.data();
        OpenSslPtr<ASN1_OBJECT> algorithm(
            d2i_ASN1_OBJECT(nullptr, &cursor, static_cast<long>(indirect_.algorithm.size())));
        imageAlgorithm_ = algorithm ? AcceptedDigest(OBJ_obj2nid(algorithm.get())) : nullptr;
        return imageAlgorithm_ != nullptr;
    }

    // What the messageDigest attribute must hold for this algorithm.
    VdsResult ExpectedMessageDigest(const EVP_MD* algorithm, std::vector<std::uint8_t>* digest) {
        if (!content_.authenticode) {
            const std::vector<std::uint8_t>* covered = nullptr;
            const VdsResult result = digests_.Get(algorithm, &covered);
            if (result == vdsOk) {
                *digest = *covered;
            }
            return result;
        }
        return DigestBytes(algorithm, indirectContent_.data(), indirectContent_.size(), digest)
                   ? vdsOk
                   : vdsErrCryptoLib;
    }

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
        std::vector<std::uint8_t> digest;
        const VdsResult result = ExpectedMessageDigest(algorithm, &digest);
        if (result != vdsOk) {
            return result;
        }
        if (handler_ != nullptr) {
            const auto view = digests_.View();
            const std::uint64_t objectSize = request_.reader->Size();
            const std::uint64_t checked = content_.checkedContentSize;
            handler_->OnContentProcessed(checked, objectSize - checked, objectSize,
                                         request_.purpose, view.data(), view.size());
        }
        CheckSignedAttributes(signerInfo, algorithm, digest, outcome);

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
        if (content_.authenticode && (outcome->flags & vdsFlagsFailure) == vdsFlagExpired) {
            UseTimestamp(signerInfo, signer, certificates, outcome);
        }
        return vdsOk;
    }

    // A signer that has expired since is accepted when a timestamp shows
    // the signature existed while its chain was valid.
    void UseTimestamp(CMS_SignerInfo* signerInfo, X509* signer, STACK_OF(X509) * certificates,
                      SignerInfoOutcome* outcome) {
        std::int64_t time = 0;
        if (!TimestampedAt(*request_.verifier, signerInfo, &time)) {
            return;
        }
        ChainOutcome then = ValidateChain(*request_.verifier, signer, certificates,
                                          request_.purpose, {time, false});
        if ((then.flags & vdsFlagsFailure) != 0) {
            return;
        }
        outcome->flags =
            (outcome->flags & ~outcome->chain.flags) | then.flags | vdsFlagCounterSignatureUsed;
        outcome->chain = std::move(then);
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
        const bool expectedType =
            contentType != nullptr &&
            (content_.authenticode ? OBJ_cmp(contentType, IndirectDataType()) == 0
                                   : OBJ_obj2nid(contentType) == NID_pkcs7_data);
        if (!expectedType) {
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
    const SignedContent& content_;
    IVdsVerificationResultHandler* handler_;
    DigestCache& digests_;
    // A program's signature: its SpcIndirectDataContent octets and digest.
    std::vector<std::uint8_t> indirectContent_;
    format::IndirectDataDigest indirect_;
    const EVP_MD* imageAlgorithm_ = nullptr;
    VdsVerificationFlags contentFlags_ = 0;
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
        std::vector<std::uint8_t> der(location.signatureSize);
        result = request.reader->ReadExact(location.contentSize, der.data(), der.size());
        if (result != vdsOk) {
            return result;
        }
        const SignedContent content{false, {{0, location.contentSize}}, location.contentSize};
        DigestCache digests(*request.reader, content.ranges);
        result = SignedDataVerifier(request, content, &digests).Verify(std::move(der), &current);
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

VdsResult VerifyProgramSignatures(const VerificationRequest& request,
                                  const format::PeLayout& layout, SignatureOutcome* outcome) {
    IVdsVerificationResultHandler* handler = request.verifier->handler;
    const SignedContent content{true, format::ImageDigestRanges(layout, request.reader->Size()),
                                layout.tableOffset};
    DigestCache digests(*request.reader, content.ranges);
    // The table's entries in order, each followed by the signatures nested
    // in it; the table is small (bounded by the layout), so all are read.
    std::deque<std::vector<std::uint8_t>> pending;
    for (const auto& entry : layout.certificates) {
        std::vector<std::uint8_t> der(entry.ContentSize());
        const VdsResult result =
            request.reader->ReadExact(entry.ContentOffset(), der.data(), der.size());
        if (result != vdsOk) {
            return result;
        }
        // Signing tools count the entry's padding in its length: up to seven
        // zero bytes may follow the SignedData, nothing else.
        format::DerReader reader(der.data(), der.size());
        format::DerElement signedData;
        if (reader.Next(format::kDerSequence, &signedData)) {
            const auto used = static_cast<std::size_t>(signedData.end - der.data());
            if (der.size() - used < 8 &&
                std::all_of(der.begin() + static_cast<std::ptrdiff_t>(used), der.end(),
                            [](std::uint8_t byte) { return byte == 0; })) {
                der.resize(used);
            }
        }
        pending.push_back(std::move(der));
    }
    outcome->flags = vdsFlagEmbedded | vdsFlagMalformedContent;
    for (std::size_t checked = 0; !pending.empty() && checked < kMaxSignedData; ++checked) {
        SignatureOutcome current;
        std::vector<std::vector<std::uint8_t>> nested;
        std::vector<std::uint8_t> der = std::move(pending.front());
        pending.pop_front();
        const VdsResult result = SignedDataVerifier(request, content, &digests)
                                     .Verify(std::move(der), &current, &nested);
        if (result != vdsOk) {
            return result;
        }
        *outcome = std::move(current);
        if (outcome->trusted) {
            return vdsOk;
        }
        pending.insert(pending.begin(), std::make_move_iterator(nested.begin()),
                       std::make_move_iterator(nested.end()));
        if (pending.empty() || (handler != nullptr && !handler->IsNextSignedDataRequired())) {
            return vdsOk;
        }
    }
    return vdsOk;
}

}  // namespace vds::core
