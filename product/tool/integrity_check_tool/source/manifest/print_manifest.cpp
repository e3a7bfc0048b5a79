#include <sstream>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "ruk/hex.h"

namespace integrity_check_tool {
namespace {

using boost::property_tree::ptree;

// Byte values read as hexadecimal in every message of the tool.
std::string ToHex(const Bytes& bytes) {
    return ruk::HexText(bytes.data(), bytes.size(), ruk::HexCase::Lower);
}

template <typename Value>
void PutName(ptree& tree, const char* key, const boost::optional<Value>& value) {
    if (value) {
        tree.put(key, ToName(*value));
    }
}

void PutNumber(ptree& tree, const char* key, const boost::optional<std::uint32_t>& value) {
    if (value) {
        tree.put(key, std::to_string(*value));
    }
}

void PutFilter(ptree& tree, const Filter& filter) {
    PutName(tree, "arch", filter.arch);
    PutName(tree, "os", filter.os);
    PutName(tree, "osEdition", filter.osEdition);
    PutName(tree, "bitness", filter.bitness);
    PutNumber(tree, "minVersionNt", filter.minVersionNt);
    PutNumber(tree, "maxVersionNt", filter.maxVersionNt);
    PutNumber(tree, "linuxKernelVersion", filter.linuxKernelVersion);
    if (!filter.defined.empty()) {
        tree.put("defined", filter.defined);
    }
}

// Children with empty keys print as a JSON array.
void AddToArray(ptree& array, ptree element) {
    array.push_back(std::make_pair("", std::move(element)));
}

ptree PrintChecks(const std::vector<CheckInfo>& checks) {
    ptree array;
    for (const auto& check : checks) {
        ptree element;
        element.put("type", ToName(check.type));
        element.put("value", ToHex(check.value));
        AddToArray(array, std::move(element));
    }
    return array;
}

ptree PrintFile(const FileInfo& file) {
    ptree tree;
    tree.put("path", PathToUtf8(file.path));
    PutFilter(tree, file.filter);
    tree.add_child("checks", PrintChecks(file.checks));
    return tree;
}

ptree PrintDirectory(const DirectoryInfo& directory) {
    ptree tree;
    tree.put("path", PathToUtf8(directory.path));
    PutFilter(tree, directory.filter);
    ptree files;
    for (const auto& file : directory.files) {
        AddToArray(files, PrintFile(*file));
    }
    tree.add_child("files", std::move(files));
    return tree;
}

ptree PrintRegistry(const RegistryInfo& registry) {
    ptree tree;
    tree.put("path", registry.path);
    PutFilter(tree, registry.filter);
    ptree values;
    for (const auto& value : registry.values) {
        ptree element;
        element.put("name", value->name);
        element.put("type", ToName(value->type));
        PutFilter(element, value->filter);
        element.add_child("checks", PrintChecks(value->checks));
        AddToArray(values, std::move(element));
    }
    tree.add_child("values", std::move(values));
    return tree;
}

}  // namespace

std::string PrintManifest(const Manifest& manifest) {
    ptree tree;
    tree.put("productName", manifest.productName);
    tree.put("productVersion", manifest.productVersion);
    tree.put("generationDateTime", manifest.generationDateTime);

    ptree environments;
    for (const auto& entry : manifest.environments) {
        ptree element;
        element.put("key", entry.key);
        element.put("value", entry.value);
        PutFilter(element, entry.filter);
        AddToArray(environments, std::move(element));
    }
    tree.add_child("environments", std::move(environments));

    ptree files;
    for (const auto& file : manifest.files) {
        AddToArray(files, PrintFile(*file.second));
    }
    tree.add_child("files", std::move(files));

    ptree directories;
    for (const auto& directory : manifest.directories) {
        AddToArray(directories, PrintDirectory(*directory));
    }
    tree.add_child("directories", std::move(directories));

    ptree registries;
    for (const auto& registry : manifest.registries) {
        AddToArray(registries, PrintRegistry(*registry));
    }
    tree.add_child("registries", std::move(registries));

    std::ostringstream text;
    boost::property_tree::write_json(text, tree);
    return text.str();
}

}  // namespace integrity_check_tool
