#include "openssl/sha256.h"

#include <openssl/evp.h>

#include "common/exception.h"
#include "common/message_format.h"
#include "openssl/digest.h"
#include "ruk/exception.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::openssl {
namespace {

constexpr std::size_t kBlockSize = 1024 * 1024;

const char* AlgorithmUnavailable() {
    return "OpenSSL has no %1% algorithm. Reason: %2%";
}

// Fetched once: an implicit fetch on every initialisation costs more than
// hashing a small file.
const EVP_MD* GetAlgorithm() {
    static EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    if (algorithm == nullptr) {
        ICT_THROW(Exception(MessageFormat(AlgorithmUnavailable(), "SHA256", TakeOpenSslError())));
    }
    return algorithm;
}

}  // namespace

std::string Sha256::GetName() const {
    return "Sha256";
}

void Sha256::Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const {
    Digest digest(GetAlgorithm(), nullptr);
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
