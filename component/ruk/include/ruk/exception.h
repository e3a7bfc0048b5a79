#pragma once

#include <exception>
#include <string>

#include <boost/exception/exception.hpp>
#include <boost/exception/info.hpp>
#include <boost/throw_exception.hpp>

#include "ruk/result.h"

namespace ruk {

using ResultCodeInfo = boost::error_info<struct TagResultCode, result_t>;

// A failed framework call, carrying its result code and (through
// BOOST_THROW_EXCEPTION) the throw location.
class ResultException : public virtual std::exception, public virtual boost::exception {
public:
    explicit ResultException(result_t code);
    result_t GetCode() const noexcept { return code_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    result_t code_;
    std::string text_;
};

// The framework's assertion: "Expression failed" with the source file label
// and line that named the failing step.
class AssertionFailed : public virtual std::exception, public virtual boost::exception {
public:
    AssertionFailed(const char* expression, const char* file, int line);
    const char* what() const noexcept override { return text_.c_str(); }
    const std::string& GetFile() const noexcept { return file_; }
    int GetLine() const noexcept { return line_; }

private:
    std::string file_;
    int line_;
    std::string text_;
};

[[noreturn]] void ThrowResult(result_t code, const char* function, const char* file, int line);
[[noreturn]] void ThrowAssertion(const char* expression, const char* file, int line,
                                 const char* function);

}  // namespace ruk

// Throws ruk::ResultException for `code` with the current location.
#define RUK_THROW_RESULT(code) \
    ::ruk::ThrowResult((code), BOOST_CURRENT_FUNCTION, __FILE__, __LINE__)

// Evaluates a framework call and throws its result when it failed.
#define RUK_CHECK(expr)                           \
    do {                                          \
        const ::ruk::result_t ruk_result_ = (expr); \
        if (::ruk::Failed(ruk_result_)) {         \
            RUK_THROW_RESULT(ruk_result_);        \
        }                                         \
    } while (false)

// "Expression failed" naming an explicit source label and line, for steps
// whose reported location is part of the program's documented output.
#define RUK_ASSERT_AT(cond, fileLabel, lineNumber)                                      \
    do {                                                                                \
        if (!(cond)) {                                                                  \
            ::ruk::ThrowAssertion(#cond, (fileLabel), (lineNumber), BOOST_CURRENT_FUNCTION); \
        }                                                                               \
    } while (false)

#define RUK_ASSERT(cond) RUK_ASSERT_AT(cond, __FILE__, __LINE__)
