#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "check/i_checkers.h"
#include "check/i_data_object_source.h"
#include "data_object/file.h"
#include "data_object/i_data_object.h"
#include "ruk/io.h"

namespace ict_test {

// A data object with fixed answers; counts how often it was read.
class FakeDataObject : public integrity_check_tool::IDataObject {
public:
    FakeDataObject(bool exists, std::vector<std::uint8_t> bytes)
        : exists_(exists), bytes_(std::move(bytes)) {}

    std::string GetTypeName() const override { return "Fake"; }
    bool IsExists() const override { return exists_; }
    ruk::intrusive_ptr<ruk::IIO> GetData() const override {
        ++reads;
        return ruk::CreateMemoryIO(bytes_);
    }

    mutable int reads = 0;

private:
    bool exists_;
    std::vector<std::uint8_t> bytes_;
};

// Files are the real ones on disk; registry values are the fake object given,
// and the last request is remembered.
class TestDataObjectSource : public integrity_check_tool::IDataObjectSource {
public:
    explicit TestDataObjectSource(std::shared_ptr<FakeDataObject> registryValue = nullptr)
        : registryValue_(std::move(registryValue)) {}

    integrity_check_tool::IDataObjectPtr CreateFile(
        const boost::filesystem::path& path) const override {
        return std::make_shared<integrity_check_tool::data_object::File>(path);
    }
    integrity_check_tool::IDataObjectPtr CreateRegistry(
        const std::string& valueName, const std::string& keyPath,
        integrity_check_tool::RegistryType /*expectedType*/) const override {
        lastValueName = valueName;
        lastKeyPath = keyPath;
        return registryValue_;
    }

    mutable std::string lastValueName;
    mutable std::string lastKeyPath;

private:
    std::shared_ptr<FakeDataObject> registryValue_;
};

// A checker member that passes or throws the given exception, counting calls.
class ScriptedChecker : public integrity_check_tool::IFileChecker,
                        public integrity_check_tool::IRegistryChecker {
public:
    explicit ScriptedChecker(std::function<void()> behaviour) : behaviour_(std::move(behaviour)) {}

    std::string GetName() const override { return "Scripted"; }
    void CheckFileValue(const boost::filesystem::path& path) const override {
        ++calls;
        lastArguments = path.string();
        behaviour_();
    }
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            integrity_check_tool::RegistryType /*type*/) const override {
        ++calls;
        lastArguments = keyPath + "|" + valueName;
        behaviour_();
    }

    mutable int calls = 0;
    mutable std::string lastArguments;

private:
    std::function<void()> behaviour_;
};

inline std::vector<std::uint8_t> BytesOf(const std::string& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
}

}  // namespace ict_test
