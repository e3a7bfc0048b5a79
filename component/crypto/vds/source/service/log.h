#pragma once

#include <sstream>
#include <string>

// The service's own lines, to the installed sink (log_sink.h).
namespace crypto::vds::service {

bool IsLogEnabled();
void WriteLogLine(const std::string& line);

// Writes "<function>: <parts...>"; nothing is composed when no sink listens.
template <typename... Parts>
void Log(const char* function, const Parts&... parts) {
    if (!IsLogEnabled()) {
        return;
    }
    std::ostringstream line;
    line << function << ": ";
    (line << ... << parts);
    WriteLogLine(line.str());
}

}  // namespace crypto::vds::service
