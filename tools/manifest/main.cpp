// integrity_manifest: generates, normalizes and hashes for integrity_checker,
// through the checker's own application, factory and actions.
#include <memory>

#include "manifest_arguments.h"
#include "program_main.h"

int main(int argc, char* argv[]) {
    // No checker arguments: this program never verifies.
    return integrity_check_tool::RunProgramMain(
        argc, argv, std::make_shared<integrity_check_tool::ManifestToolArguments>(), nullptr);
}
