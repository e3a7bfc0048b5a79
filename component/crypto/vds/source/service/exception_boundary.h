#pragma once

#include <cstring>
#include <exception>
#include <new>

#include "ruk/exception.h"
#include "ruk/result.h"
#include "service/log.h"

namespace crypto::vds::service {

// Runs the body of a service operation: an exception never leaves the
// service; it is logged "Exception managed!" and becomes a result code.
template <typename Body>
ruk::result_t ManageExceptions(const char* function, Body&& body) noexcept {
    ruk::result_t code = ruk::result::Fail;
    // Copied without allocating: the exception is gone after its handler.
    char reason[256] = "unknown exception";
    auto keep = [&reason](const char* text) {
        std::strncpy(reason, text, sizeof(reason) - 1);
        reason[sizeof(reason) - 1] = '\0';
    };
    try {
        return body();
    } catch (const ruk::ResultException& error) {
        code = error.GetCode();
        keep(error.what());
    } catch (const std::bad_alloc&) {
        code = ruk::result::OutOfMemory;
        keep("out of memory");
    } catch (const std::exception& error) {
        keep(error.what());
    } catch (...) {
    }
    try {
        Log(function, "Exception managed! (", reason, ")");
    } catch (...) {
        // Nothing more can be said when even the log line cannot be made.
    }
    return code;
}

}  // namespace crypto::vds::service
