#include "service/revocation_checker_factory_impl.h"

#include <algorithm>

#include "ruk/exception.h"
#include "service/exception_boundary.h"
#include "service/log.h"
#include "service/utils.h"

namespace crypto::vds::service {
namespace {

using common_objects::CoreCertificatePtr;
using common_objects::CoreLoadedDatabasePtr;

std::string IdText(const std::vector<std::uint8_t>& id) {
    return HexText(id.data(), id.size());
}

std::vector<std::uint8_t> SerialOf(const common_objects::CoreCertificate& certificate) {
    VdsBlob serial{nullptr, 0};
    AsndGetCertificateSerialNumber(certificate.Get(), &serial);
    return std::vector<std::uint8_t>(serial.data, serial.data + serial.size);
}

[[noreturn]] void ThrowCoreFailure(VdsResult result) {
    RUK_THROW_RESULT(ToFrameworkResult(result));
}

}  // namespace

ruk::result_t ParseRootCertificate(const char* function, ByteRange der,
                                   CoreCertificatePtr* certificate) {
    AsndCertificate* parsed = nullptr;
    const VdsResult core = AsndParseAndValidateCertificate(der.data, der.size, &parsed);
    common_objects::CoreCertificate::Owned owned(parsed);
    if (core != vdsOk) {
        Log(function, "AsndParseAndValidateCertificate() failed; VdsResult=", VdsResultText(core),
            "; Certificate size=", der.size,
            ", CertificateBody=", HexText(der.data, der.data == nullptr ? 0 : der.size));
        return ToFrameworkResult(core);
    }
    *certificate = ruk::MakeIntrusive<common_objects::CoreCertificate>(std::move(owned));
    return ruk::result::Success;
}

VdsRevocationCheckerFactoryImpl::VdsRevocationCheckerFactoryImpl(
    InternalFactoryPtr factory, const std::vector<std::uint8_t>& container)
    : factory_(std::move(factory)) {
    LoadDatabasesFromContainer(container);
    Log("VdsRevocationCheckerFactoryImpl", loaded_.size(), " database(s) loaded");
}

void VdsRevocationCheckerFactoryImpl::LoadDatabasesFromContainer(
    const std::vector<std::uint8_t>& container) {
    const char* function = "LoadDatabasesFromContainer";
    const VdsBlob blob{container.data(), container.size()};
    VdsRevocationContainer* handle = nullptr;
    VdsResult core = VdsRevocationLoadContainer(&blob, &handle);
    common_objects::CoreRevocationContainer::Owned ownedContainer(handle);
    if (core != vdsOk) {
        Log(function, "VdsRevocationLoadContainer failed; VdsResult=", VdsResultText(core));
        ThrowCoreFailure(core);
    }
    std::size_t count = 0;
    core = VdsRevocationGetDatabaseCount(handle, &count);
    if (core != vdsOk) {
        Log(function, "VdsRevocationGetDatabaseCount failed; VdsResult=", VdsResultText(core));
        ThrowCoreFailure(core);
    }
    for (std::size_t index = 0; index < count; ++index) {
        const VdsRevocationDatabase* database = nullptr;
        core = VdsRevocationGetDatabase(handle, index, &database);
        if (core != vdsOk) {
            Log(function, "VdsRevocationGetDatabase(index=", index,
                ") failed; VdsResult=", VdsResultText(core));
            ThrowCoreFailure(core);
        }
        VdsBlob id{nullptr, 0};
        core = VdsRevocationGetHierarchyId(database, &id);
        if (core != vdsOk) {
            Log(function, "VdsRevocationGetHierarchyId(index=", index,
                ") failed; VdsResult=", VdsResultText(core));
            ThrowCoreFailure(core);
        }
        std::vector<std::uint8_t> hierarchyId(id.data, id.data + id.size);
        VdsRevocationDbInfo info{};
        core = VdsRevocationGetDbInfo(database, &info);
        if (core != vdsOk) {
            Log(function, "VdsRevocationGetDbInfo(hierarchy=", IdText(hierarchyId),
                ") failed; VdsResult=", VdsResultText(core));
            ThrowCoreFailure(core);
        }
        VdsLoadedRevocationDb* loaded = nullptr;
        core = VdsRevocationLoadDb(database, index, factory_->GetHandler().get(), &loaded);
        common_objects::CoreLoadedDatabase::Owned ownedDatabase(loaded);
        if (core != vdsOk) {
            Log(function, "VdsRevocationLoadDb(hierarchy=", IdText(hierarchyId),
                ") failed; VdsResult=", VdsResultText(core));
            ThrowCoreFailure(core);
        }
        Log(function, "Loaded revocation database with hierarchy=", IdText(hierarchyId),
            ", issuedDate=", TimeText(info.issueDate), ", size=", info.size);
        loaded_.push_back(ruk::MakeIntrusive<common_objects::CoreLoadedDatabase>(
            std::move(ownedDatabase), std::move(hierarchyId), info));
    }
}

ruk::result_t VdsRevocationCheckerFactoryImpl::Setup(const std::vector<ByteRange>& trustedRoots,
                                                     const std::vector<ByteRange>& testRoots,
                                                     TestRootHandlingPolicyFlags policy) {
    return ManageExceptions(__func__, [&]() -> ruk::result_t {
        Log("Setup", PolicyFlagsToString(policy));
        if (loaded_.empty()) {
            // A list that was given but revokes nothing for anyone is a
            // mistake, never a reason to check nothing.
            Log("Setup", "the revocation container holds no revocation database");
            return ruk::result::NotFound;
        }
        std::vector<ByteRange> required;
        std::vector<ByteRange> optional;
        ruk::result_t code =
            GetRequiredAndOptionalRoots(trustedRoots, testRoots, policy, &required, &optional);
        if (ruk::Failed(code)) {
            return code;
        }
        DatabaseMap map;
        code = BuildUnverifiedDatabaseMap(&map);
        if (ruk::Failed(code)) {
            return code;
        }
        code = CheckAllRequiredRootsArePresent(required, map);
        if (ruk::Failed(code)) {
            return code;
        }
        std::vector<ByteRange> roots = required;
        roots.insert(roots.end(), optional.begin(), optional.end());
        std::vector<CoreLoadedDatabasePtr> validated;
        code = ValidateWithRoot(roots, map, &validated);
        if (ruk::Failed(code)) {
            return code;
        }
        return UpdateRevocationChecker(validated);
    });
}

ruk::result_t VdsRevocationCheckerFactoryImpl::CreateRevocationChecker(
    common_objects::CoreRevocationCheckerPtr* checker) {
    if (checker == nullptr) {
        return ruk::result::InvalidArgument;
    }
    if (!checker_) {
        Log(__func__, "no revocation checker: Setup has not succeeded");
        return ruk::result::NotFound;
    }
    *checker = checker_;
    return ruk::result::Success;
}

ruk::result_t VdsRevocationCheckerFactoryImpl::GetRequiredAndOptionalRoots(
    const std::vector<ByteRange>& trustedRoots, const std::vector<ByteRange>& testRoots,
    TestRootHandlingPolicyFlags policy, std::vector<ByteRange>* required,
    std::vector<ByteRange>* optional) const {
    const char* function = "GetRequiredAndOptionalRoots";
    for (const auto& root : trustedRoots) {
        if (root.data == nullptr || root.size == 0) {
            Log(function, "failed to get trusted roots for class");
            return ruk::result::InvalidArgument;
        }
        required->push_back(root);
    }
    const bool testRootsRequired = (policy & testRootPolicyCrlMustExist) != 0;
    for (const auto& root : testRoots) {
        if (root.data == nullptr || root.size == 0) {
            Log(function, "failed to get test roots for class");
            return ruk::result::InvalidArgument;
        }
        (testRootsRequired ? required : optional)->push_back(root);
    }
    if (required->empty() && optional->empty()) {
        Log(function, "no trusted roots for class");
        return ruk::result::InvalidArgument;
    }
    return ruk::result::Success;
}

ruk::result_t VdsRevocationCheckerFactoryImpl::BuildUnverifiedDatabaseMap(DatabaseMap* map) const {
    for (const auto& database : loaded_) {
        if (!map->emplace(database->GetHierarchyId(), database).second) {
            Log(__func__, "More than one revocation database with hierarchy=",
                IdText(database->GetHierarchyId()));
            return ruk::result::AlreadyExists;
        }
    }
    return ruk::result::Success;
}

ruk::result_t VdsRevocationCheckerFactoryImpl::CheckAllRequiredRootsArePresent(
    const std::vector<ByteRange>& required, const DatabaseMap& map) const {
    for (const auto& root : required) {
        CoreCertificatePtr certificate;
        const ruk::result_t code = ParseRootCertificate(__func__, root, &certificate);
        if (ruk::Failed(code)) {
            return code;
        }
        const auto serial = SerialOf(*certificate);
        const auto found = map.find(serial);
        if (found == map.end()) {
            Log(__func__, "Required revocation database with hierarchy=", IdText(serial),
                " not found");
            return ruk::result::NotFound;
        }
        if (VdsRevocationMatchRoot(found->second->Get(), certificate->Get()) != vdsOk) {
            Log(__func__, "Certificate for revocation database with hierarchy=", IdText(serial),
                " not matched");
            return ruk::result::ObjectUntrusted;
        }
    }
    return ruk::result::Success;
}

ruk::result_t VdsRevocationCheckerFactoryImpl::ValidateWithRoot(
    const std::vector<ByteRange>& roots, const DatabaseMap& map,
    std::vector<CoreLoadedDatabasePtr>* validated) {
    std::map<std::vector<std::uint8_t>, CoreCertificatePtr> bySerial;
    for (const auto& root : roots) {
        CoreCertificatePtr certificate;
        const ruk::result_t code = ParseRootCertificate(__func__, root, &certificate);
        if (ruk::Failed(code)) {
            return code;
        }
        bySerial.emplace(SerialOf(*certificate), certificate);
    }
    for (const auto& [id, database] : map) {
        const auto root = bySerial.find(id);
        if (root == bySerial.end()) {
            // No chain can end at a root we do not trust: nothing to check.
            Log(__func__, "Revocation database with hierarchy=", IdText(id),
                " has no trusted root; skipped");
            continue;
        }
        const ruk::result_t code = factory_->ValidateRevocationDatabase(*database, *root->second);
        if (ruk::Failed(code)) {
            Log(__func__, "ValidateRevocationDatabase(hierarchy=", IdText(id), ") failed");
            return code;
        }
        Log(__func__, "Validated revocation database with hierarchy=", IdText(id));
        validated->push_back(database);
    }
    return ruk::result::Success;
}

ruk::result_t VdsRevocationCheckerFactoryImpl::UpdateRevocationChecker(
    const std::vector<CoreLoadedDatabasePtr>& databases) {
    std::vector<const VdsLoadedRevocationDb*> handles;
    for (const auto& database : databases) {
        handles.push_back(database->Get());
    }
    VdsRevocationChecker* created = nullptr;
    const VdsResult core = VdsCreateRevocationChecker(handles.data(), handles.size(), &created);
    common_objects::CoreRevocationChecker::Owned owned(created);
    if (core != vdsOk) {
        Log(__func__, "VdsCreateRevocationChecker() failed; VdsResult=", VdsResultText(core));
        return ToFrameworkResult(core);
    }
    checker_ = ruk::MakeIntrusive<common_objects::CoreRevocationChecker>(std::move(owned));
    if (IsLogEnabled()) {
        std::string line = "Created new revocation checker:";
        for (const auto& database : databases) {
            line += " Hierarchy Id (Root Serial)=" + IdText(database->GetHierarchyId()) +
                    ", Issued=" + TimeText(database->GetInfo().issueDate) + ";";
        }
        Log(__func__, line, " Revocation Checker Object=", PointerText(created));
    }
    return ruk::result::Success;
}

}  // namespace crypto::vds::service
