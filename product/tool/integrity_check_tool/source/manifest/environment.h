#pragma once

#include <map>
#include <set>
#include <string>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "tracer.h"

namespace integrity_check_tool {

// Named values that expand %NAME% placeholders in a manifest's paths and
// values. The process environment comes first, then the values set here
// (the built-in "ManifestPath" and "ProductRoot", then the manifest's own
// entries). Keys are case-sensitive.
class Environment {
public:
    // The state of one expansion: the keys it has substituted so far, so that
    // a value leading back to its own key ends the expansion with an error.
    class ExpandContext {
    public:
        explicit ExpandContext(const Environment& environment) : environment_(environment) {}

        // Throws Exception "Environment variable %1% used recursively" when the
        // key was already used in this expansion.
        void UseKey(const std::string& key);
        const Environment& GetEnvironment() const { return environment_; }

    private:
        const Environment& environment_;
        std::set<std::string> usedKeys_;
    };

    // Sets "ManifestPath" to the manifest's path and "ProductRoot" to the
    // folder that holds it. The tracer may be null.
    Environment(const boost::filesystem::path& manifestPath, TracerPtr tracer);

    // "%KEY%" or a bare "KEY" gives KEY; anything else throws Exception
    // "Wrong format of environment variable %1%".
    static std::string Placeholder2Key(const std::string& text);

    // Stores the value under the normalised key; a later value replaces an
    // earlier one. Throws on a malformed key or an empty value.
    void SetValue(const std::string& key, const std::string& value);

    // Throws Exception "Unknown environment variable %1%" when no source has it.
    std::string GetValue(const std::string& key) const;

    // The longest text an expansion may give, in characters: the longest
    // path Windows knows.
    static constexpr std::size_t kMaxExpandedLength = 32767;

    // Replaces every known placeholder, pass after pass, until a pass finds
    // nothing to replace; unknown placeholders stay as they are. A result
    // longer than kMaxExpandedLength throws Exception "Expanded text of %1%
    // is too long" with the text's start, as soon as a pass gets there.
    std::string Expand(const std::string& text) const;

private:
    boost::optional<std::string> FindValue(const std::string& key) const;
    bool ExpandPass(const std::string& text, const std::string& original, ExpandContext& context,
                    std::string& result) const;

    TracerPtr tracer_;
    std::map<std::string, std::string> values_;
};

}  // namespace integrity_check_tool
