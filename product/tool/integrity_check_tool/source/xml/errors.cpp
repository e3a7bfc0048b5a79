#include "xml/errors.h"

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::xml {
namespace {

const char* NodeAbsent() {
    return "XML node %1% is absent";
}
const char* AttrInvalidValue() {
    return "XML attribute %1% has invalid value: %2%";
}

}  // namespace

void ThrowNodeAbsent(const std::string& nodeName) {
    ICT_THROW(Exception(MessageFormat(NodeAbsent(), nodeName)));
}

void ThrowAttrInvalidValue(const std::string& attributeName, const std::string& value) {
    ICT_THROW(Exception(MessageFormat(AttrInvalidValue(), attributeName, value)));
}

}  // namespace integrity_check_tool::xml
