#include "chain_validation.h"

#include <algorithm>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "openssl_handles.h"
#include "text.h"

namespace vds::core {
namespace {

struct Collector {
    VdsVerificationFlags flags = 0;
    IVdsVerificationResultHandler* handler = nullptr;
};

VdsVerificationFlags FlagForError(int error) {
    switch (error) {
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return vdsFlagIncompleteChain;
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_CERT_UNTRUSTED:
        case X509_V_ERR_CERT_REJECTED:
            return vdsFlagUntrustedRoot;
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
        case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
            return vdsFlagInvalidCertificateSign;
        case X509_V_ERR_CERT_NOT_YET_VALID:
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
        case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
            return vdsFlagExpired;
        case X509_V_ERR_INVALID_CA:
        case X509_V_ERR_PATH_LENGTH_EXCEEDED:
        case X509_V_ERR_PROXY_PATH_LENGTH_EXCEEDED:
            return vdsFlagInvalidBasicConstraints;
        case X509_V_ERR_KEYUSAGE_NO_CERTSIGN:
        case X509_V_ERR_KEYUSAGE_NO_DIGITAL_SIGNATURE:
        case X509_V_ERR_INVALID_PURPOSE:
            return vdsFlagInvalidUsage;
        case X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION:
            return vdsFlagUnconsumedCriticalExtension;
        case X509_V_ERR_INVALID_EXTENSION:
        case X509_V_ERR_INVALID_POLICY_EXTENSION:
        case X509_V_ERR_NO_EXPLICIT_POLICY:
            return vdsFlagInvalidExtension;
        case X509_V_ERR_SUBJECT_ISSUER_MISMATCH:
        case X509_V_ERR_AKID_SKID_MISMATCH:
        case X509_V_ERR_AKID_ISSUER_SERIAL_MISMATCH:
            return vdsFlagInvalidIssuer;
        case X509_V_ERR_CERT_REVOKED:
            return vdsFlagRevoked;
        default:
            return vdsFlagMalformedContent;
    }
}

int CollectError(int ok, X509_STORE_CTX* context) {
    if (ok == 1) {
        return 1;
    }
    auto* collector =
        static_cast<Collector*>(X509_STORE_CTX_get_ex_data(context, 0 /* app data */));
    const int error = X509_STORE_CTX_get_error(context);
    collector->flags |= FlagForError(error);
    if (error == X509_V_ERR_CERT_SIGNATURE_FAILURE && collector->handler != nullptr) {
        X509* child = X509_STORE_CTX_get_current_cert(context);
        X509* parent = X509_STORE_CTX_get0_current_issuer(context);
        collector->handler->OnCertificateSignCheckFailure(
            child != nullptr ? NameText(X509_get_subject_name(child)).c_str() : "",
            parent != nullptr ? NameText(X509_get_subject_name(parent)).c_str() : "");
    }
    // Keep going: every problem of the chain becomes a flag.
    return 1;
}

bool IsTrustedRoot(const VdsVerifier& verifier, X509* certificate) {
    return std::any_of(verifier.roots.begin(), verifier.roots.end(),
                       [&](const auto& root) { return X509_cmp(root.get(), certificate) == 0; });
}

std::vector<std::vector<std::uint8_t>> PurposeOids(X509* certificate) {
    std::vector<std::vector<std::uint8_t>> oids;
    OpenSslPtr<EXTENDED_KEY_USAGE> usage(static_cast<EXTENDED_KEY_USAGE*>(
        X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
    ERR_clear_error();
    for (int index = 0; usage && index < sk_ASN1_OBJECT_num(usage.get()); ++index) {
        const ASN1_OBJECT* object = sk_ASN1_OBJECT_value(usage.get(), index);
        oids.emplace_back(OBJ_get0_data(object), OBJ_get0_data(object) + OBJ_length(object));
    }
    return oids;
}

// A signer's key usage, when present, must allow signatures.
bool AllowsSigning(X509* certificate) {
    const std::uint32_t usage = X509_get_key_usage(certificate);
    return usage == UINT32_MAX || (usage & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

}  // namespace

ChainOutcome ValidateChain(const VdsVerifier& verifier, X509* leaf, STACK_OF(X509) * untrusted,
                           const VdsBlob& purpose, const ChainOptions& options) {
    ChainOutcome outcome;
    outcome.leafSerial = SerialText(X509_get0_serialNumber(leaf));
    outcome.purposes = PurposesText(leaf);
    outcome.purposeOids = PurposeOids(leaf);

    Collector collector;
    collector.handler = verifier.handler;
    OpenSslPtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
    if (!context ||
        X509_STORE_CTX_init(context.get(), verifier.store.get(), leaf, untrusted) != 1) {
        ERR_clear_error();
        throw std::bad_alloc();
    }
    X509_STORE_CTX_set_ex_data(context.get(), 0, &collector);
    X509_STORE_CTX_set_verify_cb(context.get(), CollectError);
    if (options.atTime != 0) {
        X509_VERIFY_PARAM_set_time(X509_STORE_CTX_get0_param(context.get()),
                                   static_cast<time_t>(options.atTime));
    }
    const int verified = X509_verify_cert(context.get());
    ERR_clear_error();
    if (verified <= 0 && collector.flags == 0) {
        collector.flags |= vdsFlagIncompleteChain;
    }

    STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(context.get());
    std::vector<CertificateText> texts;
    std::vector<VdsCertificateInfo> infos;
    for (int index = 0; index < sk_X509_num(chain); ++index) {
        texts.emplace_back(sk_X509_value(chain, index));
    }
    for (const auto& text : texts) {
        infos.push_back(text.View());
    }
    if (verifier.handler != nullptr) {
        verifier.handler->LogCertificateChain(infos.data(), infos.size());
    }

    const int length = sk_X509_num(chain);
    X509* top = length > 0 ? sk_X509_value(chain, length - 1) : nullptr;
    if (top == nullptr || !IsTrustedRoot(verifier, top)) {
        if ((collector.flags & (vdsFlagIncompleteChain | vdsFlagUntrustedRoot)) == 0) {
            collector.flags |= vdsFlagIncompleteChain;
        }
    } else {
        outcome.rootSerial = SerialText(X509_get0_serialNumber(top));
    }

    if (purpose.size != 0 && !HasPurpose(leaf, purpose)) {
        collector.flags |= vdsFlagInvalidPurpose;
    }
    if (!AllowsSigning(leaf)) {
        collector.flags |= vdsFlagInvalidUsage;
    }

    // Revocation: the root's database lists the revoked certificates of its
    // whole hierarchy.
    const LoadedDatabase* database = nullptr;
    if (verifier.revocation && top != nullptr && !outcome.rootSerial.empty()) {
        const auto found =
            verifier.revocation->byHierarchy.find(SerialBytes(X509_get0_serialNumber(top)));
        if (found != verifier.revocation->byHierarchy.end()) {
            database = found->second.get();
        }
    }
    if (database == nullptr) {
        collector.flags |= vdsFlagRevocationCheckSkipped;
    } else {
        for (int index = 0; index + 1 < length; ++index) {
            if (database->revokedSerials.count(
                    SerialText(X509_get0_serialNumber(sk_X509_value(chain, index)))) != 0) {
                collector.flags |= vdsFlagRevoked;
            }
        }
    }

    outcome.flags = collector.flags;
    if (verifier.handler != nullptr && options.timestamp) {
        verifier.handler->OnValidatedTimestampChain(outcome.flags);
    } else if (verifier.handler != nullptr) {
        verifier.handler->OnValidatedContentChain(outcome.flags);
    }
    return outcome;
}

}  // namespace vds::core
