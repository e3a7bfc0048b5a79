#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool::generate {

// A name found on disk, as a manifest would hold it.
struct EntryName {
    std::string text;               // UTF-8; meaningful only when nothing is wrong
    std::string shown;              // for messages: bytes that are not text escaped
    const char* problem = nullptr;  // why no manifest can name it, or null
};

// Checks a relative path in the system's own form: it must decode (UTF-8 on
// POSIX, UTF-16 on Windows), hold only characters an XML document can carry,
// and no backslash, which a manifest reads as a separator. In `shown`,
// undecodable bytes read "\xD6" (units "\uD800"), control characters "\x0A",
// and a backslash "\\", so that a message stays one readable line.
EntryName DescribeEntryName(const boost::filesystem::path::string_type& relative);

// UTF-8 text made fit for a one-line message, escaped as above.
std::string ShowName(const std::string& text);

// True when a '%' of `relative`, joined to `folder` as the manifest writes
// it, would begin or end a placeholder: the placeholder syntax has no escape,
// so the checker would look for another file.
bool NameMakesPlaceholder(const std::string& folder, const std::string& relative);

}  // namespace integrity_check_tool::generate
