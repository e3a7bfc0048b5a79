#include "platform/console_text.h"

#include <iostream>
#include <streambuf>
#include <string>

#include <windows.h>

namespace integrity_check_tool::platform {
namespace {

// Collects a stream's bytes and hands them to the console as UTF-16 at each
// line end and flush, so a character is never split between two writes.
class ConsoleCharacterBuffer : public std::streambuf {
public:
    explicit ConsoleCharacterBuffer(HANDLE console) : console_(console) {}

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) {
            return traits_type::not_eof(c);
        }
        pending_.push_back(traits_type::to_char_type(c));
        if (c == '\n') {
            Flush();
        }
        return c;
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override {
        pending_.append(text, static_cast<std::size_t>(count));
        if (pending_.find('\n') != std::string::npos) {
            Flush();
        }
        return count;
    }

    int sync() override {
        Flush();
        return 0;
    }

private:
    void Flush() {
        // A lead byte of a double-byte code page waits for its trail byte.
        std::size_t complete = pending_.size();
        std::size_t index = 0;
        while (index < pending_.size()) {
            if (::IsDBCSLeadByte(static_cast<BYTE>(pending_[index])) != 0) {
                if (index + 1 == pending_.size()) {
                    complete = index;
                    break;
                }
                index += 2;
            } else {
                ++index;
            }
        }
        if (complete == 0) {
            return;
        }
        const int length = ::MultiByteToWideChar(CP_ACP, 0, pending_.data(),
                                                 static_cast<int>(complete), nullptr, 0);
        std::wstring wide(static_cast<std::size_t>(length > 0 ? length : 0), L'\0');
        if (length > 0) {
            ::MultiByteToWideChar(CP_ACP, 0, pending_.data(), static_cast<int>(complete),
                                  wide.data(), length);
        }
        const wchar_t* next = wide.data();
        std::size_t left = wide.size();
        while (left > 0) {
            DWORD written = 0;
            const DWORD chunk = static_cast<DWORD>(left < 16384 ? left : 16384);
            if (::WriteConsoleW(console_, next, chunk, &written, nullptr) == 0 || written == 0) {
                break;  // A console that refuses text: nothing better to do with it.
            }
            next += written;
            left -= written;
        }
        pending_.erase(0, complete);
    }

    HANDLE console_;
    std::string pending_;
};

void Redirect(std::ostream& stream, DWORD which) {
    const HANDLE handle = ::GetStdHandle(which);
    DWORD mode = 0;
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE ||
        ::GetConsoleMode(handle, &mode) == 0) {
        return;  // A pipe or a file: its reader expects the bytes.
    }
    stream.flush();
    // Never freed: the streams are flushed once more at exit, after statics are gone.
    stream.rdbuf(new ConsoleCharacterBuffer(handle));
}

}  // namespace

void ShowTextOnConsoleAsCharacters() {
    Redirect(std::cout, STD_OUTPUT_HANDLE);
    Redirect(std::cerr, STD_ERROR_HANDLE);
}

}  // namespace integrity_check_tool::platform
