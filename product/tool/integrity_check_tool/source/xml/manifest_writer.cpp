#include "xml/manifest_writer.h"

#include <memory>

#include <tinyxml.h>

#include "common/enumerations.h"
#include "manifest/path_text.h"
#include "xml/attributes.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

// Links a new element under `parent` and returns it; the parent owns it.
TiXmlElement& AddElement(TiXmlNode& parent, const char* name) {
    return *parent.LinkEndChild(new TiXmlElement(name))->ToElement();
}

void SetIfNotEmpty(TiXmlElement& element, const char* name, const std::string& value) {
    if (!value.empty()) {
        element.SetAttribute(name, value.c_str());
    }
}

void WriteChecks(TiXmlElement& parent, const std::vector<CheckInfo>& checks) {
    for (const auto& check : checks) {
        auto& element = AddElement(parent, "Check");
        element.SetAttribute("type", ToName(check.type).c_str());
        if (!check.value.empty()) {
            element.SetAttribute("value", EncodeBase64(check.value).c_str());
        }
    }
}

void WriteFile(TiXmlNode& parent, const FileInfo& file) {
    auto& element = AddElement(parent, "File");
    element.SetAttribute("path", PathToUtf8(file.path).c_str());
    WriteFilter(element, file.filter);
    WriteChecks(element, file.checks);
}

void WriteDirectory(TiXmlNode& parent, const DirectoryInfo& directory) {
    auto& element = AddElement(parent, "Files");
    element.SetAttribute("path", PathToUtf8(directory.path).c_str());
    WriteFilter(element, directory.filter);
    for (const auto& file : directory.files) {
        WriteFile(element, *file);
    }
}

void WriteRegistry(TiXmlNode& parent, const RegistryInfo& registry) {
    auto& element = AddElement(parent, "Registry");
    element.SetAttribute("path", registry.path.c_str());
    WriteFilter(element, registry.filter);
    for (const auto& value : registry.values) {
        auto& valueElement = AddElement(element, "Value");
        valueElement.SetAttribute("name", value->name.c_str());
        valueElement.SetAttribute("type", ToName(value->type).c_str());
        WriteFilter(valueElement, value->filter);
        WriteChecks(valueElement, value->checks);
    }
}

}  // namespace

std::string PrintManifestXml(const Manifest& manifest) {
    TiXmlDocument document;
    document.LinkEndChild(new TiXmlDeclaration("1.0", "UTF-8", ""));
    auto& root = AddElement(document, "Manifest");
    SetIfNotEmpty(root, "productName", manifest.productName);
    SetIfNotEmpty(root, "productVersion", manifest.productVersion);
    SetIfNotEmpty(root, "generationDateTime", manifest.generationDateTime);
    for (const auto& entry : manifest.environments) {
        auto& element = AddElement(root, "Environment");
        SetIfNotEmpty(element, "key", entry.key);
        SetIfNotEmpty(element, "value", entry.value);
        WriteFilter(element, entry.filter);
    }
    for (const auto& file : manifest.files) {
        WriteFile(root, *file.second);
    }
    for (const auto& directory : manifest.directories) {
        WriteDirectory(root, *directory);
    }
    for (const auto& registry : manifest.registries) {
        WriteRegistry(root, *registry);
    }

    TiXmlPrinter printer;
    printer.SetIndent("    ");
    printer.SetLineBreak("\n");
    document.Accept(&printer);
    return printer.Str();
}

}  // namespace integrity_check_tool::xml
