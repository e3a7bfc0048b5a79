// Feeds arbitrary bytes to the generation-configuration reader: it must
// accept them or fail with its own exception, never crash or read astray.
#include <cstdint>
#include <string>

#include "common/exception.h"
#include "generate/generation_config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        integrity_check_tool::generate::ParseGenerationConfig(
            std::string(reinterpret_cast<const char*>(data), size), "/fuzz/generation.xml");
    } catch (const integrity_check_tool::Exception&) {
    }
    return 0;
}
