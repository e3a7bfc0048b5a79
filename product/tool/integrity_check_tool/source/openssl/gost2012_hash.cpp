#include "openssl/gost2012_hash.h"

#include "openssl/digest.h"
#include "openssl/gost_engine.h"
#include "ruk/exception.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::openssl {
namespace {

constexpr std::size_t kBlockSize = 1024 * 1024;

}  // namespace

Gost2012Hash::Gost2012Hash(TracerPtr tracer) : tracer_(std::move(tracer)) {}

std::string Gost2012Hash::GetName() const {
    return "Gost2012Hash";
}

void Gost2012Hash::Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const {
    const GostDigest gost = GetGost2012_256Digest();
    Digest digest(gost.algorithm, gost.engine);
    const ruk::intrusive_ptr<ruk::IIO> io = object.GetData();
    const ruk::result_t result = ReadBlocks(
        *io, kBlockSize,
        [&digest](const std::uint8_t* data, std::size_t size) { digest.Update(data, size); });
    if (ruk::Failed(result)) {
        RUK_THROW_RESULT(result);
    }
    value = digest.Final();
}

}  // namespace integrity_check_tool::openssl
