#include <openssl/x509.h>
#include <boost/process/search_path.hpp>

#include "core_fixture.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "vds/signing.h"

namespace vds_core_test {
namespace {

class CoreRevocationTest : public CoreFixture {
protected:
    void TearDown() override {
        VdsRevocationReleaseContainer(container_);
        for (auto* certificate : certificates_) {
            AsndReleaseCertificate(certificate);
        }
        CoreFixture::TearDown();
    }

    VdsResult Load(const Bytes& bytes) {
        bytes_ = bytes;
        const VdsBlob blob{bytes_.data(), bytes_.size()};
        return VdsRevocationLoadContainer(&blob, &container_);
    }

    AsndCertificate* Root(const std::string& name) {
        const Bytes der = ict_test::vds::RootCertificate(name);
        AsndCertificate* certificate = nullptr;
        EXPECT_EQ(AsndParseAndValidateCertificate(der.data(), der.size(), &certificate), vdsOk);
        certificates_.push_back(certificate);
        return certificate;
    }

    VdsLoadedRevocationDb* LoadDb(std::size_t index) {
        const VdsRevocationDatabase* database = nullptr;
        EXPECT_EQ(VdsRevocationGetDatabase(container_, index, &database), vdsOk);
        VdsLoadedRevocationDb* loaded = nullptr;
        EXPECT_EQ(VdsRevocationLoadDb(database, index, &handler_, &loaded), vdsOk);
        return loaded;
    }

    Bytes bytes_;
    VdsRevocationContainer* container_ = nullptr;
    std::vector<AsndCertificate*> certificates_;
};

TEST_F(CoreRevocationTest, ContainerDatabasesNameTheirRoots) {
    ASSERT_EQ(Load(ict_test::vds::RevocationContainer({"3520p1", "4823d1"})), vdsOk);
    std::size_t count = 0;
    ASSERT_EQ(VdsRevocationGetDatabaseCount(container_, &count), vdsOk);
    ASSERT_EQ(count, 2u);

    AsndCertificate* root = Root("3520p1");
    VdsBlob serial{};
    ASSERT_EQ(AsndGetCertificateSerialNumber(root, &serial), vdsOk);
    // DER sorts the CRLs (a SET OF): find the one of 3520p1.
    std::size_t own = count;
    for (std::size_t index = 0; index < count; ++index) {
        const VdsRevocationDatabase* database = nullptr;
        ASSERT_EQ(VdsRevocationGetDatabase(container_, index, &database), vdsOk);
        VdsBlob id{};
        ASSERT_EQ(VdsRevocationGetHierarchyId(database, &id), vdsOk);
        if (Bytes(id.data, id.data + id.size) == Bytes(serial.data, serial.data + serial.size)) {
            own = index;
        }
        VdsRevocationDbInfo info{};
        ASSERT_EQ(VdsRevocationGetDbInfo(database, &info), vdsOk);
        EXPECT_GT(info.issueDate, 1700000000);  // made in the tree's lifetime
        EXPECT_GT(info.size, 200u);
    }
    ASSERT_LT(own, count);
    const VdsRevocationDatabase* database = nullptr;
    EXPECT_EQ(VdsRevocationGetDatabase(container_, 2, &database), vdsErrNotFound);

    VdsLoadedRevocationDb* first = LoadDb(own);
    VdsLoadedRevocationDb* second = LoadDb(1 - own);
    EXPECT_TRUE(handler_.Saw("OnRevocationDbLoad"));
    EXPECT_EQ(VdsRevocationMatchRoot(first, root), vdsOk);
    EXPECT_EQ(VdsRevocationValidateDb(first, root), vdsOk);
    // The other database belongs to another root.
    EXPECT_EQ(VdsRevocationMatchRoot(second, root), vdsErrNotMatched);
    EXPECT_EQ(VdsRevocationValidateDb(second, root), vdsErrInvalidSignature);
    EXPECT_EQ(VdsRevocationMatchRoot(second, Root("4823d1")), vdsOk);

    VdsLoadedRevocationDb* pair[] = {first, second};
    VdsRevocationChecker* checker = nullptr;
    ASSERT_EQ(VdsCreateRevocationChecker(pair, 2, &checker), vdsOk);
    EXPECT_EQ(VdsRevocationCheckerGetDatabaseCount(checker), 2u);
    VdsReleaseRevocationChecker(checker);
    VdsLoadedRevocationDb* twice[] = {first, first};
    EXPECT_EQ(VdsCreateRevocationChecker(twice, 2, &checker), vdsErrRdbAlreadyExists);
    VdsRevocationReleaseDb(first);
    VdsRevocationReleaseDb(second);
}

TEST_F(CoreRevocationTest, MatchesTheOpenSslReferenceProducer) {
    ICT_NEEDS_LINUX_TOOL("openssl");
    const Bytes ours = ict_test::vds::RevocationContainer({"3520p1"});
    ict_test::RunOptions options;
    const auto reference = scratch_ / "reference.p7b";
    options.arguments = {"crl2pkcs7",
                         "-in",
                         (ict_test::vds::PrivateVdsDir() / "crl" / "3520p1.crl.pem").string(),
                         "-outform",
                         "DER",
                         "-out",
                         reference.string()};
    const auto run = ict_test::RunProgram(boost::process::search_path("openssl"), options);
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(ours, ict_test::vds::ReadBytes(reference));
}

TEST_F(CoreRevocationTest, DamagedContainersAndDatabasesAreRefused) {
    const Bytes good = ict_test::vds::RevocationContainer({"3520p1"});
    EXPECT_EQ(Load({}), vdsErrInvalidFormat);
    EXPECT_EQ(Load(Bytes(good.begin(), good.end() - 1)), vdsErrInvalidFormat);
    Bytes trailing = good;
    trailing.push_back(0);
    EXPECT_EQ(Load(trailing), vdsErrInvalidFormat);
    EXPECT_EQ(Load(ict_test::vds::RootCertificate("3520p1")), vdsErrInvalidFormat);

    // A CRL whose signature was altered loads but does not validate.
    Bytes forged = good;
    forged[forged.size() - 5] ^= 0x10;
    ASSERT_EQ(Load(forged), vdsOk);
    VdsLoadedRevocationDb* loaded = LoadDb(0);
    EXPECT_EQ(VdsRevocationValidateDb(loaded, Root("3520p1")), vdsErrInvalidSignature);
    VdsRevocationReleaseDb(loaded);
}

TEST_F(CoreRevocationTest, CertificatesMustParseExactlyAndSelfVerify) {
    Bytes der = ict_test::vds::RootCertificate("3020d1");
    AsndCertificate* certificate = nullptr;
    Bytes longer = der;
    longer.push_back(0);
    EXPECT_EQ(AsndParseAndValidateCertificate(longer.data(), longer.size(), &certificate),
              vdsErrInvalidFormat);
    EXPECT_EQ(AsndParseAndValidateCertificate(der.data(), der.size() - 1, &certificate),
              vdsErrInvalidFormat);
    EXPECT_EQ(AsndParseAndValidateCertificate(nullptr, 0, &certificate), vdsErrInvalidArgument);
    // The last bytes are the root's signature over itself.
    der[der.size() - 3] ^= 1;
    EXPECT_EQ(AsndParseAndValidateCertificate(der.data(), der.size(), &certificate),
              vdsErrInvalidSignature);
    EXPECT_EQ(certificate, nullptr);
}

}  // namespace
}  // namespace vds_core_test
