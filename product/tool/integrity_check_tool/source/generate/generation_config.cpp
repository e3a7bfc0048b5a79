#include "generate/generation_config.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include <tinyxml.h>
#include <boost/exception/get_error_info.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/path_text.h"
#include "ruk/io.h"
#include "xml/attributes.h"
#include "xml/errors.h"
#include "xml/text_check.h"

namespace integrity_check_tool::generate {
namespace {

const char* CantReadConfig() {
    return "Can't read generation configuration %1%. Reason: %2%";
}
const char* InvalidConfig() {
    return "Invalid generation configuration %1%, row %2%: %3%";
}
const char* RootAbsent() {
    return "root element %1% is absent";
}
const char* UnknownElement() {
    return "unknown element %1% in %2%";
}
const char* UnknownAttribute() {
    return "unknown attribute %1% of %2%";
}
const char* AttributeRequired() {
    return "element %1% needs the attribute %2%";
}
const char* InvalidBoolean() {
    return "attribute %1% must be true or false, not %2%";
}
const char* AbsentCheckForDirectory() {
    return "check type NotExists can't be used for the files of directory %1%";
}

constexpr const char* kRootElement = "ManifestGeneration";

// A content error: the reason and the row it was found at.
struct ConfigError {
    int row;
    std::string reason;
};

[[noreturn]] void Fail(const TiXmlElement& element, std::string reason) {
    throw ConfigError{element.Row(), std::move(reason)};
}

// Runs a conversion that may throw our Exception and pins its text to the row.
template <typename Operation>
auto AtRow(const TiXmlElement& element, Operation&& operation) -> decltype(operation()) {
    try {
        return operation();
    } catch (const Exception& error) {
        Fail(element, error.GetMessage());
    }
}

const std::set<std::string>& FilterAttributes() {
    static const std::set<std::string> names = {
        "arch",   "os", "edition", "bitness", "minVersionNt", "maxVersionNt", "linuxKernelVersion",
        "defined"};
    return names;
}

void CheckAttributes(const TiXmlElement& element, std::set<std::string> allowed, bool withFilter) {
    if (withFilter) {
        allowed.insert(FilterAttributes().begin(), FilterAttributes().end());
    }
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        if (allowed.count(attribute->Name()) == 0) {
            Fail(element, MessageFormat(UnknownAttribute(), attribute->Name(), element.Value()));
        }
    }
}

boost::optional<std::string> Optional(const TiXmlElement& element, const char* name) {
    const char* value = element.Attribute(name);
    return value == nullptr ? boost::none : boost::optional<std::string>(value);
}

std::string Required(const TiXmlElement& element, const char* name) {
    const char* value = element.Attribute(name);
    if (value == nullptr || *value == '\0') {
        Fail(element, MessageFormat(AttributeRequired(), element.Value(), name));
    }
    return value;
}

bool ReadBoolean(const TiXmlElement& element, const char* name) {
    const auto value = Optional(element, name);
    if (!value || *value == "false") {
        return false;
    }
    if (*value == "true") {
        return true;
    }
    Fail(element, MessageFormat(InvalidBoolean(), name, *value));
}

// The same filter attributes, names and values as the manifest's own.
Filter ReadFilter(const TiXmlElement& element) {
    return AtRow(element, [&] { return xml::ReadFilter(element); });
}

// Calls `handler` for each child element; an element without a handler is an error.
void ForEachChild(const TiXmlElement& parent,
                  const std::map<std::string, std::function<void(const TiXmlElement&)>>& handlers) {
    for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        const auto handler = handlers.find(child->Value());
        if (handler == handlers.end()) {
            Fail(*child, MessageFormat(UnknownElement(), child->Value(), parent.Value()));
        }
        handler->second(*child);
    }
}

// Reads one "Check"; a type listed twice counts once.
void ReadCheck(const TiXmlElement& element, std::vector<CheckType>& checks) {
    CheckAttributes(element, {"type"}, false);
    const std::string name = Required(element, "type");
    const CheckType type = AtRow(element, [&] { return FromName<CheckType>(name); });
    if (std::find(checks.begin(), checks.end(), type) == checks.end()) {
        checks.push_back(type);
    }
}

GlobPattern ReadPattern(const TiXmlElement& element) {
    CheckAttributes(element, {"pattern"}, false);
    const std::string text = Required(element, "pattern");
    return AtRow(element, [&] { return GlobPattern(text); });
}

class Reader {
public:
    explicit Reader(const boost::filesystem::path& origin) : origin_(origin) {}

    GenerationConfig Read(const TiXmlElement& root) {
        CheckAttributes(root, {"productName", "productVersion", "productRoot"}, false);
        config_.productName = Optional(root, "productName").value_or("");
        config_.productVersion = Optional(root, "productVersion").value_or("");
        if (const auto productRoot = Optional(root, "productRoot")) {
            boost::filesystem::path path = PathFromUtf8(*productRoot);
            if (path.is_relative()) {
                path = origin_.parent_path() / path;
            }
            // Windows' normal form mixes both separators; keep the system's own.
            config_.productRoot = path.lexically_normal().make_preferred();
        }
        ForEachChild(root, {
                               {"Check", [this](const auto& e) { ReadCheck(e, defaultChecks_); }},
                               {"Environment", [this](const auto& e) { ReadEnvironment(e); }},
                               {"Directory", [this](const auto& e) { ReadDirectory(e); }},
                               {"File", [this](const auto& e) { ReadFile(e); }},
                               {"Registry", [this](const auto& e) { ReadRegistry(e); }},
                           });
        ApplyDefaultChecks();
        return std::move(config_);
    }

private:
    void ReadEnvironment(const TiXmlElement& element) {
        CheckAttributes(element, {"key", "value"}, true);
        EnvironmentSource environment;
        environment.filter = ReadFilter(element);
        environment.key = Required(element, "key");
        environment.value = Required(element, "value");
        config_.environments.push_back(std::move(environment));
    }

    void ReadDirectory(const TiXmlElement& element) {
        CheckAttributes(element, {"path", "group"}, true);
        DirectorySource directory;
        directory.filter = ReadFilter(element);
        directory.path = Required(element, "path");
        directory.group = ReadBoolean(element, "group");
        ForEachChild(
            element,
            {
                {"Include", [&](const auto& e) { directory.includes.push_back(ReadPattern(e)); }},
                {"Exclude", [&](const auto& e) { directory.excludes.push_back(ReadPattern(e)); }},
                {"Check", [&](const auto& e) { ReadCheck(e, directory.checks); }},
            });
        if (std::find(directory.checks.begin(), directory.checks.end(), CheckType::NotExists) !=
            directory.checks.end()) {
            Fail(element, MessageFormat(AbsentCheckForDirectory(), directory.path));
        }
        config_.directories.push_back(std::move(directory));
    }

    void ReadFile(const TiXmlElement& element) {
        CheckAttributes(element, {"path"}, true);
        FileSource file;
        file.filter = ReadFilter(element);
        file.path = Required(element, "path");
        ForEachChild(element, {{"Check", [&](const auto& e) { ReadCheck(e, file.checks); }}});
        config_.files.push_back(std::move(file));
    }

    void ReadRegistry(const TiXmlElement& element) {
        CheckAttributes(element, {"path"}, true);
        RegistrySource registry;
        registry.filter = ReadFilter(element);
        registry.path = Required(element, "path");
        ForEachChild(element,
                     {{"Value", [&](const auto& e) { registry.values.push_back(ReadValue(e)); }}});
        config_.registries.push_back(std::move(registry));
    }

    RegistryValueSource ReadValue(const TiXmlElement& element) {
        CheckAttributes(element, {"name", "type"}, true);
        RegistryValueSource value;
        value.filter = ReadFilter(element);
        // An empty or absent name is the key's default value.
        value.name = Optional(element, "name").value_or("");
        if (const auto type = Optional(element, "type")) {
            value.type = AtRow(element, [&] { return FromName<RegistryType>(*type); });
        }
        ForEachChild(element, {{"Check", [&](const auto& e) { ReadCheck(e, value.checks); }}});
        if (value.checks.empty()) {
            value.checks.push_back(CheckType::Value);
        }
        return value;
    }

    // Files and folders without checks of their own take the document's, or Sha256.
    void ApplyDefaultChecks() {
        const std::vector<CheckType> defaults =
            defaultChecks_.empty() ? std::vector<CheckType>{CheckType::Sha256} : defaultChecks_;
        for (auto& directory : config_.directories) {
            if (directory.checks.empty()) {
                directory.checks = defaults;
            }
        }
        for (auto& file : config_.files) {
            if (file.checks.empty()) {
                file.checks = defaults;
            }
        }
    }

    boost::filesystem::path origin_;
    GenerationConfig config_;
    std::vector<CheckType> defaultChecks_;
};

ruk::result_t ReadText(const boost::filesystem::path& path, std::string& text) {
    ruk::intrusive_ptr<ruk::IIO> io;
    ruk::result_t result = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
    if (ruk::Succeeded(result)) {
        result = ruk::ReadWhole(*io, static_cast<std::size_t>(xml::kMaxTextSize), &text);
        if (result == ruk::result::OutOfRange) {
            xml::CheckXmlTextSize(xml::kMaxTextSize + 1);  // fails as a text found too large
        }
    }
    return result;
}

}  // namespace

GenerationConfig ParseGenerationConfig(const std::string& text,
                                       const boost::filesystem::path& origin) {
    // The document builder is handed only a text that expat has found
    // well-formed and within bounds; it reads past the end of a broken one.
    try {
        xml::CheckXmlText(text.data(), text.size());
    } catch (const Exception& error) {
        const int* row = boost::get_error_info<xml::XmlRowInfo>(error);
        const int* column = boost::get_error_info<xml::XmlColumnInfo>(error);
        ICT_THROW(Exception(MessageFormat(InvalidConfig(), origin.string(), row ? *row : 1,
                                          error.GetMessage()))
                  << xml::XmlRowInfo(row ? *row : 1) << xml::XmlColumnInfo(column ? *column : 1));
    }
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (document.Error()) {
        ICT_THROW(Exception(MessageFormat(InvalidConfig(), origin.string(), document.ErrorRow(),
                                          document.ErrorDesc())));
    }
    try {
        const TiXmlElement* root = document.RootElement();
        if (root == nullptr || std::string(root->Value()) != kRootElement) {
            throw ConfigError{root == nullptr ? 1 : root->Row(),
                              MessageFormat(RootAbsent(), kRootElement)};
        }
        return Reader(origin).Read(*root);
    } catch (const ConfigError& error) {
        ICT_THROW(
            Exception(MessageFormat(InvalidConfig(), origin.string(), error.row, error.reason)));
    }
}

GenerationConfig ReadGenerationConfig(const boost::filesystem::path& path) {
    std::string text;
    const ruk::result_t result = ReadText(path, text);
    if (ruk::Failed(result)) {
        ICT_THROW(
            Exception(MessageFormat(CantReadConfig(), path.string(), ruk::GetResultText(result))));
    }
    return ParseGenerationConfig(text, path);
}

}  // namespace integrity_check_tool::generate
