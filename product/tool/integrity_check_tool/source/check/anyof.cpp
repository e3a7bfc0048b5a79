#include "check/anyof.h"

#include <cstddef>
#include <exception>

#include "check/all_checks_failed_exception.h"
#include "common/exception.h"

namespace integrity_check_tool::check {
namespace {

const char* NoChecksForFile() {
    return "There are no checks for file %1%";
}
const char* NoChecksForRegistry() {
    return "There are no checks for registry key %1% in %2%";
}
const char* CheckStarted() {
    return "Check [%1%] ...";
}
const char* CheckSucceeded() {
    return "Check [%1%] - Succeeded";
}
const char* CheckFailed() {
    return "Check [%1%] - Failed. %2%";
}

}  // namespace

AnyOf::AnyOf(TracerPtr tracer, std::vector<IFileCheckerPtr> members)
    : tracer_(std::move(tracer)), fileMembers_(std::move(members)) {}

AnyOf::AnyOf(TracerPtr tracer, std::vector<IRegistryCheckerPtr> members)
    : tracer_(std::move(tracer)), registryMembers_(std::move(members)) {}

std::string AnyOf::GetName() const {
    return "AnyOf";
}

void AnyOf::CheckFileValue(const boost::filesystem::path& path) const {
    if (fileMembers_.empty()) {
        ICT_THROW(Exception(MessageFormat(NoChecksForFile(), path.string())));
    }
    std::vector<std::function<void()>> checks;
    for (const auto& member : fileMembers_) {
        checks.emplace_back([&member, &path] { member->CheckFileValue(path); });
    }
    CheckSequence(checks);
}

void AnyOf::CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                               RegistryType type) const {
    if (registryMembers_.empty()) {
        ICT_THROW(Exception(MessageFormat(NoChecksForRegistry(), valueName, keyPath)));
    }
    std::vector<std::function<void()>> checks;
    for (const auto& member : registryMembers_) {
        checks.emplace_back([&member, &keyPath, &valueName, type] {
            member->CheckRegistryValue(keyPath, valueName, type);
        });
    }
    CheckSequence(checks);
}

void AnyOf::CheckSequence(const std::vector<std::function<void()>>& checks) const {
    std::vector<std::exception_ptr> failures;
    for (std::size_t index = 0; index < checks.size(); ++index) {
        const std::size_t number = index + 1;
        tracer_->Trace(trace_level::Detail, CheckStarted(), number);
        try {
            checks[index]();
        } catch (...) {
            failures.push_back(std::current_exception());
            tracer_->Trace(trace_level::Detail, CheckFailed(), number, CurrentExceptionText());
            continue;
        }
        tracer_->Trace(trace_level::Detail, CheckSucceeded(), number);
        return;
    }
    if (failures.size() == 1) {
        std::rethrow_exception(failures.front());
    }
    ICT_THROW(AllChecksFailedException(failures));
}

}  // namespace integrity_check_tool::check
