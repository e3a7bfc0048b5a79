#pragma once

#include <cstdint>
#include <set>
#include <string>

#include <boost/optional.hpp>

#include "common/enumerations.h"
#include "platform/system_facts.h"

namespace integrity_check_tool {

// Facts about the running system that the filters compare against, and the
// definition names given on the command line. The system is asked once per
// process; every instance shares that snapshot. The operations are virtual so
// that a test or a tool can describe another system.
class SystemInfo {
public:
    explicit SystemInfo(std::set<std::string> definitions);
    // Describes the given facts instead of the running system.
    SystemInfo(std::set<std::string> definitions, const platform::SystemFacts& facts);
    virtual ~SystemInfo();

    // Throws Exception "Unsupported system architecture %1%" for an unknown code.
    virtual Arch GetOsArch() const;
    virtual Os GetOs() const;
    virtual OsEdition GetEdition() const;
    // The system's own bitness, not the process's.
    virtual Bitness GetBitness() const;
    // Major version times 100 plus minor version (Windows 10 gives 1000).
    virtual std::uint32_t GetVersion() const;
    virtual std::set<std::string> GetDefinitions() const;

protected:
    // The snapshot in use; asks the system on first use (ruk::ResultException
    // when it cannot, and a later call asks again).
    const platform::SystemFacts& GetFacts() const;

private:
    std::set<std::string> definitions_;
    boost::optional<platform::SystemFacts> facts_;
};

}  // namespace integrity_check_tool
