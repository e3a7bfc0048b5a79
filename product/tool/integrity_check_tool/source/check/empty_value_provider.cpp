#include "check/empty_value_provider.h"

namespace integrity_check_tool::check {

std::string EmptyValueProvider::GetName() const {
    return "Empty";
}

void EmptyValueProvider::Evaluate(const IDataObject& /*object*/,
                                  std::vector<std::uint8_t>& value) const {
    value.clear();
}

}  // namespace integrity_check_tool::check
