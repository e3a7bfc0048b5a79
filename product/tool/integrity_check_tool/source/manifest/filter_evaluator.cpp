#include "manifest/filter_evaluator.h"

#include <sstream>

#include <boost/algorithm/string/join.hpp>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "common/trace_level.h"

namespace integrity_check_tool {
namespace {

const char* FilterContext() {
    return "Filter: %1%";
}
const char* FilteredBy() {
    return "%1% filtered by %2%";
}

using Context = FilterEvaluator::Context;

template <typename Value>
bool Differs(const boost::optional<Value>& condition, const Value& actual) {
    return condition && *condition != actual;
}

bool ArchDiffers(const Filter& filter, const Context& context) {
    return Differs(filter.arch, context.arch);
}

bool OsDiffers(const Filter& filter, const Context& context) {
    return Differs(filter.os, context.os);
}

bool EditionDiffers(const Filter& filter, const Context& context) {
    return Differs(filter.osEdition, context.edition);
}

bool BitnessDiffers(const Filter& filter, const Context& context) {
    return Differs(filter.bitness, context.bitness);
}

// Deliberately an exact match, unlike the NT bounds.
bool KernelVersionDiffers(const Filter& filter, const Context& context) {
    return context.os == Os::Linux && Differs(filter.linuxKernelVersion, context.version);
}

bool BelowMinVersion(const Filter& filter, const Context& context) {
    return context.os == Os::Windows && filter.minVersionNt &&
           *filter.minVersionNt > context.version;
}

bool AboveMaxVersion(const Filter& filter, const Context& context) {
    return context.os == Os::Windows && filter.maxVersionNt &&
           *filter.maxVersionNt < context.version;
}

bool NotDefined(const Filter& filter, const Context& context) {
    return !filter.defined.empty() && context.definitions.count(filter.defined) == 0;
}

Context MakeContext(const SystemInfo& system) {
    Context context;
    context.arch = system.GetOsArch();
    context.os = system.GetOs();
    context.edition = system.GetEdition();
    context.bitness = system.GetBitness();
    context.version = system.GetVersion();
    context.definitions = system.GetDefinitions();
    return context;
}

}  // namespace

std::string PrintFilterContext(const Context& context) {
    boost::property_tree::ptree tree;
    tree.put("arch", ToName(context.arch));
    tree.put("os", ToName(context.os));
    tree.put("edition", ToName(context.edition));
    tree.put("bitness", ToName(context.bitness));
    tree.put("version", std::to_string(context.version));
    tree.put("definitions", boost::algorithm::join(context.definitions, ","));
    std::ostringstream text;
    boost::property_tree::write_json(text, tree, false);
    std::string line = text.str();
    if (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    return line;
}

FilterEvaluator::FilterEvaluator(TracerPtr tracer, const SystemInfo& system)
    : tracer_(std::move(tracer)),
      context_(MakeContext(system)),
      predicates_{{"arch", &ArchDiffers},
                  {"os", &OsDiffers},
                  {"osEdition", &EditionDiffers},
                  {"bitness", &BitnessDiffers},
                  {"linuxKernelVersion", &KernelVersionDiffers},
                  {"minVersionNt", &BelowMinVersion},
                  {"maxVersionNt", &AboveMaxVersion},
                  {"defined", &NotDefined}} {
    if (tracer_ && tracer_->IsEnabled(trace_level::Detail)) {
        tracer_->Trace(trace_level::Detail, FilterContext(), PrintFilterContext(context_));
    }
}

bool FilterEvaluator::IsFiltered(const Filter& filter, const std::string& printableName) const {
    Filter effective = filter;
    // NT version bounds imply Windows, so such a record is filtered by "os"
    // on any other system.
    if (!effective.os && (effective.minVersionNt || effective.maxVersionNt)) {
        effective.os = Os::Windows;
    }
    for (const auto& predicate : predicates_) {
        if (predicate.isFilteredOut(effective, context_)) {
            if (tracer_) {
                tracer_->Trace(trace_level::Detail, FilteredBy(), printableName, predicate.name);
            }
            return true;
        }
    }
    return false;
}

}  // namespace integrity_check_tool
