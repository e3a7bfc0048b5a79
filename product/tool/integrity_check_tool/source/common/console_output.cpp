#include "common/console_output.h"

namespace integrity_check_tool {

ConsoleOutput::ConsoleOutput(bool verbose, std::ostream& out, std::ostream& err)
    : verbose_(verbose), out_(out), err_(err) {}

void ConsoleOutput::Write(int kind, const std::string& text) {
    switch (kind) {
        case Result:
            out_ << text << '\n';
            break;
        case Error:
            // Errors interleave correctly with results only when stdout is flushed first.
            out_.flush();
            err_ << text << '\n';
            err_.flush();
            break;
        case Verbose:
            if (verbose_) {
                out_ << text << '\n';
            }
            break;
        default:
            break;
    }
}

}  // namespace integrity_check_tool
