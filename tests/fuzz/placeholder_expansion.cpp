// Expands a text through environment entries taken from the input: lines
// "key=value" set entries, the last line is the text. Expansion must end
// within its bound or fail with its own exception, and the placeholder
// scanner must find exactly what the pattern "%([^%]+)%" finds.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <boost/regex.hpp>

#include "common/exception.h"
#include "manifest/environment.h"
#include "manifest/placeholder_scanner.h"

namespace {

using namespace integrity_check_tool;

std::size_t Characters(const std::string& text) {
    std::size_t count = 0;
    for (const char c : text) {
        count += (static_cast<unsigned char>(c) & 0xC0) == 0x80 ? 0 : 1;
    }
    return count;
}

void CompareScannerWithPattern(const std::string& text) {
    static const boost::regex pattern("%([^%]+)%");
    std::size_t from = 0;
    auto start = text.cbegin();
    boost::smatch match;
    while (boost::regex_search(start, text.cend(), match, pattern)) {
        const auto found = FindPlaceholder(text, from);
        const auto begin = static_cast<std::size_t>(match[0].first - text.cbegin());
        const auto end = static_cast<std::size_t>(match[0].second - text.cbegin());
        if (!found || found->begin != begin || found->end != end) {
            __builtin_trap();
        }
        from = end;
        start = match[0].second;
    }
    if (FindPlaceholder(text, from)) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> lines;
    std::istringstream stream(input);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    if (lines.empty()) {
        return 0;
    }
    Environment environment("/fuzz/product/manifest.xml", nullptr);
    for (std::size_t index = 0; index + 1 < lines.size(); ++index) {
        const std::size_t equals = lines[index].find('=');
        if (equals == std::string::npos) {
            continue;
        }
        try {
            environment.SetValue(lines[index].substr(0, equals), lines[index].substr(equals + 1));
        } catch (const Exception&) {
        }
    }
    const std::string& text = lines.back();
    CompareScannerWithPattern(text);
    try {
        const std::string expanded = environment.Expand(text);
        if (Characters(expanded) > Environment::kMaxExpandedLength) {
            __builtin_trap();
        }
    } catch (const Exception&) {
    }
    return 0;
}
