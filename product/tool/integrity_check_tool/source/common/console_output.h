#pragma once

#include <iostream>
#include <memory>
#include <string>

namespace integrity_check_tool {

// What the user reads: kind 0 to standard output, kind 1 to standard error,
// kind 2 to standard output only when verbose; other kinds are dropped.
class ConsoleOutput {
public:
    enum Kind : int { Result = 0, Error = 1, Verbose = 2 };

    explicit ConsoleOutput(bool verbose, std::ostream& out = std::cout,
                           std::ostream& err = std::cerr);

    bool IsVerbose() const { return verbose_; }
    // Writes the text and a line end.
    void Write(int kind, const std::string& text);

private:
    bool verbose_;
    std::ostream& out_;
    std::ostream& err_;
};

using ConsoleOutputPtr = std::shared_ptr<ConsoleOutput>;

}  // namespace integrity_check_tool
