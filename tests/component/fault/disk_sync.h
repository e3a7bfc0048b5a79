#pragma once

#include <boost/filesystem/path.hpp>

// Notes every file this program puts on disk (fsync, fdatasync), so that a
// test can tell whether a file was made durable. Linux only.
namespace fault_test {

void ForgetDiskSyncs();
// Whether the file the path names now was put on disk since the last
// ForgetDiskSyncs(), under whatever name it had then.
bool WasSyncedToDisk(const boost::filesystem::path& path);

}  // namespace fault_test
