#pragma once

#include <cstdint>
#include <string>

#include <tinyxml.h>
#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "manifest/filter.h"

namespace integrity_check_tool::xml {

// The attribute's text, or empty when it is absent.
std::string GetAttribute(const TiXmlElement& element, const char* name);
boost::optional<std::string> FindAttribute(const TiXmlElement& element, const char* name);
// A path attribute (UTF-8), empty when absent; the text is copied once.
boost::filesystem::path GetPathAttribute(const TiXmlElement& element, const char* name);

// The filter attributes of the current dialect; absent ones stay unset.
Filter ReadFilter(const TiXmlElement& element);
// Sets them in their fixed order, each only when set ("defined" only when not empty).
void WriteFilter(TiXmlElement& element, const Filter& filter);

// The filter attributes of the older dialect ("bitness", "os", "edition",
// "minVersionNT", "maxVersionNT"), with their own lower-case values.
Filter ReadLegacyFilter(const TiXmlElement& element);

}  // namespace integrity_check_tool::xml
