// Lays out a benchmark product: <count> files of <size> bytes under
// <dir>/files, the checker's manifest of their SHA-256 digests beside them
// (<dir>/integrity_check.xml) and the same list for `sha256sum -c`
// (<dir>/sha256sums.txt).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/sha.h>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace {

namespace fs = boost::filesystem;

std::string Base64(const unsigned char* bytes, std::size_t size) {
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), bytes, static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string Hex(const unsigned char* bytes, std::size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t index = 0; index < size; ++index) {
        text += kDigits[bytes[index] >> 4];
        text += kDigits[bytes[index] & 0x0F];
    }
    return text;
}

// Distinct, incompressible-looking contents per file (xorshift).
void Fill(std::vector<unsigned char>& data, std::uint64_t seed) {
    std::uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (std::size_t index = 0; index < data.size(); ++index) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        data[index] = static_cast<unsigned char>(state >> 24);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: " << argv[0] << " <dir> <file count> <file size in bytes>\n";
        return 2;
    }
    const fs::path root = argv[1];
    const unsigned long count = std::strtoul(argv[2], nullptr, 10);
    const unsigned long size = std::strtoul(argv[3], nullptr, 10);
    try {
        fs::create_directories(root / "files");
        std::ofstream manifest((root / "integrity_check.xml").string());
        std::ofstream sums((root / "sha256sums.txt").string());
        manifest << "<Manifest productName=\"Benchmark\" productVersion=\"1.0\">\n";
        std::vector<unsigned char> data(size);
        unsigned char digest[SHA256_DIGEST_LENGTH];
        for (unsigned long index = 0; index < count; ++index) {
            char name[32];
            std::snprintf(name, sizeof(name), "%06lu.bin", index);
            Fill(data, index);
            const fs::path file = root / "files" / name;
            std::ofstream out(file.string(), std::ios::binary);
            out.write(reinterpret_cast<const char*>(data.data()),
                      static_cast<std::streamsize>(data.size()));
            if (!out) {
                std::cerr << "can't write " << file << "\n";
                return 1;
            }
            SHA256(data.data(), data.size(), digest);
            manifest << "  <File path=\"%ProductRoot%\\files\\" << name
                     << "\"><Check type=\"Sha256\" value=\"" << Base64(digest, sizeof(digest))
                     << "\"/></File>\n";
            sums << Hex(digest, sizeof(digest)) << "  " << file.string() << "\n";
        }
        manifest << "</Manifest>\n";
        if (!manifest || !sums) {
            std::cerr << "can't write the lists under " << root << "\n";
            return 1;
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
