#include <memory>

#include "common/enumerations.h"
#include "manifest/manifest_operations.h"
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

CheckInfo ReadCheck(const TiXmlElement& element, const ReadContext& context) {
    return context.AtElement(element, [&] {
        context.WarnUnknownAttributes(element, {"type", "value"}, false);
        CheckInfo check;
        if (const auto type = FindAttribute(element, "type")) {
            check.type = FromName<CheckType>(*type);
        }
        check.value = DecodeBase64(GetAttribute(element, "value"));
        return check;
    });
}

std::vector<CheckInfo> ReadChecks(const TiXmlElement& parent, const ReadContext& context) {
    std::vector<CheckInfo> checks;
    ForEachChild(parent, "Check", [&](const TiXmlElement& element) {
        checks.push_back(ReadCheck(element, context));
    });
    return checks;
}

EnvironmentInfo ReadEnvironment(const TiXmlElement& element, const ReadContext& context) {
    context.WarnUnknownAttributes(element, {"key", "value"}, true);
    EnvironmentInfo entry;
    entry.key = GetAttribute(element, "key");
    entry.value = GetAttribute(element, "value");
    entry.filter = ReadFilter(element);
    return entry;
}

std::unique_ptr<FileInfo> ReadFile(const TiXmlElement& element, const ReadContext& context) {
    return context.AtElement(element, [&] {
        context.WarnUnknownAttributes(element, {"path"}, true);
        auto file = std::make_unique<FileInfo>();
        file->path = GetPathAttribute(element, "path");
        file->filter = ReadFilter(element);
        file->checks = ReadChecks(element, context);
        return file;
    });
}

std::unique_ptr<DirectoryInfo> ReadDirectory(const TiXmlElement& element,
                                             const ReadContext& context) {
    context.WarnUnknownAttributes(element, {"path"}, true);
    auto directory = std::make_unique<DirectoryInfo>();
    directory->path = GetPathAttribute(element, "path");
    directory->filter = ReadFilter(element);
    ForEachChild(element, "File", [&](const TiXmlElement& child) {
        directory->files.push_back(ReadFile(child, context));
    });
    return directory;
}

std::unique_ptr<RegistryValueInfo> ReadRegistryValue(const TiXmlElement& element,
                                                     const ReadContext& context) {
    return context.AtElement(element, [&] {
        context.WarnUnknownAttributes(element, {"name", "type"}, true);
        auto value = std::make_unique<RegistryValueInfo>();
        value->name = GetAttribute(element, "name");
        if (const auto type = FindAttribute(element, "type")) {
            value->type = FromName<RegistryType>(*type);
        }
        value->filter = ReadFilter(element);
        value->checks = ReadChecks(element, context);
        return value;
    });
}

std::unique_ptr<RegistryInfo> ReadRegistry(const TiXmlElement& element,
                                           const ReadContext& context) {
    context.WarnUnknownAttributes(element, {"path"}, true);
    auto registry = std::make_unique<RegistryInfo>();
    registry->path = GetAttribute(element, "path");
    registry->filter = ReadFilter(element);
    ForEachChild(element, "Value", [&](const TiXmlElement& child) {
        registry->values.push_back(ReadRegistryValue(child, context));
    });
    return registry;
}

}  // namespace

void ReadCurrentRoot(const TiXmlElement& root, Manifest& manifest, const ReadContext& context) {
    context.WarnUnknownAttributes(root, {"productName", "productVersion", "generationDateTime"},
                                  false);
    manifest.productName = GetAttribute(root, "productName");
    manifest.productVersion = GetAttribute(root, "productVersion");
    manifest.generationDateTime = GetAttribute(root, "generationDateTime");
}

PendingRecord ReadCurrentRecord(const TiXmlElement& element, const ReadContext& context) {
    return context.AtElement(element, [&] {
        PendingRecord record;
        const std::string name = element.Value();
        if (name == "Environment") {
            record.environment = ReadEnvironment(element, context);
        } else if (name == "File") {
            record.file = ReadFile(element, context);
        } else if (name == "Files") {
            record.directory = ReadDirectory(element, context);
        } else if (name == "Registry") {
            record.registry = ReadRegistry(element, context);
        }
        return record;
    });
}

}  // namespace integrity_check_tool::xml
