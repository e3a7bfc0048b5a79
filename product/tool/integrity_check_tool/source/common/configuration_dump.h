#pragma once

#include <string>

#include <boost/property_tree/ptree.hpp>

#include "common/configuration.h"

namespace integrity_check_tool {

// The configuration as a property tree: sections in the order normalize,
// verify, displayVersion, logFile, logLevel, singleFileCheck, generate, each
// only when present; enumerations by name, booleans as "true"/"false", the
// manifest paths as a list of unnamed children.
boost::property_tree::ptree BuildConfigurationTree(const ApplicationConfiguration& configuration);

// The tree above as the property-tree JSON writer prints it.
std::string DumpConfiguration(const ApplicationConfiguration& configuration);

}  // namespace integrity_check_tool
