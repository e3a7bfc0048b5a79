#pragma once

#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/sha.h>

// Small pieces of manifest text for the end-to-end tests of the checker.
namespace ict_test {

inline std::string Base64(const std::vector<unsigned char>& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), bytes.data(),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

inline std::string Sha256Base64(const std::string& content) {
    std::vector<unsigned char> digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest.data());
    return Base64(digest);
}

inline std::string Check(const std::string& type, const std::string& value = "") {
    return "<Check type=\"" + type + "\"" + (value.empty() ? "" : " value=\"" + value + "\"") +
           "/>";
}

inline std::string Sha256Check(const std::string& content) {
    return Check("Sha256", Sha256Base64(content));
}

inline std::string ValueCheck(const std::string& content) {
    return Check("Value", Base64(std::vector<unsigned char>(content.begin(), content.end())));
}

// A "File" record; `conditions` are attributes such as os="Linux".
inline std::string FileRecord(const std::string& path, const std::string& checks,
                              const std::string& conditions = "") {
    return "  <File path=\"" + path + "\"" + (conditions.empty() ? "" : " " + conditions) + ">" +
           checks + "</File>\n";
}

inline std::string ManifestText(const std::string& records) {
    return "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n" + records + "</Manifest>\n";
}

}  // namespace ict_test
