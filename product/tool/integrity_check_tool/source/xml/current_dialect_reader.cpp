#include <memory>

#include "common/enumerations.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "xml/attributes.h"
#include "xml/manifest_reader.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

// Calls `read` for each child element named `name`, in document order.
template <typename Read>
void ForEachChild(const TiXmlElement& parent, const char* name, Read read) {
    for (const TiXmlElement* child = parent.FirstChildElement(name); child != nullptr;
         child = child->NextSiblingElement(name)) {
        read(*child);
    }
}

CheckInfo ReadCheck(const TiXmlElement& element) {
    CheckInfo check;
    if (const auto type = FindAttribute(element, "type")) {
        check.type = FromName<CheckType>(*type);
    }
    check.value = DecodeBase64(GetAttribute(element, "value"));
    return check;
}

std::vector<CheckInfo> ReadChecks(const TiXmlElement& parent) {
    std::vector<CheckInfo> checks;
    ForEachChild(parent, "Check",
                 [&](const TiXmlElement& element) { checks.push_back(ReadCheck(element)); });
    return checks;
}

EnvironmentInfo ReadEnvironment(const TiXmlElement& element) {
    EnvironmentInfo entry;
    entry.key = GetAttribute(element, "key");
    entry.value = GetAttribute(element, "value");
    entry.filter = ReadFilter(element);
    return entry;
}

std::unique_ptr<FileInfo> ReadFile(const TiXmlElement& element) {
    auto file = std::make_unique<FileInfo>();
    file->path = PathFromUtf8(GetAttribute(element, "path"));
    file->filter = ReadFilter(element);
    file->checks = ReadChecks(element);
    return file;
}

std::unique_ptr<DirectoryInfo> ReadDirectory(const TiXmlElement& element) {
    auto directory = std::make_unique<DirectoryInfo>();
    directory->path = PathFromUtf8(GetAttribute(element, "path"));
    directory->filter = ReadFilter(element);
    ForEachChild(element, "File",
                 [&](const TiXmlElement& child) { directory->files.push_back(ReadFile(child)); });
    return directory;
}

std::unique_ptr<RegistryValueInfo> ReadRegistryValue(const TiXmlElement& element) {
    auto value = std::make_unique<RegistryValueInfo>();
    value->name = GetAttribute(element, "name");
    if (const auto type = FindAttribute(element, "type")) {
        value->type = FromName<RegistryType>(*type);
    }
    value->filter = ReadFilter(element);
    value->checks = ReadChecks(element);
    return value;
}

std::unique_ptr<RegistryInfo> ReadRegistry(const TiXmlElement& element) {
    auto registry = std::make_unique<RegistryInfo>();
    registry->path = GetAttribute(element, "path");
    registry->filter = ReadFilter(element);
    ForEachChild(element, "Value", [&](const TiXmlElement& child) {
        registry->values.push_back(ReadRegistryValue(child));
    });
    return registry;
}

}  // namespace

ManifestPtr ReadCurrentManifest(const TiXmlElement& root) {
    auto manifest = std::make_unique<Manifest>();
    manifest->productName = GetAttribute(root, "productName");
    manifest->productVersion = GetAttribute(root, "productVersion");
    manifest->generationDateTime = GetAttribute(root, "generationDateTime");
    // One walk per kind, so that each kind keeps its document order.
    ForEachChild(root, "Environment", [&](const TiXmlElement& element) {
        manifest->environments.push_back(ReadEnvironment(element));
    });
    ForEachChild(root, "File",
                 [&](const TiXmlElement& element) { AddFile(manifest->files, ReadFile(element)); });
    ForEachChild(root, "Files", [&](const TiXmlElement& element) {
        manifest->directories.push_back(ReadDirectory(element));
    });
    ForEachChild(root, "Registry", [&](const TiXmlElement& element) {
        manifest->registries.push_back(ReadRegistry(element));
    });
    return manifest;
}

}  // namespace integrity_check_tool::xml
