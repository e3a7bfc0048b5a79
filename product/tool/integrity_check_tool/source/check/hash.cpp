#include "check/hash.h"

#include "check/hex.h"
#include "check/verification_mismatch.h"

namespace integrity_check_tool::check {
namespace {

const char* CheckingFile() {
    return "Checking value of file %1% ...";
}
const char* FileHashEvaluated() {
    return "Hash for file %1% evaluated: %2%";
}
const char* FileExpected() {
    return "File %1% has expected value %2%";
}
const char* FileUnexpected() {
    return "File %1% has unexpected hash %2% != expected %3%";
}
const char* CheckingRegistry() {
    return "Checking registry key %1% in %2% ...";
}
const char* RegistryExpected() {
    return "Registry key %1% in %2% has expected value %3%";
}
const char* RegistryUnexpected() {
    return "Registry key %1% in %2% has unexpected hash %3% != expected %4%";
}

}  // namespace

Hash::Hash(TracerPtr tracer, IDataObjectSourcePtr source, IValueProviderPtr provider,
           CheckType type, std::vector<std::uint8_t> expected)
    : tracer_(std::move(tracer)),
      source_(std::move(source)),
      provider_(std::move(provider)),
      type_(type),
      expected_(std::move(expected)) {}

std::string Hash::GetName() const {
    return "Hash";
}

void Hash::CheckFileValue(const boost::filesystem::path& path) const {
    tracer_->Trace(trace_level::Detail, CheckingFile(), path.string());
    std::vector<std::uint8_t> actual;
    provider_->Evaluate(*source_->CreateFile(path), actual);
    tracer_->Trace(trace_level::Detail, FileHashEvaluated(), path.string(), HexOf{actual});
    if (actual != expected_) {
        ICT_THROW(VerificationMismatch(type_, MessageFormat(FileUnexpected(), path.string(),
                                                            ToHex(actual), ToHex(expected_))));
    }
    tracer_->Trace(trace_level::Detail, FileExpected(), path.string(), HexOf{actual});
}

void Hash::CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                              RegistryType type) const {
    tracer_->Trace(trace_level::Detail, CheckingRegistry(), valueName, keyPath);
    std::vector<std::uint8_t> actual;
    provider_->Evaluate(*source_->CreateRegistry(valueName, keyPath, type), actual);
    if (actual != expected_) {
        ICT_THROW(
            VerificationMismatch(type_, MessageFormat(RegistryUnexpected(), valueName, keyPath,
                                                      ToHex(actual), ToHex(expected_))));
    }
    tracer_->Trace(trace_level::Detail, RegistryExpected(), valueName, keyPath, HexOf{actual});
}

}  // namespace integrity_check_tool::check
