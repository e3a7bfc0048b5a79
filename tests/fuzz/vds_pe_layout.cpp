// Feeds arbitrary bytes to the PE header and certificate-table walk: it must
// never read outside the file, and whatever it accepts must describe ranges
// inside the file.
#include "fuzz_input.h"
#include "vds/pe_format.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto read = [&](std::uint64_t offset, void* buffer, std::size_t count) -> VdsResult {
        if (count == 0) {
            __builtin_trap();  // the parser asked for nothing
        }
        ict_fuzz::CopyInside(data, size, offset, buffer, count);
        return vdsOk;
    };
    vds::format::PeStatus status = vds::format::PeStatus::NotPe;
    vds::format::PeLayout layout;
    if (vds::format::ParsePe(read, size, &status, &layout) != vdsOk) {
        __builtin_trap();  // reads never fail here
    }
    if (status != vds::format::PeStatus::Parsed) {
        return 0;
    }
    for (const auto& entry : layout.certificates) {
        if (entry.offset + entry.length > size) {
            __builtin_trap();
        }
    }
    std::uint64_t next = 0;
    for (const auto& range : vds::format::ImageDigestRanges(layout, size)) {
        if (range.offset < next || range.offset + range.size > size) {
            __builtin_trap();
        }
        next = range.offset + range.size;
    }
    return 0;
}
