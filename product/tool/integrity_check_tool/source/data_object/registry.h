#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/enumerations.h"
#include "data_object/i_data_object.h"
#include "platform/predefined_key.h"

namespace integrity_check_tool::data_object {

// One named value under a registry key, expected to have a given type.
class Registry : public IDataObject {
public:
    // Reads a value: native type and bytes out, system error code returned.
    using ValueReader = std::function<std::uint32_t(
        PredefinedKey root, const std::string& subKey, const std::string& valueName,
        std::uint32_t& nativeType, std::vector<std::uint8_t>& data)>;

    Registry(std::string keyPath, std::string valueName, RegistryType expectedType);
    // Reads through `reader` instead of the system registry.
    Registry(std::string keyPath, std::string valueName, RegistryType expectedType,
             ValueReader reader);

    std::string GetTypeName() const override;
    // False when the key or the value is not found; a value of another type
    // or any other failure throws.
    bool IsExists() const override;
    // A memory stream over the value's bytes exactly as stored.
    ruk::intrusive_ptr<ruk::IIO> GetData() const override;

    // Cuts the root-key prefix (and any leading backslashes) from `path` and
    // returns the root; "Registry path '%1%' has unknown prefix" otherwise.
    static PredefinedKey ExtractPredefinedKey(std::string& path);
    // Throws "Registry value '%1%' in '%2%' has unexpected type '%3%' !=
    // expected '%4%'" unless `nativeType` stands for `expected`.
    static void CheckNativeType(std::uint32_t nativeType, RegistryType expected,
                                const std::string& valueName, const std::string& keyPath);

private:
    // Fills `data` and returns the system error code; a type mismatch throws.
    std::uint32_t Read(std::vector<std::uint8_t>& data) const;
    [[noreturn]] void ThrowCantReadOrAccess(std::uint32_t error) const;

    std::string keyPath_;
    std::string valueName_;
    RegistryType expectedType_;
    ValueReader reader_;
};

}  // namespace integrity_check_tool::data_object
