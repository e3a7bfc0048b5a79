#pragma once

#include <set>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "common/enumerations.h"

namespace integrity_check_tool {

struct SingleFileCheckSettings {
    boost::filesystem::path filePath;
    CheckType checkType = CheckType::Sha256;
};

struct GenerateSettings {
    boost::filesystem::path configPath;
    boost::filesystem::path manifestPath;
    std::string version;
    Arch arch = Arch::X86_64;
    OsEdition osEdition = OsEdition::Desktop;
    // Whether arch and osEdition are stamped on the generated records (the
    // version is, when it is not empty); unstamped manifests fit any system.
    bool stampArch = false;
    bool stampOsEdition = false;
    // Threads that compute the values of a folder's files; the manifest is
    // the same for any count.
    unsigned threads = 1;
};

struct NormalizeSettings {
    boost::filesystem::path manifestPath;
};

struct VerifySettings {
    bool isVerbose = false;
    std::set<boost::filesystem::path> manifestPaths;  // canonical, sorted, no duplicates
    boost::optional<boost::filesystem::path> crlPath;
    SignatureType signatureType = SignatureType::Dsvm2;
    boost::optional<boost::filesystem::path> singleFilePath;
    bool signatureOnly = false;
    // "define" values in order of appearance; filtering uses them as names.
    std::vector<std::string> definitions;
};

// The run configuration built from the command line and read by the whole run.
struct ApplicationConfiguration {
    boost::optional<SingleFileCheckSettings> singleFileCheck;
    boost::optional<GenerateSettings> generate;
    boost::optional<NormalizeSettings> normalize;
    boost::optional<VerifySettings> verify;
    bool displayVersion = false;
    boost::optional<boost::filesystem::path> logFile;
    unsigned logLevel = 600;
};

// The manifest schema version reported at start-up.
constexpr unsigned kManifestSchemaVersion = 3;

}  // namespace integrity_check_tool
