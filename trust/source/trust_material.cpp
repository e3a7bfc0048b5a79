#include "trust/trust_material.h"

#include <sstream>
#include <string>

namespace integrity_check_tool::trust {
namespace data {
bool Find(const char* name, const std::uint8_t** bytes, std::size_t* size);
}  // namespace data

namespace {

Blob Load(const std::string& name) {
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
    if (!data::Find(name.c_str(), &bytes, &size)) {
        return {};
    }
    return Blob(bytes, bytes + size);
}

const char* const kRootNames[] = {"3520p1", "3020d1", "4820d1", "4823d1"};
constexpr std::size_t kRootCount = sizeof(kRootNames) / sizeof(kRootNames[0]);

}  // namespace

const char* GetTrustSetName() {
    return ICT_TRUST_SET_NAME;
}

std::vector<Blob> GetDsvmKeyPair(bool release) {
    const std::string prefix = release ? "dsvm/release-" : "dsvm/test-";
    return {Load(prefix + "1.der"), Load(prefix + "2.der")};
}

Blob GetRootCertificate(std::size_t index) {
    if (index >= kRootCount) {
        return {};
    }
    return Load(std::string("roots/") + kRootNames[index] + ".der");
}

bool RootRequiresRevocationList(std::size_t index) {
    if (index >= kRootCount) {
        return false;
    }
    const Blob text = Load("roots/crl-must-exist.txt");
    std::istringstream lines(std::string(text.begin(), text.end()));
    std::string line;
    while (std::getline(lines, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string word;
        // The build has already refused names that are not roots.
        if (words >> word && word == kRootNames[index]) {
            return true;
        }
    }
    return false;
}

Blob GetPurposeOid() {
    const Blob der = Load("purpose.der");
    // Tag 0x06 and a short-form length precede the content bytes.
    if (der.size() < 2 || der[0] != 0x06 || der[1] != der.size() - 2) {
        return {};
    }
    return Blob(der.begin() + 2, der.end());
}

}  // namespace integrity_check_tool::trust
