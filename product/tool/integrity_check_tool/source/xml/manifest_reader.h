#pragma once

#include <tinyxml.h>

#include "manifest/manifest.h"

namespace integrity_check_tool::xml {

// Builds the model from a parsed document of either dialect: "Manifest" (at
// the top or inside "Config") first, else a top-level "IntegrityManifest";
// Exception "XML node Manifest is absent" when neither is there. Records are
// not yet tied to an environment.
ManifestPtr ReadManifest(const TiXmlDocument& document);

// The two dialects, from their root elements.
ManifestPtr ReadCurrentManifest(const TiXmlElement& root);
ManifestPtr ReadLegacyManifest(const TiXmlElement& root);

}  // namespace integrity_check_tool::xml
