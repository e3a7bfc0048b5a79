#include "dsvm/exception.h"

#include <iomanip>
#include <sstream>

#include "common/message_format.h"
#include "dsvm/dsvm.h"

namespace integrity_check_tool::dsvm {
namespace {

const char* ResultWithText() {
    return "0x%1%: %2%";
}
const char* ResultWithoutText() {
    return "0x%1%";
}
const char* MessageWithResult() {
    return "%1% (DSVM result %2%)";
}

std::string Hex(std::uint32_t code) {
    std::ostringstream text;
    text << std::uppercase << std::hex << std::setw(8) << std::setfill('0') << code;
    return text.str();
}

}  // namespace

std::string DescribeResult(std::uint32_t code) {
    const char* text = DsvmGetResultText(code);
    return text != nullptr ? MessageFormat(ResultWithText(), Hex(code), text)
                           : MessageFormat(ResultWithoutText(), Hex(code));
}

Exception::Exception(const std::string& message, std::uint32_t code)
    : integrity_check_tool::Exception(
          MessageFormat(MessageWithResult(), message, DescribeResult(code))),
      code_(code) {
    *this << DsvmResultCode(code);
}

}  // namespace integrity_check_tool::dsvm
