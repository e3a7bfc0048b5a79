// Feeds arbitrary objects to the VDS core: the trailer, the CMS parser, the
// signed attributes and the chain checks must refuse anything malformed
// without reading outside the object.
#include "fuzz_input.h"
#include "vds/vds_core.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Object {
    const std::uint8_t* data;
    std::size_t size;
};

bool Read(void* context, std::uint64_t offset, void* buffer, std::size_t size, std::size_t* read) {
    const auto* object = static_cast<const Object*>(context);
    ict_fuzz::CopyInside(object->data, object->size, offset, buffer, size);
    *read = size;
    return true;
}

VdsVerifier* MakeVerifier() {
    if (VdsInitializeLibrary() != vdsOk) {
        __builtin_trap();
    }
    std::vector<Bytes> roots;
    for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
        roots.push_back(
            ict_fuzz::ReadSourceFile("trust/development/roots/" + std::string(name) + ".der"));
    }
    std::vector<VdsBlob> blobs;
    for (const auto& root : roots) {
        blobs.push_back({root.data(), root.size()});
    }
    VdsVerifier* verifier = nullptr;
    if (VdsCreateVerifier_Ex(blobs.data(), blobs.size(), nullptr, nullptr, &verifier) != vdsOk) {
        __builtin_trap();
    }
    return verifier;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static VdsVerifier* const verifier = MakeVerifier();
    Object object{data, size};
    const VdsReadCallback callback{&object, &Read, size};
    static const std::uint8_t kPurpose[] = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x83, 0xD4,
                                            0x5F, 0x0A, 0x02, 0x01, 0x01, 0x01};
    const VdsBlob purpose{kPurpose, sizeof(kPurpose)};
    VdsVerificationResultData result{};
    const VdsResult code = VdsVerifyObjectByCallback_Ex(verifier, &callback, &purpose, &result);
    if ((code == vdsOk || code == vdsErrUntrusted) &&
        result.checkedContentSize + result.signatureContainerSize > size) {
        __builtin_trap();  // a result never claims more bytes than the object has
    }
    static const std::uint8_t kName[] = {'a', 0, 0, 0};
    const VdsBlob name{kName, sizeof(kName)};
    VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier, &callback, &name, &purpose,
                                                      &result);
    return 0;
}
