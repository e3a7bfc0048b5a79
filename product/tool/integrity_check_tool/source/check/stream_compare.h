#pragma once

#include <cstdint>
#include <vector>

#include "ruk/io.h"

namespace integrity_check_tool::check {

// `io` must be positioned at its start.
// True when the stream, read from its start to its end, holds exactly
// `expected`. The size is compared first when the stream knows it;
// then the bytes block by block, stopping at the first difference or as soon
// as the stream runs past the expected length, so that no more than one
// block is held and an endless stream ends the comparison too. A failing
// read raises the framework's result exception.
bool StreamHolds(ruk::IIO& io, const std::vector<std::uint8_t>& expected);

}  // namespace integrity_check_tool::check
