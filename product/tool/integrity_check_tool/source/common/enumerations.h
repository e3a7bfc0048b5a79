#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace integrity_check_tool {

// The program's named enumerations. Values are the ordinals of their name
// tables; they are not operating-system numbers.
enum class CheckType : std::uint32_t { Exists, NotExists, Gost2012, Sha256, Value };
enum class Bitness : std::uint8_t { Bits32, Bits64 };
enum class OsEdition : std::uint8_t { Server, Desktop };
enum class Os : std::uint8_t { Linux, Windows, MacOS };
enum class Arch : std::uint8_t { X86_64, X86, IA64, ARM32, ARM64, E2K32, E2K64 };
enum class SignatureType : std::uint32_t { Dsvm2, Vds, VdsWithFilename };
enum class RegistryType : std::uint32_t {
    Binary,
    Dword,
    DwordLittleEndian,
    DwordBigEndian,
    ExpandSz,
    Link,
    MultiSz,
    None,
    Qword,
    QwordLittleEndian,
    Sz,
};
// The compiled-in trusted roots of the signature verifiers.
enum class TrustedRoot : std::uint32_t { Root3520p1, Root3020d1, Root4820d1, Root4823d1 };

// A fixed table of values and their exact, case-sensitive names.
template <typename Enum, std::size_t N>
struct NamedValues {
    std::array<Enum, N> values;
    std::array<const char*, N> names;
};

// The table of each enumeration; specialised in enumerations.cpp.
template <typename Enum>
struct NamedValuesOf;

#define ICT_DECLARE_NAMED_VALUES(Enum, N)         \
    template <>                                   \
    struct NamedValuesOf<Enum> {                  \
        static const NamedValues<Enum, N>& Get(); \
    }

ICT_DECLARE_NAMED_VALUES(CheckType, 5);
ICT_DECLARE_NAMED_VALUES(Bitness, 2);
ICT_DECLARE_NAMED_VALUES(OsEdition, 2);
ICT_DECLARE_NAMED_VALUES(Os, 3);
ICT_DECLARE_NAMED_VALUES(Arch, 7);
ICT_DECLARE_NAMED_VALUES(SignatureType, 3);
ICT_DECLARE_NAMED_VALUES(RegistryType, 11);
ICT_DECLARE_NAMED_VALUES(TrustedRoot, 4);

#undef ICT_DECLARE_NAMED_VALUES

[[noreturn]] void ThrowInvalidName(const std::string& name);

// Linear search from the first entry; "Invalid name: %1%" when absent.
template <typename Enum>
Enum FromName(const std::string& name) {
    const auto& table = NamedValuesOf<Enum>::Get();
    for (std::size_t index = 0; index < table.names.size(); ++index) {
        if (name == table.names[index]) {
            return table.values[index];
        }
    }
    ThrowInvalidName(name);
}

// The name at the value's index; an index beyond the table is a programming
// error reported as std::out_of_range.
template <typename Enum>
std::string ToName(Enum value) {
    const auto& table = NamedValuesOf<Enum>::Get();
    const auto index = static_cast<std::size_t>(value);
    if (index >= table.names.size()) {
        throw std::out_of_range("invalid array<T, N> subscript");
    }
    return table.names[index];
}

}  // namespace integrity_check_tool
