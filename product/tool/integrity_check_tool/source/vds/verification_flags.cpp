#include "vds/verification_flags.h"

#include "crypto/vds/service/service.h"

namespace integrity_check_tool::vds {

std::string VerificationFlagsToText(std::uint32_t flags) {
    // The service's table names two more bits and an unknown remainder; the
    // checker's vocabulary has neither: set bits without a name give no text.
    constexpr std::uint32_t kUnnamed = vdsFlagUnsigned | vdsFlagUntrustedRoot | ~0xFFFFFu;
    const std::uint32_t named = flags & ~kUnnamed;
    if (named == 0 && flags != 0) {
        return std::string();
    }
    return ::crypto::vds::service::VerificationFlagsText(named);
}

}  // namespace integrity_check_tool::vds
