#include "signed_data_shape.h"

#include <algorithm>
#include <set>
#include <string>

#include "vds/der.h"

namespace vds::core {
namespace {

using format::DerElement;
using format::DerReader;
using format::kDerContext0;
using format::kDerContext1;
using format::kDerInteger;
using format::kDerNull;
using format::kDerObject;
using format::kDerOctetString;
using format::kDerSequence;
using format::kDerSet;

bool IsVersionOne(const DerElement& version) {
    return version.contentSize == 1 && version.content[0] == 1;
}

// AlgorithmIdentifier: an OID and, at most, a NULL.
bool IsPlainAlgorithm(const DerElement& algorithm) {
    DerReader reader(algorithm);
    DerElement part;
    if (!reader.Next(kDerObject, &part)) {
        return false;
    }
    if (reader.PeekTag(kDerNull) && (!reader.Next(kDerNull, &part) || part.contentSize != 0)) {
        return false;
    }
    return reader.AtEnd();
}

std::string Bytes(const DerElement& element) {
    return std::string(element.begin, element.end);
}

// Unsigned attributes: each an OID the caller allows, with a SET of values.
bool AllowedUnsignedAttributes(const DerElement& attributes,
                               const std::vector<std::string>& allowedOids) {
    DerReader reader(attributes);
    while (!reader.AtEnd()) {
        DerElement attribute, type, values;
        if (!reader.Next(kDerSequence, &attribute)) {
            return false;
        }
        DerReader parts(attribute);
        if (!parts.Next(kDerObject, &type) || !parts.Next(kDerSet, &values) || !parts.AtEnd() ||
            std::find(allowedOids.begin(), allowedOids.end(), Bytes(type)) == allowedOids.end()) {
            return false;
        }
    }
    return true;
}

bool CheckSignerInfo(const DerElement& signerInfo, const std::vector<std::string>& allowedUnsigned,
                     std::set<std::string>* digestAlgorithms) {
    DerReader reader(signerInfo);
    DerElement version, sid, digest, attributes, signature, value;
    if (!reader.Next(kDerInteger, &version) || !IsVersionOne(version) ||
        !reader.Next(kDerSequence, &sid) || !reader.Next(kDerSequence, &digest) ||
        !IsPlainAlgorithm(digest) || !reader.Next(kDerContext0, &attributes) ||
        !reader.Next(kDerSequence, &signature) || !IsPlainAlgorithm(signature) ||
        !reader.Next(kDerOctetString, &value)) {
        return false;
    }
    digestAlgorithms->insert(Bytes(digest));
    DerElement unsignedAttributes;
    if (reader.PeekTag(kDerContext1) &&
        (allowedUnsigned.empty() || !reader.Next(kDerContext1, &unsignedAttributes) ||
         !AllowedUnsignedAttributes(unsignedAttributes, allowedUnsigned))) {
        return false;
    }
    return reader.AtEnd();
}

}  // namespace

bool HasStrictSignedDataShape(const std::uint8_t* der, std::size_t size,
                              const std::vector<std::string>& allowedUnsigned) {
    DerReader outer(der, size);
    DerElement contentInfo;
    if (!outer.Next(kDerSequence, &contentInfo) || !outer.AtEnd()) {
        return false;
    }
    DerReader info(contentInfo);
    DerElement type, explicitContent, signedData;
    if (!info.Next(kDerObject, &type) || !info.Next(kDerContext0, &explicitContent) ||
        !info.AtEnd()) {
        return false;
    }
    DerReader wrapper(explicitContent);
    if (!wrapper.Next(kDerSequence, &signedData) || !wrapper.AtEnd()) {
        return false;
    }
    DerReader body(signedData);
    DerElement version, digestAlgorithms, encapsulated, certificates, signerInfos;
    if (!body.Next(kDerInteger, &version) || !IsVersionOne(version) ||
        !body.Next(kDerSet, &digestAlgorithms) || !body.Next(kDerSequence, &encapsulated)) {
        return false;
    }
    if (body.PeekTag(kDerContext0) && !body.Next(kDerContext0, &certificates)) {
        return false;
    }
    if (body.PeekTag(kDerContext1) || !body.Next(kDerSet, &signerInfos) || !body.AtEnd()) {
        return false;
    }
    std::set<std::string> listed;
    DerReader algorithms(digestAlgorithms);
    while (!algorithms.AtEnd()) {
        DerElement algorithm;
        if (!algorithms.Next(kDerSequence, &algorithm) || !IsPlainAlgorithm(algorithm) ||
            !listed.insert(Bytes(algorithm)).second) {
            return false;
        }
    }
    std::set<std::string> used;
    DerReader signers(signerInfos);
    while (!signers.AtEnd()) {
        DerElement signerInfo;
        if (!signers.Next(kDerSequence, &signerInfo) ||
            !CheckSignerInfo(signerInfo, allowedUnsigned, &used)) {
            return false;
        }
    }
    return listed == used;
}

}  // namespace vds::core
