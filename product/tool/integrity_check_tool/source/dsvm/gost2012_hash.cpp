#include "dsvm/gost2012_hash.h"

#include <memory>

#include "common/message_format.h"
#include "dsvm/dsvm.h"
#include "dsvm/exception.h"
#include "ruk/exception.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::dsvm {
namespace {

const char* CantInitialize() {
    return "Can't initialize DSVM2 library";
}
// The library's start only fails when the engine can't be loaded.
const char* EngineNotLoaded() {
    return "%1%: the GOST engine could not be loaded";
}
const char* CantCalculateHash() {
    return "Can't calculate hash";
}

constexpr std::size_t kBlockSize = 1024 * 1024;

void Check(DsvmResult result, const char* message) {
    if (result != DSVM_OK) {
        ICT_THROW(Exception(message, result));
    }
}

struct HashDeleter {
    void operator()(DsvmHash* hash) const { DsvmHashDestroy(hash); }
};

}  // namespace

Gost2012Hash::Gost2012Hash(TracerPtr tracer) : tracer_(std::move(tracer)) {}

Gost2012Hash::~Gost2012Hash() {
    if (initialized_) {
        DsvmRelease();
    }
}

void Gost2012Hash::Initialize() const {
    if (initialized_) {
        return;
    }
    const DsvmResult result = DsvmInitialize();
    if (result != DSVM_OK) {
        ICT_THROW(Exception(MessageFormat(EngineNotLoaded(), CantInitialize()), result));
    }
    initialized_ = true;
}

std::string Gost2012Hash::GetName() const {
    return "Gost2012Hash";
}

void Gost2012Hash::Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const {
    Initialize();
    DsvmHash* raw = nullptr;
    Check(DsvmHashCreate(&raw), CantCalculateHash());
    const std::unique_ptr<DsvmHash, HashDeleter> hash(raw);

    // The object's stream may be a registry value or a file; it is read to
    // its end one block at a time.
    const ruk::intrusive_ptr<ruk::IIO> io = object.GetData();
    RUK_CHECK(ReadBlocks(*io, kBlockSize, [&hash](const std::uint8_t* data, std::size_t count) {
        Check(DsvmHashUpdate(hash.get(), data, count), CantCalculateHash());
    }));
    std::vector<std::uint8_t> digest(DSVM_HASH_SIZE);
    Check(DsvmHashFinish(hash.get(), digest.data(), digest.size()), CantCalculateHash());
    value = std::move(digest);
}

}  // namespace integrity_check_tool::dsvm
