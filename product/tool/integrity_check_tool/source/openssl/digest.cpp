#include "openssl/digest.h"

#include <string>

#include <openssl/evp.h>

#include "common/exception.h"
#include "common/message_format.h"
#include "openssl_support/error_text.h"

namespace integrity_check_tool::openssl {
namespace {

const char* DigestFailed() {
    return "Can't compute %1% digest. Reason: %2%";
}

std::string AlgorithmName(const EVP_MD* algorithm) {
    const char* name = algorithm == nullptr ? nullptr : EVP_MD_get0_name(algorithm);
    return name == nullptr ? "unknown" : name;
}

}  // namespace

std::string TakeOpenSslError() {
    return openssl_support::TakeErrorText("unknown");
}

Digest::Digest(const EVP_MD* algorithm, ENGINE* engine)
    : algorithm_(algorithm), context_(EVP_MD_CTX_new()) {
    if (context_ == nullptr || EVP_DigestInit_ex(context_, algorithm_, engine) != 1) {
        const std::string reason = TakeOpenSslError();
        EVP_MD_CTX_free(context_);
        ICT_THROW(Exception(MessageFormat(DigestFailed(), AlgorithmName(algorithm_), reason)));
    }
}

Digest::~Digest() {
    EVP_MD_CTX_free(context_);
}

void Digest::Update(const void* data, std::size_t size) {
    if (EVP_DigestUpdate(context_, data, size) != 1) {
        ICT_THROW(Exception(
            MessageFormat(DigestFailed(), AlgorithmName(algorithm_), TakeOpenSslError())));
    }
}

std::vector<std::uint8_t> Digest::Final() {
    std::vector<std::uint8_t> value(EVP_MAX_MD_SIZE);
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context_, value.data(), &size) != 1) {
        ICT_THROW(Exception(
            MessageFormat(DigestFailed(), AlgorithmName(algorithm_), TakeOpenSslError())));
    }
    value.resize(size);
    return value;
}

}  // namespace integrity_check_tool::openssl
