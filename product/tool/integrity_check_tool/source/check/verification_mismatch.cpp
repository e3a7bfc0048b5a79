#include "check/verification_mismatch.h"

#include "common/message_format.h"

namespace integrity_check_tool::check {
namespace {

const char* MismatchMessage() {
    return "Verification mismatch with '%1%' checker. Reason: %2%";
}

}  // namespace

VerificationMismatch::VerificationMismatch(CheckType type, const std::string& reason)
    : Exception(MessageFormat(MismatchMessage(), ToName(type), reason)) {}

}  // namespace integrity_check_tool::check
