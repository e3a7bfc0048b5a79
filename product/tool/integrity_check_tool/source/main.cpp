#include <memory>

#include "arguments/checker.h"
#include "program_main.h"

int main(int argc, char* argv[]) {
    auto arguments = std::make_shared<integrity_check_tool::CheckerArguments>();
    return integrity_check_tool::RunProgramMain(argc, argv, arguments, arguments);
}
