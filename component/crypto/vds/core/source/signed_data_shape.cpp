#include "signed_data_shape.h"

#include <algorithm>
#include <set>
#include <string>

namespace vds::core {
namespace {

constexpr std::uint8_t kInteger = 0x02;
constexpr std::uint8_t kOctetString = 0x04;
constexpr std::uint8_t kNull = 0x05;
constexpr std::uint8_t kObject = 0x06;
constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kSet = 0x31;
constexpr std::uint8_t kContext0 = 0xA0;
constexpr std::uint8_t kContext1 = 0xA1;

// One element: its tag, its whole encoding and its content.
struct Element {
    std::uint8_t tag = 0;
    const std::uint8_t* begin = nullptr;  // the tag
    const std::uint8_t* content = nullptr;
    std::size_t contentSize = 0;
    const std::uint8_t* end = nullptr;  // after the content
};

// Walks the elements of one content range; every read is bounded by it.
class Reader {
public:
    Reader(const std::uint8_t* begin, std::size_t size) : cursor_(begin), end_(begin + size) {}
    explicit Reader(const Element& element) : Reader(element.content, element.contentSize) {}

    bool AtEnd() const { return cursor_ == end_; }
    bool PeekTag(std::uint8_t tag) const { return !AtEnd() && *cursor_ == tag; }

    bool Next(std::uint8_t tag, Element* element) {
        if (!PeekTag(tag) || end_ - cursor_ < 2) {
            return false;
        }
        element->tag = tag;
        element->begin = cursor_;
        const std::uint8_t* at = cursor_ + 1;
        std::size_t length = *at++;
        if ((length & 0x80) != 0) {
            const std::size_t count = length & 0x7F;
            if (count == 0 || count > sizeof(std::size_t) ||
                static_cast<std::size_t>(end_ - at) < count) {
                return false;
            }
            length = 0;
            for (std::size_t index = 0; index < count; ++index) {
                length = (length << 8) | *at++;
            }
        }
        if (static_cast<std::size_t>(end_ - at) < length) {
            return false;
        }
        element->content = at;
        element->contentSize = length;
        element->end = at + length;
        cursor_ = element->end;
        return true;
    }

private:
    const std::uint8_t* cursor_;
    const std::uint8_t* end_;
};

bool IsVersionOne(const Element& version) {
    return version.contentSize == 1 && version.content[0] == 1;
}

// AlgorithmIdentifier: an OID and, at most, a NULL.
bool IsPlainAlgorithm(const Element& algorithm) {
    Reader reader(algorithm);
    Element part;
    if (!reader.Next(kObject, &part)) {
        return false;
    }
    if (reader.PeekTag(kNull) && (!reader.Next(kNull, &part) || part.contentSize != 0)) {
        return false;
    }
    return reader.AtEnd();
}

std::string Bytes(const Element& element) {
    return std::string(element.begin, element.end);
}

bool CheckSignerInfo(const Element& signerInfo, std::set<std::string>* digestAlgorithms) {
    Reader reader(signerInfo);
    Element version, sid, digest, attributes, signature, value;
    if (!reader.Next(kInteger, &version) || !IsVersionOne(version) ||
        !reader.Next(kSequence, &sid) || !reader.Next(kSequence, &digest) ||
        !IsPlainAlgorithm(digest) || !reader.Next(kContext0, &attributes) ||
        !reader.Next(kSequence, &signature) || !IsPlainAlgorithm(signature) ||
        !reader.Next(kOctetString, &value)) {
        return false;
    }
    digestAlgorithms->insert(Bytes(digest));
    return reader.AtEnd();  // no unsigned attributes
}

}  // namespace

bool HasStrictSignedDataShape(const std::uint8_t* der, std::size_t size) {
    Reader outer(der, size);
    Element contentInfo;
    if (!outer.Next(kSequence, &contentInfo) || !outer.AtEnd()) {
        return false;
    }
    Reader info(contentInfo);
    Element type, explicitContent, signedData;
    if (!info.Next(kObject, &type) || !info.Next(kContext0, &explicitContent) || !info.AtEnd()) {
        return false;
    }
    Reader wrapper(explicitContent);
    if (!wrapper.Next(kSequence, &signedData) || !wrapper.AtEnd()) {
        return false;
    }
    Reader body(signedData);
    Element version, digestAlgorithms, encapsulated, certificates, signerInfos;
    if (!body.Next(kInteger, &version) || !IsVersionOne(version) ||
        !body.Next(kSet, &digestAlgorithms) || !body.Next(kSequence, &encapsulated)) {
        return false;
    }
    if (body.PeekTag(kContext0) && !body.Next(kContext0, &certificates)) {
        return false;
    }
    if (body.PeekTag(kContext1) || !body.Next(kSet, &signerInfos) || !body.AtEnd()) {
        return false;
    }
    std::set<std::string> listed;
    Reader algorithms(digestAlgorithms);
    while (!algorithms.AtEnd()) {
        Element algorithm;
        if (!algorithms.Next(kSequence, &algorithm) || !IsPlainAlgorithm(algorithm) ||
            !listed.insert(Bytes(algorithm)).second) {
            return false;
        }
    }
    std::set<std::string> used;
    Reader signers(signerInfos);
    while (!signers.AtEnd()) {
        Element signerInfo;
        if (!signers.Next(kSequence, &signerInfo) || !CheckSignerInfo(signerInfo, &used)) {
            return false;
        }
    }
    return listed == used;
}

}  // namespace vds::core
