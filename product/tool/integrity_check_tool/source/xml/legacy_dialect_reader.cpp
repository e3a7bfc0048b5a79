#include <memory>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "xml/attributes.h"
#include "xml/errors.h"
#include "xml/manifest_reader.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

// All the text of the element as written: comments between pieces of text
// are left out, nothing else is.
std::string GetText(const TiXmlElement& element) {
    std::string text;
    for (const TiXmlNode* child = element.FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        if (const TiXmlText* piece = child->ToText()) {
            text += piece->ValueStr();
        }
    }
    return text;
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

CheckInfo ReadHash(const TiXmlElement& element, const ReadContext& context) {
    return context.AtElement(element, [&] {
        context.WarnUnknownAttributes(element, {"algorithm"}, false);
        CheckInfo check;
        check.type = ReadHashAlgorithm(element);
        check.value = DecodeBase64(GetText(element));
        return check;
    });
}

std::unique_ptr<FileInfo> ReadLegacyFile(const TiXmlElement& element, const ReadContext& context) {
    context.WarnUnknownLegacyAttributes(element, {});
    auto file = std::make_unique<FileInfo>();
    file->filter = ReadLegacyFilter(element);
    if (const TiXmlElement* path = element.FirstChildElement("Path")) {
        file->path = context.AtElement(*path, [&] { return PathFromUtf8(GetText(*path)); });
    }
    for (const TiXmlElement* hash = element.FirstChildElement("Hash"); hash != nullptr;
         hash = hash->NextSiblingElement("Hash")) {
        file->checks.push_back(ReadHash(*hash, context));
    }
    return file;
}

}  // namespace

void ReadLegacyRoot(const TiXmlElement& root, Manifest& manifest, const ReadContext& context) {
    context.WarnUnknownAttributes(root, {"generationDatetime"}, false);
    // Lower-case "t": the older name, not the current "generationDateTime".
    manifest.generationDateTime = GetAttribute(root, "generationDatetime");
}

PendingRecord ReadLegacyRecord(const TiXmlElement& element, const ReadContext& context) {
    return context.AtElement(element, [&] {
        PendingRecord record;
        record.file = ReadLegacyFile(element, context);
        return record;
    });
}

}  // namespace integrity_check_tool::xml
