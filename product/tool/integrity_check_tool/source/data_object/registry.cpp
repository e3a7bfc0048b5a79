#include "data_object/registry.h"

#include <map>
#include <utility>

#include "common/exception.h"
#include "common/message_format.h"
#include "platform/registry.h"
#include "ruk/result.h"

namespace integrity_check_tool::data_object {
namespace {

const char* CantReadOrAccess() {
    return "Can't read or access registry value '%1%' in '%2%'. Reason: %3%";
}
const char* UnknownPrefix() {
    return "Registry path '%1%' has unknown prefix";
}
const char* UnexpectedType() {
    return "Registry value '%1%' in '%2%' has unexpected type '%3%' != expected '%4%'";
}

struct PrefixEntry {
    const char* prefix;
    PredefinedKey root;
};

// Native registry type codes of the system.
constexpr std::uint32_t kRegNone = 0;
constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegExpandSz = 2;
constexpr std::uint32_t kRegBinary = 3;
constexpr std::uint32_t kRegDword = 4;
constexpr std::uint32_t kRegDwordBigEndian = 5;
constexpr std::uint32_t kRegLink = 6;
constexpr std::uint32_t kRegMultiSz = 7;
constexpr std::uint32_t kRegQword = 11;

}  // namespace

Registry::Registry(std::string keyPath, std::string valueName, RegistryType expectedType)
    : Registry(std::move(keyPath), std::move(valueName), expectedType,
               &platform::ReadRegistryValue) {}

Registry::Registry(std::string keyPath, std::string valueName, RegistryType expectedType,
                   ValueReader reader)
    : keyPath_(std::move(keyPath)),
      valueName_(std::move(valueName)),
      expectedType_(expectedType),
      reader_(std::move(reader)) {}

std::string Registry::GetTypeName() const {
    return "Registry";
}

PredefinedKey Registry::ExtractPredefinedKey(std::string& path) {
    // Long and short names, each with its backslash; the first match wins.
    static const std::vector<PrefixEntry> kPrefixes = {
        {"HKCR\\", PredefinedKey::ClassesRoot},
        {"HKEY_CLASSES_ROOT\\", PredefinedKey::ClassesRoot},
        {"HKCC\\", PredefinedKey::CurrentConfig},
        {"HKEY_CURRENT_CONFIG\\", PredefinedKey::CurrentConfig},
        {"HKCU\\", PredefinedKey::CurrentUser},
        {"HKEY_CURRENT_USER\\", PredefinedKey::CurrentUser},
        {"HKDD\\", PredefinedKey::DynData},
        {"HKEY_DYN_DATA\\", PredefinedKey::DynData},
        {"HKLM\\", PredefinedKey::LocalMachine},
        {"HKEY_LOCAL_MACHINE\\", PredefinedKey::LocalMachine},
        {"HKU\\", PredefinedKey::Users},
        {"HKEY_USERS\\", PredefinedKey::Users},
        {"HKPD\\", PredefinedKey::PerformanceData},
        {"HKEY_PERFORMANCE_DATA\\", PredefinedKey::PerformanceData},
        {"HKPT\\", PredefinedKey::PerformanceText},
        {"HKEY_PERFORMANCE_TEXT\\", PredefinedKey::PerformanceText},
        {"HKPN\\", PredefinedKey::PerformanceNlsText},
        {"HKEY_PERFORMANCE_NLSTEXT\\", PredefinedKey::PerformanceNlsText},
    };
    const auto firstKept = path.find_first_not_of('\\');
    path.erase(0, firstKept == std::string::npos ? path.size() : firstKept);
    for (const auto& entry : kPrefixes) {
        const std::string prefix(entry.prefix);
        if (path.compare(0, prefix.size(), prefix) == 0) {
            path.erase(0, prefix.size());
            return entry.root;
        }
    }
    ICT_THROW(Exception(MessageFormat(UnknownPrefix(), path)));
}

void Registry::CheckNativeType(std::uint32_t nativeType, RegistryType expected,
                               const std::string& valueName, const std::string& keyPath) {
    // One entry per native code and the first pair wins, so the
    // LITTLE_ENDIAN names never match a stored value; that is intended.
    static const std::map<std::uint32_t, RegistryType> kTypes = [] {
        const std::pair<std::uint32_t, RegistryType> pairs[] = {
            {kRegBinary, RegistryType::Binary},
            {kRegDword, RegistryType::Dword},
            {kRegDword, RegistryType::DwordLittleEndian},
            {kRegDwordBigEndian, RegistryType::DwordBigEndian},
            {kRegExpandSz, RegistryType::ExpandSz},
            {kRegLink, RegistryType::Link},
            {kRegMultiSz, RegistryType::MultiSz},
            {kRegNone, RegistryType::None},
            {kRegQword, RegistryType::Qword},
            {kRegQword, RegistryType::QwordLittleEndian},
            {kRegSz, RegistryType::Sz},
        };
        std::map<std::uint32_t, RegistryType> types;
        for (const auto& pair : pairs) {
            types.insert(pair);
        }
        return types;
    }();

    const auto found = kTypes.find(nativeType);
    if (found == kTypes.end()) {
        ICT_THROW(Exception(
            MessageFormat(UnexpectedType(), valueName, keyPath, nativeType, ToName(expected))));
    }
    if (found->second != expected) {
        ICT_THROW(Exception(MessageFormat(UnexpectedType(), valueName, keyPath,
                                          ToName(found->second), ToName(expected))));
    }
}

std::uint32_t Registry::Read(std::vector<std::uint8_t>& data) const {
    std::string subKey = keyPath_;
    const PredefinedKey root = ExtractPredefinedKey(subKey);
    std::uint32_t nativeType = 0;
    const std::uint32_t error = reader_(root, subKey, valueName_, nativeType, data);
    if (error != 0) {
        return error;
    }
    CheckNativeType(nativeType, expectedType_, valueName_, keyPath_);
    return 0;
}

void Registry::ThrowCantReadOrAccess(std::uint32_t error) const {
    ICT_THROW(Exception(MessageFormat(CantReadOrAccess(), valueName_, keyPath_,
                                      ruk::GetResultText(ruk::MakeOsResult(error)))));
}

bool Registry::IsExists() const {
    std::vector<std::uint8_t> data;
    const std::uint32_t error = Read(data);
    if (error == 0) {
        return true;
    }
    if (error == platform::kRegistryNotFound) {
        return false;
    }
    ThrowCantReadOrAccess(error);
}

ruk::intrusive_ptr<ruk::IIO> Registry::GetData() const {
    std::vector<std::uint8_t> data;
    const std::uint32_t error = Read(data);
    if (error != 0) {
        ThrowCantReadOrAccess(error);
    }
    return ruk::CreateMemoryIO(std::move(data));
}

}  // namespace integrity_check_tool::data_object
