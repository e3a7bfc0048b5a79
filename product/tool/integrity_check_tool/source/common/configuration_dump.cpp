#include "common/configuration_dump.h"

#include <sstream>

#include <boost/property_tree/json_parser.hpp>

namespace integrity_check_tool {
namespace {

using boost::property_tree::ptree;

const char* BoolText(bool value) {
    return value ? "true" : "false";
}

std::string OptionalPathText(const boost::optional<boost::filesystem::path>& path) {
    return path ? path->string() : std::string();
}

ptree NormalizeTree(const NormalizeSettings& settings) {
    ptree tree;
    tree.put("manifestPath", settings.manifestPath.string());
    return tree;
}

ptree VerifyTree(const VerifySettings& settings) {
    ptree tree;
    tree.put("isVerbose", BoolText(settings.isVerbose));
    ptree paths;
    for (const auto& path : settings.manifestPaths) {
        paths.push_back(ptree::value_type("", ptree(path.string())));
    }
    tree.add_child("manifestPaths", paths);
    tree.put("crlPath", OptionalPathText(settings.crlPath));
    tree.put("signatureType", ToName(settings.signatureType));
    tree.put("singleFilePath", OptionalPathText(settings.singleFilePath));
    return tree;
}

ptree SingleFileCheckTree(const SingleFileCheckSettings& settings) {
    ptree tree;
    tree.put("filePath", settings.filePath.string());
    tree.put("checkType", ToName(settings.checkType));
    return tree;
}

ptree GenerateTree(const GenerateSettings& settings) {
    ptree tree;
    tree.put("configPath", settings.configPath.string());
    tree.put("manifestPath", settings.manifestPath.string());
    tree.put("version", settings.version);
    tree.put("arch", ToName(settings.arch));
    tree.put("osEdition", ToName(settings.osEdition));
    return tree;
}

}  // namespace

ptree BuildConfigurationTree(const ApplicationConfiguration& configuration) {
    // push_back keeps the order given here; put() would too, but a dotted key
    // would be split into a path, which no key of ours needs.
    ptree tree;
    if (configuration.normalize) {
        tree.push_back(ptree::value_type("normalize", NormalizeTree(*configuration.normalize)));
    }
    if (configuration.verify) {
        tree.push_back(ptree::value_type("verify", VerifyTree(*configuration.verify)));
    }
    tree.push_back(
        ptree::value_type("displayVersion", ptree(BoolText(configuration.displayVersion))));
    if (configuration.logFile) {
        tree.push_back(ptree::value_type("logFile", ptree(configuration.logFile->string())));
    }
    tree.push_back(ptree::value_type("logLevel", ptree(std::to_string(configuration.logLevel))));
    if (configuration.singleFileCheck) {
        tree.push_back(ptree::value_type("singleFileCheck",
                                         SingleFileCheckTree(*configuration.singleFileCheck)));
    }
    if (configuration.generate) {
        tree.push_back(ptree::value_type("generate", GenerateTree(*configuration.generate)));
    }
    return tree;
}

std::string DumpConfiguration(const ApplicationConfiguration& configuration) {
    std::ostringstream stream;
    boost::property_tree::write_json(stream, BuildConfigurationTree(configuration), true);
    return stream.str();
}

}  // namespace integrity_check_tool
