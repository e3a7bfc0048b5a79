#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "common/enumerations.h"
#include "manifest/filter.h"
#include "system_info.h"
#include "tracer.h"

namespace integrity_check_tool {

// Decides whether a manifest record applies on this system. The facts are
// taken once, when the evaluator is made.
class FilterEvaluator {
public:
    // The facts a record's conditions are compared with.
    struct Context {
        Arch arch = Arch::X86;
        Os os = Os::Windows;
        OsEdition edition = OsEdition::Desktop;
        Bitness bitness = Bitness::Bits32;
        std::uint32_t version = 0;  // Windows NT version, or the kernel version on Linux
        std::set<std::string> definitions;
    };

    // Traces "Filter: " with the context at the detail level. The tracer may be null.
    FilterEvaluator(TracerPtr tracer, const SystemInfo& system);

    // True when the record is filtered out; the first failing condition, in
    // the fixed order, is traced as "%1% filtered by %2%".
    bool IsFiltered(const Filter& filter, const std::string& printableName) const;

    const Context& GetContext() const { return context_; }

private:
    using Predicate = bool (*)(const Filter&, const Context&);
    struct NamedPredicate {
        const char* name;
        Predicate isFilteredOut;
    };

    TracerPtr tracer_;
    Context context_;
    std::vector<NamedPredicate> predicates_;
};

// The context as one line of JSON: "arch", "os", "edition", "bitness",
// "version", "definitions" (the names joined with ",").
std::string PrintFilterContext(const FilterEvaluator::Context& context);

}  // namespace integrity_check_tool
