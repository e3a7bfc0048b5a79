#include "vds/authenticode_format.h"

#include <string>

#include <openssl/objects.h>

#include "openssl_handles.h"
#include "vds/der.h"

namespace vds::format {
namespace {

std::vector<std::uint8_t> Whole(const DerElement& element) {
    return std::vector<std::uint8_t>(element.begin, element.end);
}

// Where the SignedData's version and its encapsulated content's tag are.
struct SignedDataPositions {
    std::size_t version = 0;
    std::size_t contentTag = 0;
};

bool Locate(const std::vector<std::uint8_t>& der, std::uint8_t contentTag,
            SignedDataPositions* positions) {
    DerReader outer(der.data(), der.size());
    DerElement contentInfo, type, explicitContent, signedData;
    if (!outer.Next(kDerSequence, &contentInfo)) {
        return false;
    }
    DerReader info(contentInfo);
    if (!info.Next(kDerObject, &type) || !info.Next(kDerContext0, &explicitContent)) {
        return false;
    }
    DerReader wrapper(explicitContent);
    if (!wrapper.Next(kDerSequence, &signedData)) {
        return false;
    }
    DerReader body(signedData);
    DerElement version, digestAlgorithms, encapsulated, contentType, content, inner;
    if (!body.Next(kDerInteger, &version) || !body.Next(kDerSet, &digestAlgorithms) ||
        !body.Next(kDerSequence, &encapsulated)) {
        return false;
    }
    DerReader encapsulatedParts(encapsulated);
    if (!encapsulatedParts.Next(kDerObject, &contentType) ||
        !encapsulatedParts.Next(kDerContext0, &content)) {
        return false;
    }
    DerReader contentParts(content);
    if (!contentParts.Next(contentTag, &inner) || !contentParts.AtEnd() ||
        version.contentSize != 1) {
        return false;
    }
    positions->version = static_cast<std::size_t>(version.content - der.data());
    positions->contentTag = static_cast<std::size_t>(inner.begin - der.data());
    return true;
}

}  // namespace

bool RetagEncapsulatedContent(std::vector<std::uint8_t>* der, std::uint8_t from, std::uint8_t to) {
    SignedDataPositions positions;
    if (!Locate(*der, from, &positions)) {
        return false;
    }
    (*der)[positions.contentTag] = to;
    return true;
}

bool CmsToAuthenticode(std::vector<std::uint8_t>* der) {
    SignedDataPositions positions;
    if (!Locate(*der, kDerOctetString, &positions)) {
        return false;
    }
    (*der)[positions.contentTag] = kDerSequence;
    (*der)[positions.version] = 1;
    return true;
}

bool ParseIndirectData(const std::uint8_t* content, std::size_t size, IndirectDataDigest* parsed) {
    DerReader reader(content, size);
    DerElement data, dataType, digestInfo, algorithm, algorithmOid, digest, ignored;
    if (!reader.Next(kDerSequence, &data) || !reader.Next(kDerSequence, &digestInfo) ||
        !reader.AtEnd()) {
        return false;
    }
    DerReader dataParts(data);
    if (!dataParts.Next(kDerObject, &dataType) ||
        Whole(dataType) != EncodeOid(kSpcPeImageDataOid)) {
        return false;
    }
    DerReader digestParts(digestInfo);
    if (!digestParts.Next(kDerSequence, &algorithm) ||
        !digestParts.Next(kDerOctetString, &digest) || !digestParts.AtEnd()) {
        return false;
    }
    DerReader algorithmParts(algorithm);
    if (!algorithmParts.Next(kDerObject, &algorithmOid) ||
        (algorithmParts.PeekTag(kDerNull) &&
         (!algorithmParts.Next(kDerNull, &ignored) || ignored.contentSize != 0)) ||
        !algorithmParts.AtEnd()) {
        return false;
    }
    parsed->algorithm = Whole(algorithmOid);
    parsed->digest.assign(digest.content, digest.content + digest.contentSize);
    return true;
}

std::vector<std::uint8_t> MakeIndirectData(const IndirectDataDigest& digest) {
    // SpcPeImageData as Windows' own signing tools write it: no flags, and
    // the file link an "<<<Obsolete>>>" string in UTF-16BE.
    std::vector<std::uint8_t> obsolete;
    for (const char letter : std::string("<<<Obsolete>>>")) {
        obsolete.push_back(0);
        obsolete.push_back(static_cast<std::uint8_t>(letter));
    }
    const std::vector<std::uint8_t> link = EncodeDer(0xA2, EncodeDer(0x80, obsolete));
    std::vector<std::uint8_t> imageData = EncodeDer(kDerBitString, {0});
    const auto file = EncodeDer(kDerContext0, link);
    imageData.insert(imageData.end(), file.begin(), file.end());
    std::vector<std::uint8_t> data = EncodeOid(kSpcPeImageDataOid);
    const auto imageDataSequence = EncodeDer(kDerSequence, imageData);
    data.insert(data.end(), imageDataSequence.begin(), imageDataSequence.end());

    std::vector<std::uint8_t> algorithm = digest.algorithm;
    algorithm.push_back(kDerNull);
    algorithm.push_back(0);
    std::vector<std::uint8_t> digestInfo = EncodeDer(kDerSequence, algorithm);
    const auto value = EncodeDer(kDerOctetString, digest.digest);
    digestInfo.insert(digestInfo.end(), value.begin(), value.end());

    std::vector<std::uint8_t> content = EncodeDer(kDerSequence, data);
    const auto digestInfoSequence = EncodeDer(kDerSequence, digestInfo);
    content.insert(content.end(), digestInfoSequence.begin(), digestInfoSequence.end());
    return content;
}

std::vector<std::uint8_t> EncodeOid(const char* dotted) {
    core::OpenSslPtr<ASN1_OBJECT> object(OBJ_txt2obj(dotted, 1));
    unsigned char* encoded = nullptr;
    const int length = object ? i2d_ASN1_OBJECT(object.get(), &encoded) : 0;
    const core::OpenSslBytes owned(encoded);
    if (length <= 0) {
        return {};
    }
    return std::vector<std::uint8_t>(encoded, encoded + length);
}

}  // namespace vds::format
