#pragma once

#include <string>

#include "manifest/manifest.h"

namespace integrity_check_tool::xml {

// The manifest as a document of the current dialect: an XML declaration,
// then "Manifest" with its environments, files, directories and registry
// keys; four spaces of indentation and "\n" line breaks.
std::string PrintManifestXml(const Manifest& manifest);

}  // namespace integrity_check_tool::xml
