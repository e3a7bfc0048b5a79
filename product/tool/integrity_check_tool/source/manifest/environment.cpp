#include "manifest/environment.h"

#include <algorithm>
#include <vector>

#include <boost/regex.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "manifest/path_text.h"
#include "manifest/placeholder_scanner.h"
#include "platform/environment.h"
#include "ruk/exception.h"

namespace integrity_check_tool {
namespace {

const char* WrongFormat() {
    return "Wrong format of environment variable %1%";
}
const char* EmptyValue() {
    return "Value of environment variable %1% is empty";
}
const char* UnknownVariable() {
    return "Unknown environment variable %1%";
}
const char* UsedRecursively() {
    return "Environment variable %1% used recursively";
}
const char* VariableSet() {
    return "Environment variable %1% is set to %2%";
}

}  // namespace

void Environment::ExpandContext::UseKey(const std::string& key) {
    if (!usedKeys_.insert(key).second) {
        ICT_THROW(Exception(MessageFormat(UsedRecursively(), key)));
    }
}

Environment::Environment(const boost::filesystem::path& manifestPath, TracerPtr tracer)
    : tracer_(std::move(tracer)) {
    SetValue("ManifestPath", PathToUtf8(manifestPath));
    // A bare file name lives in the current folder; an empty root would turn
    // "%ProductRoot%\bin" into a path from the file-system root.
    const auto root = manifestPath.parent_path();
    SetValue("ProductRoot", root.empty() ? std::string(".") : PathToUtf8(root));
}

std::string Environment::Placeholder2Key(const std::string& text) {
    static const boost::regex placeholder("%([^%]+)%");
    static const boost::regex bareKey("[^%]+");
    boost::smatch match;
    if (boost::regex_match(text, match, placeholder)) {
        return match[1].str();
    }
    if (boost::regex_match(text, bareKey)) {
        return text;
    }
    ICT_THROW(Exception(MessageFormat(WrongFormat(), text)));
}

void Environment::SetValue(const std::string& key, const std::string& value) {
    std::string normalised = Placeholder2Key(key);
    if (value.empty()) {
        ICT_THROW(Exception(MessageFormat(EmptyValue(), normalised)));
    }
    if (tracer_) {
        tracer_->Trace(trace_level::Detail, VariableSet(), normalised, value);
    }
    values_[std::move(normalised)] = value;
}

std::string Environment::GetValue(const std::string& key) const {
    const std::string normalised = Placeholder2Key(key);
    auto value = FindValue(normalised);
    if (!value) {
        ICT_THROW(Exception(MessageFormat(UnknownVariable(), normalised)));
    }
    return std::move(*value);
}

boost::optional<std::string> Environment::FindValue(const std::string& key) const {
    boost::optional<std::string> value;
    RUK_CHECK(platform::LookupProcessVariable(key, &value));
    if (value) {
        return value;
    }
    const auto found = values_.find(key);
    if (found != values_.end()) {
        return found->second;
    }
    return boost::none;
}

bool Environment::ExpandPass(const std::string& text, ExpandContext& context,
                             std::string& result) const {
    result.clear();
    bool substituted = false;
    // A key met twice in one pass ("%A%\%A%") is one use; only a key that
    // comes back through a value in a later pass is a recursion.
    std::vector<std::string> usedInPass;
    std::size_t copied = 0;
    for (auto placeholder = FindPlaceholder(text, 0); placeholder;
         placeholder = FindPlaceholder(text, placeholder->end)) {
        const std::string key = text.substr(placeholder->keyBegin, placeholder->KeyLength());
        auto value = FindValue(key);
        if (!value) {
            continue;
        }
        if (std::find(usedInPass.begin(), usedInPass.end(), key) == usedInPass.end()) {
            context.UseKey(key);
            usedInPass.push_back(key);
        }
        result.append(text, copied, placeholder->begin - copied);
        result += *value;
        copied = placeholder->end;
        substituted = true;
    }
    result.append(text, copied, std::string::npos);
    return substituted;
}

std::string Environment::Expand(const std::string& text) const {
    if (text.find('%') == std::string::npos) {
        return text;
    }
    ExpandContext context(*this);
    std::string current = text;
    std::string next;
    while (ExpandPass(current, context, next)) {
        current.swap(next);
    }
    return current;
}

}  // namespace integrity_check_tool
