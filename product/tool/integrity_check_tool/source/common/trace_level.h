#pragma once

namespace integrity_check_tool::trace_level {

constexpr unsigned Error = 300;
constexpr unsigned Warning = 400;
constexpr unsigned Info = 600;
constexpr unsigned Startup = 700;
constexpr unsigned Detail = 800;

}  // namespace integrity_check_tool::trace_level
