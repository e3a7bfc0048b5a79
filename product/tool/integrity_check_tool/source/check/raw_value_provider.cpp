#include "check/raw_value_provider.h"

#include "ruk/exception.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::check {
namespace {

constexpr std::size_t kBlockSize = 64 * 1024;

}  // namespace

std::string RawValueProvider::GetName() const {
    return "Raw";
}

void RawValueProvider::Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const {
    const ruk::intrusive_ptr<ruk::IIO> io = object.GetData();
    std::vector<std::uint8_t> bytes;
    RUK_CHECK(ReadBlocks(*io, kBlockSize, [&bytes](const std::uint8_t* data, std::size_t size) {
        bytes.insert(bytes.end(), data, data + size);
    }));
    value = std::move(bytes);
}

}  // namespace integrity_check_tool::check
