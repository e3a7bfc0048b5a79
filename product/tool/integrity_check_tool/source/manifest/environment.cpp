#include "manifest/environment.h"

#include <set>

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
const char* TooLong() {
    return "Expanded text of %1% is too long";
}

// How much of a text a message shows.
constexpr std::size_t kShownStart = 64;

bool IsContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The start of `text` for a message, cut after a whole character.
std::string TextStart(const std::string& text) {
    if (text.size() <= kShownStart) {
        return text;
    }
    std::size_t end = kShownStart;
    while (end > 0 && IsContinuationByte(text[end])) {
        --end;
    }
    return text.substr(0, end) + "...";
}

// A text being built by expansion, counted in characters (UTF-8) as it grows,
// so that doubling values stop at the bound instead of filling memory.
class BoundedText {
public:
    BoundedText(std::string& text, const std::string& original) : text_(text), original_(original) {
        text_.clear();
    }

    void Append(const std::string& source, std::size_t from, std::size_t count) {
        const std::size_t end = count == std::string::npos ? source.size() : from + count;
        for (std::size_t at = from; at < end; ++at) {
            characters_ += IsContinuationByte(source[at]) ? 0 : 1;
        }
        if (characters_ > Environment::kMaxExpandedLength) {
            ICT_THROW(Exception(MessageFormat(TooLong(), TextStart(original_))));
        }
        text_.append(source, from, end - from);
    }

private:
    std::string& text_;
    const std::string& original_;
    std::size_t characters_ = 0;
};

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

bool Environment::ExpandPass(const std::string& text, const std::string& original,
                             ExpandContext& context, std::string& result) const {
    BoundedText bounded(result, original);
    bool substituted = false;
    // A key met twice in one pass ("%A%\%A%") is one use; only a key that
    // comes back through a value in a later pass is a recursion.
    std::set<std::string> usedInPass;
    std::size_t copied = 0;
    for (auto placeholder = FindPlaceholder(text, 0); placeholder;
         placeholder = FindPlaceholder(text, placeholder->end)) {
        std::string key = text.substr(placeholder->keyBegin, placeholder->KeyLength());
        const auto value = FindValue(key);
        if (!value) {
            continue;
        }
        if (usedInPass.count(key) == 0) {
            context.UseKey(key);
            usedInPass.insert(std::move(key));
        }
        bounded.Append(text, copied, placeholder->begin - copied);
        bounded.Append(*value, 0, std::string::npos);
        copied = placeholder->end;
        substituted = true;
    }
    bounded.Append(text, copied, std::string::npos);
    return substituted;
}

std::string Environment::Expand(const std::string& text) const {
    if (text.find('%') == std::string::npos) {
        if (text.size() > kMaxExpandedLength) {
            std::string ignored;
            BoundedText(ignored, text).Append(text, 0, std::string::npos);
        }
        return text;
    }
    ExpandContext context(*this);
    std::string current = text;
    std::string next;
    while (ExpandPass(current, text, context, next)) {
        current.swap(next);
    }
    return current;
}

}  // namespace integrity_check_tool
