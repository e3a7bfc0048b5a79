#include <set>
#include <vector>

#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"

namespace integrity_check_tool {
namespace {

const char* MismatchCheckTypes() {
    return "Mismatch check types found for %1%";
}
const char* RegistryValueName() {
    return "'%1%' in '%2%'";
}

std::set<CheckType> CheckTypesOf(const std::vector<CheckInfo>& checks) {
    std::set<CheckType> types;
    for (const auto& check : checks) {
        types.insert(check.type);
    }
    return types;
}

void CompareCheckTypes(const std::vector<CheckInfo>& a, const std::vector<CheckInfo>& b,
                       const std::string& printableName) {
    if (CheckTypesOf(a) != CheckTypesOf(b)) {
        ICT_THROW(Exception(MessageFormat(MismatchCheckTypes(), printableName)));
    }
}

}  // namespace

std::string GetPrintableName(const FileInfo& file) {
    return PathToUtf8(file.path);
}

std::string GetPrintableName(const std::string& keyPath, const RegistryValueInfo& value) {
    return MessageFormat(RegistryValueName(), value.name, keyPath);
}

void CheckMismatches(const FileInfo& a, const FileInfo& b) {
    CompareCheckTypes(a.checks, b.checks, GetPrintableName(a));
}

void CheckMismatches(const RegistryValueInfo& a, const RegistryValueInfo& b,
                     const std::string& keyPath) {
    CompareCheckTypes(a.checks, b.checks, GetPrintableName(keyPath, a));
}

}  // namespace integrity_check_tool
