#include "check/raw_value_provider.h"

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/exception.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::check {
namespace {

const char* ValueTooLarge() {
    return "The value is %1% bytes long; a Value holds at most %2% bytes";
}

constexpr std::size_t kBlockSize = 64 * 1024;

[[noreturn]] void ThrowTooLarge(std::uint64_t size) {
    ICT_THROW(Exception(MessageFormat(ValueTooLarge(), size, RawValueProvider::kMaxSize)));
}

}  // namespace

std::string RawValueProvider::GetName() const {
    return "Raw";
}

void RawValueProvider::Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const {
    const ruk::intrusive_ptr<ruk::IIO> io = object.GetData();
    std::uint64_t size = 0;
    if (ruk::Succeeded(io->GetSize(&size)) && size > kMaxSize) {
        ThrowTooLarge(size);
    }
    std::vector<std::uint8_t> bytes;
    bytes.reserve(static_cast<std::size_t>(size));
    // The size may be unknown or grow while the object is read.
    RUK_CHECK(ReadBlocks(*io, kBlockSize, [&bytes](const std::uint8_t* data, std::size_t count) {
        if (count > kMaxSize - bytes.size()) {
            ThrowTooLarge(static_cast<std::uint64_t>(bytes.size()) + count);
        }
        bytes.insert(bytes.end(), data, data + count);
    }));
    value = std::move(bytes);
}

}  // namespace integrity_check_tool::check
