#include <openssl/evp.h>

#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/file_helpers.h"
#include "vds/signing.h"

namespace vds_core_test {
namespace {

class CoreCatalogTest : public CoreFixture {
protected:
    static Bytes Digest(const Bytes& content) {
        Bytes digest(EVP_MAX_MD_SIZE);
        unsigned int length = 0;
        EVP_Digest(content.data(), content.size(), digest.data(), &length,
                   EVP_get_digestbyname("md_gost12_256"), nullptr);
        digest.resize(length);
        return digest;
    }

    // A catalog file listing `listed`, signed by `signer`.
    VdsResult LoadCatalog(const std::vector<Bytes>& listed, const std::string& signer) {
        std::vector<Bytes> digests;
        for (const auto& content : listed) {
            digests.push_back(Digest(content));
        }
        const auto path = scratch_ / "catalog.cat";
        ict_test::WriteBytes(path, ::vds::signing::MakeCatalogContent("md_gost12_256", digests));
        ict_test::vds::Sign(path, signer);
        MemoryObject catalog{ict_test::vds::ReadBytes(path)};
        const VdsReadCallback callback = catalog.Callback();
        return VdsLoadSignaturesCatalogByCallback(verifier_, &callback);
    }
};

TEST_F(CoreCatalogTest, ListedObjectsAreTrustedThroughTheCatalog) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes listed = Pattern(777);
    ASSERT_EQ(LoadCatalog({Pattern(1), listed}, "signer"), vdsOk);
    EXPECT_TRUE(handler_.Saw("OnHashContainer"));

    MemoryObject object{listed};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags & (vdsFlagCatalog | vdsFlagTrusted | vdsFlagSigned),
              vdsFlagCatalog | vdsFlagTrusted | vdsFlagSigned);
    EXPECT_EQ(result.checkedContentSize, 777u);
    EXPECT_EQ(result.signatureContainerSize, 0u);
    EXPECT_TRUE(handler_.Saw("OnHashFound"));

    MemoryObject other{Pattern(778)};
    EXPECT_EQ(Verify(other, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags, vdsFlagUnsigned);

    // Catalogs hold digests only: a bound name cannot come from them.
    const Bytes name = integrity_check_tool::SignedFileNameBytes("listed.bin");
    EXPECT_EQ(Verify(object, &result, &name), vdsErrUntrusted);
}

TEST_F(CoreCatalogTest, EmbeddedSignatureIsCheckedOnlyWhenForced) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    // A file whose own signature is bad (expired) but whose bytes are listed.
    const Bytes expired = SignedContent("signer-expired", 300);
    ASSERT_EQ(LoadCatalog({expired}, "signer"), vdsOk);
    MemoryObject object{expired};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_TRUE(handler_.Saw("IsSignedDataVerificationRequiredForcedly"));
    handler_.forceSignedData = true;
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagExpired, vdsFlagExpired);
}

TEST_F(CoreCatalogTest, CatalogsMustBeTrustedWellFormedAndGrantThePurpose) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    EXPECT_EQ(LoadCatalog({Pattern(5)}, "unknown-signer"), vdsErrUntrusted);

    const auto path = scratch_ / "not-a-catalog";
    ict_test::WriteBytes(path, Pattern(100));
    ict_test::vds::Sign(path, "signer");
    MemoryObject notCatalog{ict_test::vds::ReadBytes(path)};
    const VdsReadCallback callback = notCatalog.Callback();
    EXPECT_EQ(VdsLoadSignaturesCatalogByCallback(verifier_, &callback), vdsErrInvalidFormat);

    // A catalog signer without the purpose cannot vouch for it.
    ASSERT_EQ(LoadCatalog({Pattern(6)}, "signer-nopurpose"), vdsOk);
    MemoryObject object{Pattern(6)};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags, vdsFlagUnsigned);
}

}  // namespace
}  // namespace vds_core_test
