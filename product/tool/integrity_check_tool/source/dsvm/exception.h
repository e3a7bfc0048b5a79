#pragma once

#include <cstdint>
#include <string>

#include <boost/exception/info.hpp>

#include "common/exception.h"

namespace integrity_check_tool::dsvm {

// The DSVM result code of a failure, shown by the diagnostic print.
using DsvmResultCode = boost::error_info<struct TagDsvmResultCode, std::uint32_t>;

// A failed DSVM step: the step's message followed by the library's result
// code and, when the library knows it, the code's text.
class Exception : public integrity_check_tool::Exception {
public:
    Exception(const std::string& message, std::uint32_t code);
    std::uint32_t GetCode() const noexcept { return code_; }

private:
    std::uint32_t code_;
};

// "0x38F3542D: <text>", or only the code when the library has no text for it.
std::string DescribeResult(std::uint32_t code);

}  // namespace integrity_check_tool::dsvm
