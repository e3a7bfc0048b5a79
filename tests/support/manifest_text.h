#pragma once

#include <string>
#include <vector>

// Pieces of manifest text, with digests and base64 made independently of the
// programs under test (OpenSSL), for tests that write manifests.
namespace ict_test {

std::string Base64(const std::string& bytes);
std::string Base64(const std::vector<unsigned char>& bytes);
std::string Sha256Base64(const std::string& content);
std::string Sha256Hex(const std::string& content);

// <Check type="..." value="..."/>; no value attribute when `value` is empty.
std::string Check(const std::string& type, const std::string& value = "");
std::string Sha256Check(const std::string& content);
std::string ValueCheck(const std::string& content);

// A "File" record; `conditions` are attributes such as os="Linux".
std::string FileRecord(const std::string& path, const std::string& checks,
                       const std::string& conditions = "");

// A current-dialect manifest holding `records`.
std::string ManifestText(const std::string& records);

}  // namespace ict_test
