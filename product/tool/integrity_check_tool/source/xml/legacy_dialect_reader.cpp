#include <memory>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "xml/attributes.h"
#include "xml/errors.h"
#include "xml/manifest_reader.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

std::string GetText(const TiXmlElement& element) {
    const char* text = element.GetText();
    return text != nullptr ? std::string(text) : std::string();
}

CheckType ReadHashAlgorithm(const TiXmlElement& element) {
    const std::string algorithm = GetAttribute(element, "algorithm");
    if (algorithm == "GOST_34.12-2012") {
        return CheckType::Gost2012;
    }
    if (algorithm == "SHA256") {
        return CheckType::Sha256;
    }
    ThrowAttrInvalidValue("algorithm", algorithm);
}

std::unique_ptr<FileInfo> ReadLegacyFile(const TiXmlElement& element) {
    auto file = std::make_unique<FileInfo>();
    file->filter = ReadLegacyFilter(element);
    if (const TiXmlElement* path = element.FirstChildElement("Path")) {
        file->path = PathFromUtf8(GetText(*path));
    }
    for (const TiXmlElement* hash = element.FirstChildElement("Hash"); hash != nullptr;
         hash = hash->NextSiblingElement("Hash")) {
        CheckInfo check;
        check.type = ReadHashAlgorithm(*hash);
        check.value = DecodeBase64(GetText(*hash));
        file->checks.push_back(std::move(check));
    }
    return file;
}

}  // namespace

ManifestPtr ReadLegacyManifest(const TiXmlElement& root) {
    auto manifest = std::make_unique<Manifest>();
    // Lower-case "t": the older name, not the current "generationDateTime".
    manifest->generationDateTime = GetAttribute(root, "generationDatetime");
    for (const TiXmlElement* element = root.FirstChildElement("File"); element != nullptr;
         element = element->NextSiblingElement("File")) {
        AddFile(manifest->files, ReadLegacyFile(*element));
    }
    return manifest;
}

}  // namespace integrity_check_tool::xml
