#include "xml/attributes.h"

#include "common/enumerations.h"
#include "manifest/path_text.h"
#include "xml/errors.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

template <typename Enum>
void ReadName(const TiXmlElement& element, const char* name, boost::optional<Enum>& target) {
    if (const auto text = FindAttribute(element, name)) {
        target = FromName<Enum>(*text);
    }
}

void ReadNumberAttribute(const TiXmlElement& element, const char* name,
                         boost::optional<std::uint32_t>& target) {
    if (const auto text = FindAttribute(element, name)) {
        target = ReadNumber(*text);
    }
}

template <typename Enum>
void WriteName(TiXmlElement& element, const char* name, const boost::optional<Enum>& value) {
    if (value) {
        element.SetAttribute(name, ToName(*value).c_str());
    }
}

void WriteNumber(TiXmlElement& element, const char* name,
                 const boost::optional<std::uint32_t>& value) {
    if (value) {
        element.SetAttribute(name, std::to_string(*value).c_str());
    }
}

// The older writer crossed the bitness names: "64" is the value 0 and "32"
// the value 1. Manifests in the field rely on it, so it stays.
Bitness ReadLegacyBitness(const std::string& text) {
    if (text == "64") {
        return Bitness::Bits32;
    }
    if (text == "32") {
        return Bitness::Bits64;
    }
    ThrowAttrInvalidValue("bitness", text);
}

Os ReadLegacyOs(const std::string& text) {
    if (text == "linux") {
        return Os::Linux;
    }
    if (text == "windows") {
        return Os::Windows;
    }
    ThrowAttrInvalidValue("os", text);
}

// "any" and "none" set no condition.
void ReadLegacyEdition(const std::string& text, boost::optional<OsEdition>& edition) {
    if (text == "server") {
        edition = OsEdition::Server;
    } else if (text == "desktop") {
        edition = OsEdition::Desktop;
    } else if (text != "any" && text != "none") {
        ThrowAttrInvalidValue("edition", text);
    }
}

}  // namespace

boost::optional<std::string> FindAttribute(const TiXmlElement& element, const char* name) {
    if (const char* value = element.Attribute(name)) {
        return std::string(value);
    }
    return boost::none;
}

std::string GetAttribute(const TiXmlElement& element, const char* name) {
    const char* value = element.Attribute(name);
    return value != nullptr ? std::string(value) : std::string();
}

boost::filesystem::path GetPathAttribute(const TiXmlElement& element, const char* name) {
    const std::string* value = element.Attribute(std::string(name));
    return value != nullptr ? PathFromUtf8(*value) : boost::filesystem::path();
}

Filter ReadFilter(const TiXmlElement& element) {
    Filter filter;
    ReadName(element, "arch", filter.arch);
    ReadName(element, "os", filter.os);
    ReadName(element, "edition", filter.osEdition);
    ReadName(element, "bitness", filter.bitness);
    ReadNumberAttribute(element, "minVersionNt", filter.minVersionNt);
    ReadNumberAttribute(element, "maxVersionNt", filter.maxVersionNt);
    ReadNumberAttribute(element, "linuxKernelVersion", filter.linuxKernelVersion);
    // An empty name is what the writer leaves out: no condition.
    if (auto defined = FindAttribute(element, "defined")) {
        filter.defined = std::move(*defined);
    }
    return filter;
}

void WriteFilter(TiXmlElement& element, const Filter& filter) {
    WriteName(element, "arch", filter.arch);
    WriteName(element, "os", filter.os);
    WriteName(element, "edition", filter.osEdition);
    WriteName(element, "bitness", filter.bitness);
    WriteNumber(element, "minVersionNt", filter.minVersionNt);
    WriteNumber(element, "maxVersionNt", filter.maxVersionNt);
    WriteNumber(element, "linuxKernelVersion", filter.linuxKernelVersion);
    if (!filter.defined.empty()) {
        element.SetAttribute("defined", filter.defined.c_str());
    }
}

Filter ReadLegacyFilter(const TiXmlElement& element) {
    Filter filter;
    if (const auto text = FindAttribute(element, "bitness")) {
        filter.bitness = ReadLegacyBitness(*text);
    }
    if (const auto text = FindAttribute(element, "os")) {
        filter.os = ReadLegacyOs(*text);
    }
    if (const auto text = FindAttribute(element, "edition")) {
        ReadLegacyEdition(*text, filter.osEdition);
    }
    ReadNumberAttribute(element, "minVersionNT", filter.minVersionNt);
    ReadNumberAttribute(element, "maxVersionNT", filter.maxVersionNt);
    return filter;
}

}  // namespace integrity_check_tool::xml
