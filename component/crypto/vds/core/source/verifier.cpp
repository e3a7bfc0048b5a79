#include <algorithm>

#include <openssl/err.h>

#include "certificate.h"
#include "embedded_signature.h"
#include "handles.h"
#include "library.h"
#include "openssl_handles.h"
#include "text.h"
#include "vds/catalog_format.h"
#include "vds/pe_format.h"
#include "vds/signature_format.h"

namespace vds::core {
namespace {

bool ValidReader(const VdsReadCallback* reader) {
    return reader != nullptr && reader->read != nullptr;
}

VdsBlob PurposeOf(const VdsBlob* purpose) {
    return purpose != nullptr && purpose->data != nullptr ? *purpose : VdsBlob{nullptr, 0};
}

struct CatalogMatch {
    const Catalog* catalog = nullptr;
};

// Looks the whole object up in the verifier's catalogs.
VdsResult FindInCatalogs(const VdsVerifier& verifier, const ObjectReader& reader,
                         const VdsBlob& purpose, CatalogMatch* match) {
    std::vector<const EVP_MD*> algorithms;
    for (const auto& catalog : verifier.catalogs) {
        if (std::find(algorithms.begin(), algorithms.end(), catalog->algorithm) ==
            algorithms.end()) {
            algorithms.push_back(catalog->algorithm);
        }
    }
    std::vector<std::vector<std::uint8_t>> digests;
    const VdsResult result = reader.Digest(reader.Size(), algorithms, &digests);
    if (result != vdsOk) {
        return result;
    }
    for (const auto& catalog : verifier.catalogs) {
        const auto position = std::find(algorithms.begin(), algorithms.end(), catalog->algorithm);
        const auto& digest = digests[static_cast<std::size_t>(position - algorithms.begin())];
        if (catalog->Grants(purpose) && catalog->Contains(digest)) {
            match->catalog = catalog.get();
            return vdsOk;
        }
    }
    return vdsOk;
}

bool HasEmbeddedSignature(const ObjectReader& reader) {
    if (reader.Size() < format::kTrailerSize) {
        return false;
    }
    std::uint8_t trailer[format::kTrailerSize];
    return reader.ReadExact(reader.Size() - format::kTrailerSize, trailer, sizeof(trailer)) ==
               vdsOk &&
           format::ParseTrailer(trailer, reader.Size(), nullptr) != format::TrailerStatus::Absent;
}

struct FileFormat {
    format::PeStatus status = format::PeStatus::NotPe;
    format::PeLayout layout;
    VdsFileFormat id = vdsFileFormatUnspecified;
};

bool HasCertificateTable(const FileFormat& found) {
    return found.status == format::PeStatus::Parsed && found.layout.tableSize != 0;
}

VdsResult RecognizeFormat(const ObjectReader& reader, FileFormat* found) {
    const VdsResult result = format::ParsePe(
        [&reader](std::uint64_t offset, void* buffer, std::size_t size) {
            return reader.ReadExact(offset, buffer, size);
        },
        reader.Size(), &found->status, &found->layout);
    if (result == vdsOk && found->status == format::PeStatus::Parsed) {
        found->id = found->layout.kind == format::PeKind::Pe32Plus
                        ? vdsFileFormatPortableExecutable64
                        : vdsFileFormatPortableExecutable32;
    }
    return result;
}

VdsResult VerifyObject(const VdsVerifier* verifier, const VdsReadCallback* callback,
                       const VdsBlob* additionalContent, const VdsBlob* purpose,
                       VdsVerificationResultData* result) {
    if (verifier == nullptr || !ValidReader(callback) || result == nullptr ||
        (additionalContent != nullptr && additionalContent->data == nullptr &&
         additionalContent->size != 0)) {
        return vdsErrInvalidArgument;
    }
    *result = {};
    if (!IsLibraryInitialized()) {
        return vdsErrNotInitialized;
    }
    IVdsVerificationResultHandler* handler = verifier->handler;
    const ObjectReader reader(*callback);
    const VdsBlob requiredPurpose = PurposeOf(purpose);
    FileFormat fileFormat;
    const VdsResult recognized = RecognizeFormat(reader, &fileFormat);
    if (recognized != vdsOk) {
        return recognized;
    }
    if (handler != nullptr) {
        handler->OnFileFormat(fileFormat.id);
    }

    VdsVerificationFlags flags = 0;
    bool trusted = false;
    std::uint64_t checkedContentSize = 0;
    bool decided = false;
    // Catalogs bind digests, not names: they cannot vouch for an object
    // whose name must be bound.
    if (!verifier->catalogs.empty() && additionalContent == nullptr) {
        CatalogMatch match;
        const VdsResult found = FindInCatalogs(*verifier, reader, requiredPurpose, &match);
        if (found != vdsOk) {
            return found;
        }
        if (match.catalog != nullptr) {
            const VdsVerificationFlags hashFlags = vdsFlagSigned | vdsFlagTrusted | vdsFlagCatalog;
            if (handler != nullptr) {
                handler->OnHashFound(match.catalog->leafSerial.c_str(),
                                     match.catalog->rootSerial.c_str(),
                                     match.catalog->purposesText.c_str(),
                                     match.catalog->signatureFlags, 0, hashFlags);
            }
            const bool forced = handler != nullptr &&
                                (HasCertificateTable(fileFormat) || HasEmbeddedSignature(reader)) &&
                                handler->IsSignedDataVerificationRequiredForcedly();
            if (!forced) {
                flags = hashFlags | (match.catalog->signatureFlags & vdsFlagRevocationCheckSkipped);
                trusted = true;
                checkedContentSize = reader.Size();
                decided = true;
            }
        }
    }
    if (!decided && fileFormat.status == format::PeStatus::Malformed) {
        // Headers or a certificate table that do not hold together are
        // never searched for a signature.
        flags = vdsFlagMalformedContent;
        if (handler != nullptr) {
            handler->OnEmbeddedSignatureChecked(flags);
        }
        decided = true;
    }
    if (!decided) {
        VerificationRequest request{verifier, &reader, requiredPurpose, additionalContent};
        SignatureOutcome outcome;
        // A program with a certificate table is signed there; any other file
        // (a program without one included) may carry appended signatures.
        const VdsResult verified =
            HasCertificateTable(fileFormat)
                ? VerifyProgramSignatures(request, fileFormat.layout, &outcome)
                : VerifyEmbeddedSignatures(request, &outcome);
        if (verified != vdsOk) {
            return verified;
        }
        if (handler != nullptr) {
            handler->OnEmbeddedSignatureChecked(outcome.flags);
        }
        flags = outcome.flags;
        trusted = outcome.trusted;
        checkedContentSize = (flags & vdsFlagSigned) != 0 ? outcome.checkedContentSize : 0;
    }
    result->flags = flags;
    result->checkedContentSize = checkedContentSize;
    result->signatureContainerSize =
        (flags & vdsFlagEmbedded) != 0 ? reader.Size() - checkedContentSize : 0;
    result->fileFormat = fileFormat.id;
    const VdsResult code = trusted ? vdsOk : vdsErrUntrusted;
    if (handler != nullptr) {
        handler->OnFinalResult(code, flags);
    }
    return code;
}

}  // namespace
}  // namespace vds::core

using vds::core::Guard;

VdsResult VdsCreateVerifier_Ex(const VdsBlob* trustedRoots, std::size_t trustedRootsCount,
                               const VdsRevocationChecker* revocationChecker,
                               IVdsVerificationResultHandler* handler, VdsVerifier** verifier) {
    return Guard([&]() -> VdsResult {
        if (verifier == nullptr || trustedRoots == nullptr || trustedRootsCount == 0) {
            return vdsErrInvalidArgument;
        }
        if (!vds::core::IsLibraryInitialized()) {
            return vdsErrNotInitialized;
        }
        auto created = std::make_unique<VdsVerifier>();
        created->store.reset(X509_STORE_new(), X509_STORE_free);
        if (!created->store) {
            return vdsErrBadAlloc;
        }
        std::vector<vds::core::CertificateText> texts;
        for (std::size_t index = 0; index < trustedRootsCount; ++index) {
            VdsResult result = vdsOk;
            auto root = vds::core::ParseCertificate(trustedRoots[index].data,
                                                    trustedRoots[index].size, &result);
            if (!root) {
                if (handler != nullptr) {
                    handler->OnCertificateParsingFailed(index, trustedRoots[index]);
                }
                return vdsErrInvalidFormat;
            }
            // A root the store did not take would make its files fail
            // for no visible reason: refuse the verifier instead.
            if (X509_STORE_add_cert(created->store.get(), root.get()) != 1) {
                ERR_clear_error();
                return vdsErrCryptoLib;
            }
            texts.emplace_back(root.get());
            created->roots.push_back(std::move(root));
        }
        created->revocation = revocationChecker != nullptr ? revocationChecker->data : nullptr;
        created->handler = handler;
        if (handler != nullptr) {
            std::vector<VdsCertificateInfo> infos;
            for (const auto& text : texts) {
                infos.push_back(text.View());
            }
            handler->OnVerifierCreated(revocationChecker, infos.size(), infos.data());
            handler->OnRevocationCheckerCreated(
                revocationChecker, VdsRevocationCheckerGetDatabaseCount(revocationChecker));
        }
        *verifier = created.release();
        return vdsOk;
    });
}

VdsResult VdsCloneVerifier(const VdsVerifier* verifier, VdsVerifier** copy) {
    return Guard([&]() -> VdsResult {
        if (verifier == nullptr || copy == nullptr) {
            return vdsErrInvalidArgument;
        }
        *copy = new VdsVerifier(*verifier);
        return vdsOk;
    });
}

void VdsReleaseVerifier(VdsVerifier* verifier) {
    delete verifier;
}

VdsResult VdsVerifyObjectByCallback_Ex(const VdsVerifier* verifier, const VdsReadCallback* reader,
                                       const VdsBlob* purpose, VdsVerificationResultData* result) {
    return Guard(
        [&] { return vds::core::VerifyObject(verifier, reader, nullptr, purpose, result); });
}

VdsResult VdsVerifyObjectByCallbackWithAdditionalContent_Ex(const VdsVerifier* verifier,
                                                            const VdsReadCallback* reader,
                                                            const VdsBlob* additionalContent,
                                                            const VdsBlob* purpose,
                                                            VdsVerificationResultData* result) {
    return Guard([&]() -> VdsResult {
        if (additionalContent == nullptr) {
            return vdsErrInvalidArgument;
        }
        return vds::core::VerifyObject(verifier, reader, additionalContent, purpose, result);
    });
}

VdsResult VdsLoadSignaturesCatalogByCallback(VdsVerifier* verifier, const VdsReadCallback* reader) {
    return Guard([&]() -> VdsResult {
        if (verifier == nullptr || !vds::core::ValidReader(reader)) {
            return vdsErrInvalidArgument;
        }
        if (!vds::core::IsLibraryInitialized()) {
            return vdsErrNotInitialized;
        }
        const vds::core::ObjectReader objectReader(*reader);
        const vds::core::VerificationRequest request{
            verifier, &objectReader, {nullptr, 0}, nullptr};
        vds::core::SignatureOutcome outcome;
        VdsResult result = vds::core::VerifyEmbeddedSignatures(request, &outcome);
        if (result != vdsOk) {
            return result;
        }
        if (!outcome.trusted) {
            return vdsErrUntrusted;
        }
        if (outcome.checkedContentSize > vds::format::kMaxCatalogSize) {
            return vdsErrInvalidFormat;
        }
        std::vector<std::uint8_t> content(static_cast<std::size_t>(outcome.checkedContentSize));
        result = objectReader.ReadExact(0, content.data(), content.size());
        if (result != vdsOk) {
            return result;
        }
        auto catalog = std::make_shared<vds::core::Catalog>();
        result = vds::core::ParseCatalog(content.data(), content.size(), catalog.get());
        if (result != vdsOk) {
            return result;
        }
        catalog->leafSerial = outcome.chain.leafSerial;
        catalog->rootSerial = outcome.chain.rootSerial;
        catalog->purposesText = outcome.chain.purposes;
        catalog->purposes = outcome.chain.purposeOids;
        catalog->signatureFlags = outcome.flags;
        if (verifier->handler != nullptr) {
            verifier->handler->OnHashContainer(catalog->algorithmName.c_str(),
                                               catalog->digests.size());
        }
        verifier->catalogs.push_back(std::move(catalog));
        return vdsOk;
    });
}
