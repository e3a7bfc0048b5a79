#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

// The name a signature is bound to, for the VDS and GOST verifiers and for
// the signer alike, so that what one binds the other checks.
namespace integrity_check_tool {

// The file name as it stands in the path, without any case change: the
// characters after the last "\" or "/", or after a leading drive letter and
// colon when there is no separator ("C:a.dll" gives "a.dll" on every
// system). In UTF-16; a POSIX path is taken as UTF-8 and one that is not
// valid UTF-8 throws Exception "File name %1% is not valid UTF-8".
std::u16string SignedFileName(const boost::filesystem::path& path);

// The same name as UTF-16LE bytes followed by one zero code unit: the
// additional content of a VDS signature bound to the file name.
std::vector<std::uint8_t> SignedFileNameBytes(const boost::filesystem::path& path);

}  // namespace integrity_check_tool
