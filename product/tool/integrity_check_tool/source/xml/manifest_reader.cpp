#include "xml/manifest_reader.h"

#include "xml/errors.h"

namespace integrity_check_tool::xml {

ManifestPtr ReadManifest(const TiXmlDocument& document) {
    const TiXmlNode* parent = document.FirstChildElement("Config");
    if (parent == nullptr) {
        parent = &document;
    }
    if (const TiXmlElement* root = parent->FirstChildElement("Manifest")) {
        return ReadCurrentManifest(*root);
    }
    // The older dialect never had the wrapper.
    if (const TiXmlElement* root = document.FirstChildElement("IntegrityManifest")) {
        return ReadLegacyManifest(*root);
    }
    ThrowNodeAbsent("Manifest");
}

}  // namespace integrity_check_tool::xml
