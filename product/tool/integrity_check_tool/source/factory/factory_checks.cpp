#include <cstdint>

#include "check/anyof.h"
#include "check/empty_value_provider.h"
#include "check/exists.h"
#include "check/hash.h"
#include "check/i_data_object_source.h"
#include "check/not_exists.h"
#include "check/raw_value_provider.h"
#include "check/value.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "data_object/file.h"
#include "data_object/registry.h"
#include "dsvm/gost2012_hash.h"
#include "factory/factory.h"
#include "openssl/sha256.h"

namespace integrity_check_tool {
namespace {

const char* UnknownCheckerType() {
    return "Can't create checker for unknown check type %1%";
}
const char* UnknownProviderType() {
    return "Can't create value provider for unknown check type %1%";
}

// Hands the checks' requests for data objects to the factory, so that a
// factory of tests can supply its own objects. Keeps a shared factory alive.
class FactoryDataObjectSource : public IDataObjectSource {
public:
    explicit FactoryDataObjectSource(const Factory& factory)
        : factory_(factory), keepAlive_(factory.weak_from_this().lock()) {}

    IDataObjectPtr CreateFile(const boost::filesystem::path& path) const override {
        return factory_.CreateFile(path);
    }
    IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                  RegistryType expectedType) const override {
        return factory_.CreateRegistry(valueName, keyPath, expectedType);
    }

private:
    const Factory& factory_;
    std::shared_ptr<const Factory> keepAlive_;
};

// Every check class is both a file and a registry checker; `Checker` picks
// the face the caller asked for.
template <typename Checker>
std::shared_ptr<Checker> CreateChecker(const Factory& factory, const CheckInfo& check) {
    const auto source = std::make_shared<FactoryDataObjectSource>(factory);
    const TracerPtr& tracer = factory.GetTracer();
    switch (check.type) {
        case CheckType::Exists:
            return std::make_shared<check::Exists>(tracer, source);
        case CheckType::NotExists:
            return std::make_shared<check::NotExists>(tracer, source);
        case CheckType::Gost2012:
        case CheckType::Sha256:
            return std::make_shared<check::Hash>(
                tracer, source, factory.CreateValueProvider(check.type), check.type, check.value);
        case CheckType::Value:
            return std::make_shared<check::Value>(tracer, source, check.value);
    }
    ICT_THROW(
        Exception(MessageFormat(UnknownCheckerType(), static_cast<std::uint32_t>(check.type))));
}

}  // namespace

IFileCheckerPtr Factory::CreateFileChecker(const CheckInfo& check) const {
    return CreateChecker<IFileChecker>(*this, check);
}

IRegistryCheckerPtr Factory::CreateRegistryChecker(const CheckInfo& check) const {
    return CreateChecker<IRegistryChecker>(*this, check);
}

IDataObjectPtr Factory::CreateFile(const boost::filesystem::path& path) const {
    return std::make_shared<data_object::File>(path);
}

IDataObjectPtr Factory::CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                       RegistryType expectedType) const {
    return std::make_shared<data_object::Registry>(keyPath, valueName, expectedType);
}

IValueProviderPtr Factory::CreateValueProvider(CheckType type) const {
    switch (type) {
        case CheckType::Exists:
        case CheckType::NotExists:
            return std::make_shared<check::EmptyValueProvider>();
        case CheckType::Gost2012:
            return std::make_shared<dsvm::Gost2012Hash>(tracer_);
        case CheckType::Sha256:
            return std::make_shared<openssl::Sha256>();
        case CheckType::Value:
            return std::make_shared<check::RawValueProvider>();
    }
    ICT_THROW(Exception(MessageFormat(UnknownProviderType(), static_cast<std::uint32_t>(type))));
}

}  // namespace integrity_check_tool
