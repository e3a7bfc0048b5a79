#include "catalog.h"

#include <algorithm>
#include <cstring>

#include <openssl/objects.h>

#include "object_reader.h"
#include "vds/catalog_format.h"

namespace vds::core {
namespace {

std::uint32_t LoadLittleEndian32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

}  // namespace

bool Catalog::Contains(const std::vector<std::uint8_t>& digest) const {
    return std::binary_search(digests.begin(), digests.end(), digest);
}

bool Catalog::Grants(const VdsBlob& purpose) const {
    if (purpose.size == 0) {
        return true;
    }
    return std::any_of(purposes.begin(), purposes.end(), [&](const auto& oid) {
        return oid.size() == purpose.size && std::memcmp(oid.data(), purpose.data, oid.size()) == 0;
    });
}

VdsResult ParseCatalog(const std::uint8_t* data, std::size_t size, Catalog* catalog) {
    const auto& magic = format::kCatalogMagic;
    std::size_t position = 0;
    auto remaining = [&] { return size - position; };
    if (size < magic.size() + 5 || !std::equal(magic.begin(), magic.end(), data)) {
        return vdsErrInvalidFormat;
    }
    position = magic.size();
    if (LoadLittleEndian32(data + position) != format::kCatalogVersion) {
        return vdsErrInvalidFormat;
    }
    position += 4;
    const std::size_t nameLength = data[position++];
    if (nameLength == 0 || nameLength > format::kMaxCatalogAlgorithmName ||
        remaining() < nameLength + 4) {
        return vdsErrInvalidFormat;
    }
    const std::string name(reinterpret_cast<const char*>(data + position), nameLength);
    position += nameLength;
    const EVP_MD* algorithm = AcceptedDigest(OBJ_sn2nid(name.c_str()));
    if (algorithm == nullptr) {
        return vdsErrInvalidFormat;
    }
    const std::uint32_t count = LoadLittleEndian32(data + position);
    position += 4;
    const auto digestSize = static_cast<std::size_t>(EVP_MD_get_size(algorithm));
    if (digestSize == 0 || remaining() / digestSize < count ||
        remaining() != static_cast<std::size_t>(count) * digestSize) {
        return vdsErrInvalidFormat;
    }
    catalog->algorithm = algorithm;
    catalog->algorithmName = name;
    catalog->digests.clear();
    catalog->digests.reserve(count);
    for (std::uint32_t index = 0; index < count; ++index) {
        catalog->digests.emplace_back(data + position, data + position + digestSize);
        position += digestSize;
    }
    std::sort(catalog->digests.begin(), catalog->digests.end());
    return vdsOk;
}

}  // namespace vds::core
