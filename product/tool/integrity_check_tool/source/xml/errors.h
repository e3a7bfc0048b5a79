#pragma once

#include <string>

#include <boost/exception/info.hpp>

namespace integrity_check_tool::xml {

// Where the parser stopped, attached to a parse failure.
using XmlRowInfo = boost::error_info<struct tag_xml_row, int>;
using XmlColumnInfo = boost::error_info<struct tag_xml_column, int>;

// Exception "XML node %1% is absent".
[[noreturn]] void ThrowNodeAbsent(const std::string& nodeName);

// Exception "XML attribute %1% has invalid value: %2%".
[[noreturn]] void ThrowAttrInvalidValue(const std::string& attributeName, const std::string& value);

}  // namespace integrity_check_tool::xml
