#pragma once

#include <cstdint>
#include <memory>

#include <openssl/x509.h>

#include "vds/vds_types.h"

namespace vds::core {

// Parses one DER certificate that fills the range exactly; a self-issued
// certificate must verify with its own key. Null with the reason otherwise.
std::shared_ptr<X509> ParseCertificate(const std::uint8_t* der, std::size_t size,
                                       VdsResult* result);

}  // namespace vds::core
