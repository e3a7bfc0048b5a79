#include "generate/entry_name.h"

#include <cstdint>
#include <cstdio>

#include "manifest/placeholder_scanner.h"

namespace integrity_check_tool::generate {
namespace {

const char* NotUtf8() {
    return "its name is not valid UTF-8, which a manifest can't hold";
}
const char* NotUtf16() {
    return "its name is not valid UTF-16, which a manifest can't hold";
}
const char* NotXmlCharacter() {
    return "its name holds a control character, which a manifest can't hold";
}
const char* BackslashInName() {
    return "its name holds a backslash, which a manifest path can't";
}

constexpr char32_t kInvalid = 0xFFFFFFFF;

// Characters an XML 1.0 document may hold, as text or as a reference.
bool IsXmlCharacter(char32_t code) {
    return code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
           (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

std::string Escaped(const char* format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

void AppendUtf8(std::string& text, char32_t code) {
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | (code >> 6));
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | (code >> 12));
        text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (code >> 18));
        text += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// One UTF-8 sequence at `at`, strictly: no overlong forms, no surrogates,
// nothing above U+10FFFF. `length` gets how many bytes it took.
char32_t DecodeUtf8(const std::string& text, std::size_t at, std::size_t& length) {
    const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
    const std::uint8_t lead = byte(at);
    length = 1;
    if (lead < 0x80) {
        return lead;
    }
    // Mask and value of the lead byte, continuation bytes, smallest code.
    struct Form {
        std::uint8_t mask;
        std::uint8_t value;
        std::size_t count;
        char32_t least;
    };
    static const Form forms[] = {
        {0xE0, 0xC0, 1, 0x80}, {0xF0, 0xE0, 2, 0x800}, {0xF8, 0xF0, 3, 0x10000}};
    const Form* form = nullptr;
    for (const Form& candidate : forms) {
        if ((lead & candidate.mask) == candidate.value) {
            form = &candidate;
        }
    }
    if (form == nullptr) {
        return kInvalid;
    }
    const std::size_t count = form->count;
    const char32_t least = form->least;
    char32_t code = lead & static_cast<std::uint8_t>(~form->mask);
    if (at + count >= text.size()) {
        return kInvalid;
    }
    for (std::size_t index = 1; index <= count; ++index) {
        if ((byte(at + index) & 0xC0) != 0x80) {
            return kInvalid;
        }
        code = (code << 6) | (byte(at + index) & 0x3F);
    }
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return kInvalid;
    }
    length = count + 1;
    return code;
}

// Adds one decoded character to both forms and notes what is wrong with it.
void AddCharacter(EntryName& name, char32_t code) {
    if (code == '\\') {
        name.shown += "\\\\";
        name.problem = name.problem != nullptr ? name.problem : BackslashInName();
    } else if (code < 0x20 || code == 0x7F) {
        name.shown += Escaped("\\x%02X", static_cast<unsigned>(code));
    } else {
        AppendUtf8(name.shown, code);
    }
    if (!IsXmlCharacter(code) && name.problem == nullptr) {
        name.problem = NotXmlCharacter();
    }
    AppendUtf8(name.text, code);
}

EntryName Describe(const std::string& relative) {
    EntryName name;
    for (std::size_t at = 0; at < relative.size();) {
        std::size_t length = 1;
        const char32_t code = DecodeUtf8(relative, at, length);
        if (code == kInvalid) {
            name.shown += Escaped("\\x%02X", static_cast<std::uint8_t>(relative[at]));
            name.problem = NotUtf8();
        } else {
            AddCharacter(name, code);
        }
        at += length;
    }
    return name;
}

// Only Windows names are UTF-16.
[[maybe_unused]] EntryName Describe(const std::wstring& relative) {
    EntryName name;
    for (std::size_t at = 0; at < relative.size(); ++at) {
        char32_t code = static_cast<char32_t>(relative[at]) & 0xFFFF;
        if (code >= 0xD800 && code <= 0xDBFF && at + 1 < relative.size()) {
            const char32_t low = static_cast<char32_t>(relative[at + 1]) & 0xFFFF;
            if (low >= 0xDC00 && low <= 0xDFFF) {
                AddCharacter(name, 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00));
                ++at;
                continue;
            }
        }
        if (code >= 0xD800 && code <= 0xDFFF) {
            name.shown += Escaped("\\u%04X", static_cast<unsigned>(code));
            name.problem = NotUtf16();
            continue;
        }
        // The system's separator is the manifest's '/' here.
        AddCharacter(name, code == '\\' ? U'/' : code);
    }
    return name;
}

}  // namespace

EntryName DescribeEntryName(const boost::filesystem::path::string_type& relative) {
    return Describe(relative);
}

std::string ShowName(const std::string& text) {
    return Describe(text).shown;
}

bool NameMakesPlaceholder(const std::string& folder, const std::string& relative) {
    if (relative.find('%') == std::string::npos) {
        return false;
    }
    // The group form writes the name alone; the single form joins it.
    for (const std::string& written : {relative, folder + '\\' + relative}) {
        const std::size_t nameStart = written.size() - relative.size();
        for (auto match = FindPlaceholder(written, 0); match;
             match = FindPlaceholder(written, match->end)) {
            if (match->end > nameStart) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace integrity_check_tool::generate
