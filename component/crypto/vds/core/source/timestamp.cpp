#include "timestamp.h"

#include <vector>

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/ts.h>

#include "chain_validation.h"
#include "object_reader.h"
#include "openssl_handles.h"
#include "text.h"
#include "vds/authenticode_format.h"

namespace vds::core {
namespace {

struct TsDeleter {
    void operator()(TS_TST_INFO* info) const { TS_TST_INFO_free(info); }
};

const ASN1_OBJECT* TimestampAttribute() {
    static const OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(format::kRfc3161TimestampOid, 1));
    return object.get();
}

// Content bytes of id-kp-timeStamping (1.3.6.1.5.5.7.3.8).
const std::uint8_t kTimeStampingPurpose[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08};

// The token's DER: the attribute's one value.
bool TokenBytes(CMS_SignerInfo* signerInfo, std::vector<std::uint8_t>* der) {
    const int index = CMS_unsigned_get_attr_by_OBJ(signerInfo, TimestampAttribute(), -1);
    if (index < 0 || CMS_unsigned_get_attr_by_OBJ(signerInfo, TimestampAttribute(), index) >= 0) {
        return false;
    }
    X509_ATTRIBUTE* attribute = CMS_unsigned_get_attr(signerInfo, index);
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
    if (X509_ATTRIBUTE_count(attribute) != 1 || value == nullptr ||
        value->type != V_ASN1_SEQUENCE) {
        return false;
    }
    const ASN1_STRING* bytes = value->value.sequence;
    der->assign(ASN1_STRING_get0_data(bytes),
                ASN1_STRING_get0_data(bytes) + ASN1_STRING_length(bytes));
    return true;
}

bool ImprintCovers(const TS_TST_INFO* info, CMS_SignerInfo* signerInfo) {
    TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(const_cast<TS_TST_INFO*>(info));
    const ASN1_OBJECT* algorithm = nullptr;
    X509_ALGOR_get0(&algorithm, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
    const EVP_MD* digestType = AcceptedDigest(OBJ_obj2nid(algorithm));
    const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(signerInfo);
    std::vector<std::uint8_t> expected;
    if (digestType == nullptr || signature == nullptr ||
        !DigestBytes(digestType, ASN1_STRING_get0_data(signature),
                     static_cast<std::size_t>(ASN1_STRING_length(signature)), &expected)) {
        return false;
    }
    const ASN1_OCTET_STRING* imprinted = TS_MSG_IMPRINT_get_msg(imprint);
    return static_cast<std::size_t>(ASN1_STRING_length(imprinted)) == expected.size() &&
           CRYPTO_memcmp(ASN1_STRING_get0_data(imprinted), expected.data(), expected.size()) == 0;
}

bool Check(const VdsVerifier& verifier, CMS_SignerInfo* signerInfo, std::int64_t* time) {
    std::vector<std::uint8_t> der;
    if (!TokenBytes(signerInfo, &der)) {
        return false;
    }
    const unsigned char* cursor = der.data();
    OpenSslPtr<CMS_ContentInfo> token(
        d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
    if (!token || cursor != der.data() + der.size() ||
        OBJ_obj2nid(CMS_get0_type(token.get())) != NID_pkcs7_signed ||
        OBJ_obj2nid(CMS_get0_eContentType(token.get())) != NID_id_smime_ct_TSTInfo ||
        sk_CMS_SignerInfo_num(CMS_get0_SignerInfos(token.get())) != 1) {
        return false;
    }
    // The token's own signature and content digest; its chain follows below,
    // at the token's time.
    OpenSslPtr<BIO> content(BIO_new(BIO_s_mem()));
    if (!content || CMS_verify(token.get(), nullptr, nullptr, nullptr, content.get(),
                               CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY) != 1) {
        return false;
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(content.get(), &data);
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    std::unique_ptr<TS_TST_INFO, TsDeleter> info(d2i_TS_TST_INFO(nullptr, &bytes, size));
    if (!info || bytes != reinterpret_cast<const unsigned char*>(data) + size ||
        !ImprintCovers(info.get(), signerInfo) ||
        !ToUnixTime(TS_TST_INFO_get_time(info.get()), time)) {
        return false;
    }
    X509* authority = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(token.get()), 0), nullptr,
                             &authority, nullptr, nullptr);
    OpenSslPtr<STACK_OF(X509)> certificates(CMS_get1_certs(token.get()));
    if (authority == nullptr) {
        return false;
    }
    const VdsBlob purpose{kTimeStampingPurpose, sizeof(kTimeStampingPurpose)};
    const ChainOutcome chain =
        ValidateChain(verifier, authority, certificates.get(), purpose, {*time, true});
    return (chain.flags & vdsFlagsFailure) == 0;
}

}  // namespace

bool TimestampedAt(const VdsVerifier& verifier, CMS_SignerInfo* signerInfo, std::int64_t* time) {
    const bool valid = Check(verifier, signerInfo, time);
    ERR_clear_error();
    return valid;
}

}  // namespace vds::core
