#include "common/version.h"

#include <mutex>

#include "common/exception.h"
#include "common/message_format.h"
#include "platform/program.h"

namespace integrity_check_tool {
namespace {

const char* CantReadProductVersion() {
    return "Can't read the product version. Reason: %1%";
}

struct ProductVersion {
    std::string version;
    std::string error;  // set when the read failed
};

}  // namespace

const std::string& GetProductVersion() {
    static std::once_flag once;
    static ProductVersion product;
    // The read itself never throws out of call_once: some runtimes do not
    // reset the flag reliably when the callable throws.
    std::call_once(once, [] {
        try {
            product.version = platform::ReadProductVersion();
        } catch (...) {
            product.error = CurrentExceptionText();
        }
    });
    if (!product.error.empty()) {
        ICT_THROW(Exception(MessageFormat(CantReadProductVersion(), product.error)));
    }
    return product.version;
}

}  // namespace integrity_check_tool
