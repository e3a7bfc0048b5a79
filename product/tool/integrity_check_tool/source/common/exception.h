#pragma once

#include <exception>
#include <string>

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>

namespace integrity_check_tool {

// The message of a reportable failure, shown by Boost's diagnostic print.
using Description = boost::error_info<struct TagDescription, std::string>;

// A line that says where a failure happened (which file, which row), shown
// on its own line before the failure's own line, which keeps its text.
using ErrorContextInfo = boost::error_info<struct TagErrorContext, std::string>;

// The tool's one exception for reportable failures: one formatted message,
// thrown with its location through ICT_THROW so that the diagnostic print
// names the function, file and line.
class Exception : public virtual std::exception, public virtual boost::exception {
public:
    explicit Exception(std::string message);
    const char* what() const noexcept override;
    const std::string& GetMessage() const noexcept { return message_; }

private:
    std::string message_;
};

// The text the tool shows for the exception being handled: the message of
// our own exceptions, what() of other standard exceptions, "Unknown
// exception." for anything else. Call only inside a catch block.
std::string CurrentExceptionText();

// The ErrorContextInfo line of the exception being handled, or "" when it has
// none. Call only inside a catch block.
std::string CurrentExceptionContext();

// Boost's full diagnostic rendering of the exception being handled.
std::string CurrentExceptionDiagnostic();

}  // namespace integrity_check_tool

// Throws `exception` (an Exception or a type derived from it) with the
// current function, file and line.
#define ICT_THROW(exception) BOOST_THROW_EXCEPTION(exception)
