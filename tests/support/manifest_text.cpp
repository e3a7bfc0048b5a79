#include "support/manifest_text.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

namespace ict_test {

std::string Base64(const std::vector<unsigned char>& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), bytes.data(),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string Base64(const std::string& bytes) {
    return Base64(std::vector<unsigned char>(bytes.begin(), bytes.end()));
}

namespace {

std::vector<unsigned char> Sha256(const std::string& content) {
    std::vector<unsigned char> digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest.data());
    return digest;
}

}  // namespace

std::string Sha256Base64(const std::string& content) {
    return Base64(Sha256(content));
}

std::string Sha256Hex(const std::string& content) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : Sha256(content)) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::string Check(const std::string& type, const std::string& value) {
    return "<Check type=\"" + type + "\"" + (value.empty() ? "" : " value=\"" + value + "\"") +
           "/>";
}

std::string Sha256Check(const std::string& content) {
    return Check("Sha256", Sha256Base64(content));
}

std::string ValueCheck(const std::string& content) {
    return Check("Value", Base64(content));
}

std::string FileRecord(const std::string& path, const std::string& checks,
                       const std::string& conditions) {
    return "  <File path=\"" + path + "\"" + (conditions.empty() ? "" : " " + conditions) + ">" +
           checks + "</File>\n";
}

std::string ManifestText(const std::string& records) {
    return "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n" + records + "</Manifest>\n";
}

}  // namespace ict_test
