#include "common/enumerations.h"

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool {

void ThrowInvalidName(const std::string& name) {
    ICT_THROW(Exception(MessageFormat("Invalid name: %1%", name)));
}

const NamedValues<CheckType, 5>& NamedValuesOf<CheckType>::Get() {
    static const NamedValues<CheckType, 5> table{
        {CheckType::Exists, CheckType::NotExists, CheckType::Gost2012, CheckType::Sha256,
         CheckType::Value},
        {"Exists", "NotExists", "Gost2012", "Sha256", "Value"}};
    return table;
}

const NamedValues<Bitness, 2>& NamedValuesOf<Bitness>::Get() {
    static const NamedValues<Bitness, 2> table{{Bitness::Bits32, Bitness::Bits64}, {"32", "64"}};
    return table;
}

const NamedValues<OsEdition, 2>& NamedValuesOf<OsEdition>::Get() {
    static const NamedValues<OsEdition, 2> table{{OsEdition::Server, OsEdition::Desktop},
                                                  {"Server", "Desktop"}};
    return table;
}

const NamedValues<Os, 3>& NamedValuesOf<Os>::Get() {
    static const NamedValues<Os, 3> table{{Os::Linux, Os::Windows, Os::MacOS},
                                           {"Linux", "Windows", "MacOS"}};
    return table;
}

const NamedValues<Arch, 7>& NamedValuesOf<Arch>::Get() {
    static const NamedValues<Arch, 7> table{
        {Arch::X86_64, Arch::X86, Arch::IA64, Arch::ARM32, Arch::ARM64, Arch::E2K32, Arch::E2K64},
        {"X86_64", "X86", "IA64", "ARM32", "ARM64", "E2K32", "E2K64"}};
    return table;
}

const NamedValues<SignatureType, 3>& NamedValuesOf<SignatureType>::Get() {
    static const NamedValues<SignatureType, 3> table{
        {SignatureType::Dsvm2, SignatureType::Vds, SignatureType::VdsWithFilename},
        {"dsvm2", "vds", "vds-with-filename"}};
    return table;
}

const NamedValues<RegistryType, 11>& NamedValuesOf<RegistryType>::Get() {
    static const NamedValues<RegistryType, 11> table{
        {RegistryType::Binary, RegistryType::Dword, RegistryType::DwordLittleEndian,
         RegistryType::DwordBigEndian, RegistryType::ExpandSz, RegistryType::Link,
         RegistryType::MultiSz, RegistryType::None, RegistryType::Qword,
         RegistryType::QwordLittleEndian, RegistryType::Sz},
        {"REG_BINARY", "REG_DWORD", "REG_DWORD_LITTLE_ENDIAN", "REG_DWORD_BIG_ENDIAN",
         "REG_EXPAND_SZ", "REG_LINK", "REG_MULTI_SZ", "REG_NONE", "REG_QWORD",
         "REG_QWORD_LITTLE_ENDIAN", "REG_SZ"}};
    return table;
}

const NamedValues<TrustedRoot, 4>& NamedValuesOf<TrustedRoot>::Get() {
    static const NamedValues<TrustedRoot, 4> table{
        {TrustedRoot::Root3520p1, TrustedRoot::Root3020d1, TrustedRoot::Root4820d1,
         TrustedRoot::Root4823d1},
        {"3520p1", "3020d1", "4820d1", "4823d1"}};
    return table;
}

}  // namespace integrity_check_tool
