#pragma once

#include <cstdint>
#include <string>

#include "crypto/vds/service/service.h"
#include "ruk/result.h"
#include "vds/vds_types.h"

// Name tables and texts of the service's log vocabulary.
namespace crypto::vds::service {

// How revocation databases of test roots are treated.
typedef std::uint32_t TestRootHandlingPolicyFlags;
enum : TestRootHandlingPolicyFlags {
    testRootPolicyNone = 0,
    testRootPolicyCrlMustExist = 0x1,  // a database must exist for every test root too
};

// "vdsOk", ...; "Unknown VDS error code" for any other value.
const char* GetVdsResultName(VdsResult result);
// "<code> (<name>)", for log lines.
std::string VdsResultText(VdsResult result);
// "Unspecified", "PortableExecutable32", "PortableExecutable64";
// "Unknown VDS file format id" otherwise.
const char* GetFileFormatName(VdsFileFormat format);
// "vdsHashAlgorithmInvalid", "vdsGost3411_2012_256", "vdsGost3411_2012_512";
// "Unknown VDS hash algorithm id" otherwise.
const char* GetHashAlgorithmName(VdsHashAlgorithm algorithm);
// The names of the set bits joined with "|", the rest as "UNKNOWN=0x...";
// "None" for no bit.
std::string VerificationFlagsToString(VdsVerificationFlags flags);
// "TestRootHandlingPolicyFlags:" followed by the names ("None", "CrlMustExist").
std::string PolicyFlagsToString(TestRootHandlingPolicyFlags flags);

// The framework code for a core result.
ruk::result_t ToFrameworkResult(VdsResult result);

std::string HexText(const std::uint8_t* bytes, std::size_t size);
// An OID from its content bytes: its purpose name when it is one we know,
// else the dotted form (hex when the bytes are not an OID).
std::string PurposeText(ByteRange oid);
// A ", "-separated list of dotted OIDs with the known ones named.
std::string PurposesText(const std::string& dottedList);
// "YYYY-MM-DD hh:mm:ss UTC" from seconds since 1970.
std::string TimeText(std::int64_t seconds);
// "0x..." or "<nullptr>".
std::string PointerText(const void* pointer);
// UTF-16LE code units shown as UTF-8 (a trailing zero unit dropped).
std::string Utf16Text(ByteRange units);

}  // namespace crypto::vds::service
