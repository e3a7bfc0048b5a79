// Feeds arbitrary files to the storage container reader and what it yields to
// the revocation-container parser of the VDS core.
#include <cstdint>
#include <vector>

#include "ruk/io.h"
#include "storage/storage.h"
#include "vds/vds_core.h"

namespace {

void LoadRevocationContainer(const std::vector<std::uint8_t>& content) {
    const VdsBlob blob{content.data(), content.size()};
    VdsRevocationContainer* container = nullptr;
    if (VdsRevocationLoadContainer(&blob, &container) != vdsOk) {
        return;
    }
    std::size_t count = 0;
    VdsRevocationGetDatabaseCount(container, &count);
    for (std::size_t index = 0; index < count; ++index) {
        const VdsRevocationDatabase* database = nullptr;
        VdsLoadedRevocationDb* loaded = nullptr;
        VdsBlob id{};
        VdsRevocationDbInfo info{};
        if (VdsRevocationGetDatabase(container, index, &database) == vdsOk &&
            VdsRevocationGetHierarchyId(database, &id) == vdsOk &&
            VdsRevocationGetDbInfo(database, &info) == vdsOk &&
            VdsRevocationLoadDb(database, index, nullptr, &loaded) == vdsOk) {
            VdsRevocationChecker* checker = nullptr;
            const VdsLoadedRevocationDb* const databases[] = {loaded};
            if (VdsCreateRevocationChecker(databases, 1, &checker) == vdsOk) {
                VdsReleaseRevocationChecker(checker);
            }
            VdsRevocationReleaseDb(loaded);
        }
    }
    VdsRevocationReleaseContainer(container);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool initialized = VdsInitializeLibrary() == vdsOk;
    if (!initialized) {
        __builtin_trap();
    }
    storage::IContainerPtr container;
    if (storage::OpenContainerFromStream(ruk::CreateMemoryIO({data, data + size}), &container) !=
        ruk::result::Success) {
        return 0;
    }
    std::uint64_t contentSize = 0;
    container->GetSize(&contentSize);
    // Read in pieces, as far as the container lets us; never more than it claims.
    std::vector<std::uint8_t> content;
    std::uint8_t block[4096];
    for (;;) {
        std::size_t read = 0;
        const ruk::result_t code = container->Read(block, sizeof(block), &read);
        content.insert(content.end(), block, block + read);
        if (content.size() > contentSize) {
            __builtin_trap();
        }
        if (ruk::Failed(code)) {
            return 0;
        }
        if (read < sizeof(block)) {
            break;
        }
    }
    if (content.size() != contentSize) {
        __builtin_trap();  // a successful read must deliver the declared size
    }
    LoadRevocationContainer(content);
    return 0;
}
