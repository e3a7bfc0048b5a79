#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/host_tools.h"
#include "support/mutator.h"
#include "vds/signature_format.h"

namespace vds_core_test {
namespace {

// Every change to a signed object must cost it its trust: a single byte of
// the block that the core does not check is a byte an attacker may choose.
class CoreMutationTest : public CoreFixture {
protected:
    struct Original {
        std::string name;
        Bytes bytes;
        const Bytes* fileName;
    };

    // The offset of the CMS block, from the trailer.
    static std::size_t BlockStart(const Bytes& bytes) {
        const std::size_t trailer = bytes.size() - vds::format::kTrailerSize;
        std::uint32_t size = 0;
        for (int index = 3; index >= 0; --index) {
            size = (size << 8) | bytes[trailer + 8 + static_cast<std::size_t>(index)];
        }
        return trailer - size;
    }
};

TEST_F(CoreMutationTest, NoMutantOfASignedObjectVerifies) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes name = integrity_check_tool::SignedFileNameBytes("payload.bin");
    constexpr int kMutantsEach = 800;
    std::uint32_t seed = 20261122;
    const auto checkMutants = [&](const Original& original) {
        SCOPED_TRACE(original.name);
        VdsVerificationResultData result{};
        MemoryObject intact{original.bytes};
        ASSERT_EQ(Verify(intact, &result, original.fileName), vdsOk);

        ict_test::Mutator mutator(seed++, original.bytes, BlockStart(original.bytes), 8);
        int accepted = 0;
        for (int index = 0; index < kMutantsEach; ++index) {
            MemoryObject mutant{mutator.Next()};
            if (Verify(mutant, &result, original.fileName) == vdsOk) {
                ++accepted;
                ADD_FAILURE() << "mutant " << index << " verified, flags " << result.flags;
            }
        }
        EXPECT_EQ(accepted, 0);
    };
    checkMutants({"our signer", SignedContent("signer", 300), nullptr});
    checkMutants({"our signer, bound to the name", SignedContent("signer", 300, true), &name});

    ICT_NEEDS_LINUX_TOOL("openssl");
    const auto byOpenSsl = scratch_ / "openssl.bin";
    ict_test::WriteBytes(byOpenSsl, Pattern(300));
    ict_test::vds::SignWithOpenSslCommand(byOpenSsl, "signer");
    checkMutants({"openssl cms", ict_test::vds::ReadBytes(byOpenSsl), nullptr});
}

// Changes that OpenSSL alone lets through, each made where it matters.
TEST_F(CoreMutationTest, UncheckedFieldsOfTheBlockAreChecked) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes original = SignedContent("signer", 300);
    const std::size_t start = BlockStart(original);
    const auto find = [&](const Bytes& pattern, bool last) {
        const auto begin = original.begin() + static_cast<std::ptrdiff_t>(start);
        const auto found =
            last ? std::find_end(begin, original.end(), pattern.begin(), pattern.end())
                 : std::search(begin, original.end(), pattern.begin(), pattern.end());
        return found == original.end() ? std::size_t{0}
                                       : static_cast<std::size_t>(found - original.begin());
    };
    struct Case {
        const char* what;
        Bytes pattern;
        bool last;           // the SignerInfo follows the certificates
        std::size_t offset;  // of the changed byte in the pattern
        Bytes replacement;   // from there on
    };
    const Case cases[] = {
        // The SignerInfo's GOST signature algorithm relabelled as ECDSA with SHA-256.
        {"signature algorithm",
         {0x06, 0x08, 0x2A, 0x85, 0x03, 0x07, 0x01, 0x01, 0x01, 0x01},
         true,
         2,
         {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02}},
        // The contentType attribute's SET of values re-tagged 0x11.
        {"attribute SET tag",
         {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03, 0x31},
         false,
         11,
         {0x11}},
        // The issuer name of the SignerInfo in other letter case.
        {"issuer letter case", {'I', 'C', 'T'}, true, 0, {'i'}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::size_t at = find(test.pattern, test.last);
        ASSERT_NE(at, 0u) << "pattern not in the block";
        Bytes mutant = original;
        std::copy(test.replacement.begin(), test.replacement.end(),
                  mutant.begin() + static_cast<std::ptrdiff_t>(at + test.offset));
        MemoryObject object{mutant};
        VdsVerificationResultData result{};
        EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
        EXPECT_NE(result.flags & (vdsFlagMalformedContent | vdsFlagIncompleteChain), 0u)
            << result.flags;
    }
}

}  // namespace
}  // namespace vds_core_test
