#pragma once

#include <string>
#include <vector>

#include <boost/exception/get_error_info.hpp>

#include "common/exception.h"
#include "ruk/io.h"
#include "support/thrown.h"
#include "xml/file.h"

namespace integrity_check_tool::xml::testing {

inline ruk::intrusive_ptr<ruk::MemoryIO> MemoryStream(const std::string& text = "") {
    return ruk::MakeIntrusive<ruk::MemoryIO>(std::vector<std::uint8_t>(text.begin(), text.end()));
}

inline std::string TextOf(const ruk::MemoryIO& io) {
    return std::string(io.Data().begin(), io.Data().end());
}

inline ManifestPtr ReadXml(const std::string& text) {
    auto io = MemoryStream(text);
    return File(nullptr).Read(*io);
}

inline std::string WriteXml(const Manifest& manifest) {
    auto io = MemoryStream();
    File(nullptr).Write(manifest, *io);
    return TextOf(*io);
}

// The message of the Exception thrown by reading `text`.
inline std::string ReadFailure(const std::string& text) {
    return ict_test::ThrownText<Exception>([&] { ReadXml(text); });
}

}  // namespace integrity_check_tool::xml::testing
