#include "common/exception.h"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>

namespace integrity_check_tool {

Exception::Exception(std::string message) : message_(std::move(message)) {
    *this << Description(message_);
}

const char* Exception::what() const noexcept {
    return message_.c_str();
}

std::string CurrentExceptionText() {
    try {
        throw;
    } catch (const Exception& error) {
        return error.GetMessage();
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "Unknown exception.";
    }
}

std::string CurrentExceptionContext() {
    try {
        throw;
    } catch (const boost::exception& error) {
        const std::string* context = boost::get_error_info<ErrorContextInfo>(error);
        return context != nullptr ? *context : std::string();
    } catch (...) {
        return std::string();
    }
}

std::string CurrentExceptionDiagnostic() {
    return boost::current_exception_diagnostic_information();
}

}  // namespace integrity_check_tool
