#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_failure.h"
#include "crypto/vds/service/service.h"
#include "ruk/io.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

namespace fault_test {
namespace {

namespace service = crypto::vds::service;
using Bytes = std::vector<std::uint8_t>;

service::ByteRange Range(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

// A failed allocation anywhere in building a verifier over a revocation
// container, verifying and cloning must end in a failure code, never in a
// half-made object; the core handles made before it must be released (the
// sanitizer lane's leak check sees those that are not).
TEST(ServiceFaultTest, EveryFailedAllocationEndsInAFailureCode) {
    std::vector<Bytes> roots;
    for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
        roots.push_back(ict_test::vds::RootCertificate(name));
    }
    const Bytes container =
        ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"});
    const Bytes purpose = ict_test::vds::Purpose();
    ict_test::TempDir dir;
    ict_test::WriteBytes(dir / "signed.bin", Bytes(500, 0x33));
    ict_test::vds::Sign(dir / "signed.bin", "signer");
    const ruk::intrusive_ptr<ruk::IIO> io =
        ruk::CreateMemoryIO(ict_test::vds::ReadBytes(dir / "signed.bin"));
    const std::vector<service::ByteRange> rootRanges = {Range(roots[0]), Range(roots[1]),
                                                        Range(roots[2]), Range(roots[3])};

    int verified = 0;
    const std::size_t failures = FailEachAllocation([&] {
        service::IVdsSignatureVerifierPtr verifier;
        const ruk::result_t created =
            service::VdsCreateVerifierWithOptionalCrls(rootRanges, {}, Range(container), &verifier);
        if (ruk::Failed(created)) {
            EXPECT_TRUE(AllocationFailed());
            return;
        }
        ASSERT_TRUE(verifier);
        service::IVdsVerificationResultPtr result;
        const ruk::result_t code = verifier->VerifyObject(io.get(), Range(purpose), &result);
        if (code == ruk::result::Success) {
            ASSERT_TRUE(result);
            ++verified;
        } else {
            EXPECT_TRUE(AllocationFailed()) << code;
        }
        service::IVdsSignatureVerifierPtr copy;
        if (ruk::Succeeded(verifier->Clone(&copy))) {
            EXPECT_TRUE(copy);
        }
    });
    // The walk reached far into the work, and the last run, undisturbed, verified.
    EXPECT_GT(failures, 20u);
    EXPECT_GE(verified, 1);
}

}  // namespace
}  // namespace fault_test
