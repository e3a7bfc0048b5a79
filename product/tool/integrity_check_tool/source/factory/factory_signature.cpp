#include <cstdint>

#include "arguments/checker.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "dsvm/gost2012_signature_verifier.h"
#include "factory/factory.h"
#include "signature/without_signature_verifier.h"
#include "vds/verifier.h"

namespace integrity_check_tool {
namespace {

const char* UnknownSignatureType() {
    return "Unknown signature type %1%";
}
const char* NoArguments() {
    return "No checker arguments to choose a signature verifier from";
}

// One helper per verifier, so that each can be replaced on its own.

ISignatureVerifierPtr CreateWithoutSignatureVerifier() {
    return std::make_shared<WithoutSignatureVerifier>();
}

ISignatureVerifierPtr CreateGost2012Verifier(const TracerPtr& tracer, bool releaseKeys) {
    return std::make_shared<dsvm::Gost2012SignatureVerifier>(tracer, releaseKeys);
}

ISignatureVerifierPtr CreateVdsVerifier(const TracerPtr& tracer, const CheckerArguments& arguments,
                                        bool bindFileName) {
    return std::make_shared<vds::VdsSignatureVerifier>(tracer, arguments.GetTrustedRoots(),
                                                       arguments.GetCrlPath(), bindFileName);
}

}  // namespace

ISignatureVerifierPtr Factory::CreateSignatureVerifier() const {
    if (!arguments_) {
        ICT_THROW(Exception(NoArguments()));
    }
    // With checking disabled the signature type does not matter, even an unknown one.
    if (arguments_->GetSignatureCheckingMode() == SignatureCheckingMode::Disabled) {
        return CreateWithoutSignatureVerifier();
    }
    const SignatureType type = arguments_->GetSignatureType();
    switch (type) {
        case SignatureType::Dsvm2:
            return CreateGost2012Verifier(
                tracer_, arguments_->GetSignatureCheckingMode() == SignatureCheckingMode::Release);
        case SignatureType::Vds:
        case SignatureType::VdsWithFilename:
            return CreateVdsVerifier(tracer_, *arguments_, type != SignatureType::Vds);
    }
    ICT_THROW(Exception(MessageFormat(UnknownSignatureType(), static_cast<std::uint32_t>(type))));
}

}  // namespace integrity_check_tool
