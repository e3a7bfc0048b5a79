#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crypto/vds/service/log_sink.h"
#include "crypto/vds/service/service.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

namespace vds_service_test {

using crypto::vds::service::ByteRange;
using ict_test::vds::Bytes;

// Keeps the service's lines; can throw on a line that holds `throwOn`.
class RecordingSink : public crypto::vds::service::ILogSink {
public:
    std::vector<std::string> lines;
    std::string throwOn;

    bool IsEnabled() const override { return true; }
    void Write(const std::string& line) override {
        if (!throwOn.empty() && line.find(throwOn) != std::string::npos) {
            throw std::runtime_error("sink refused the line");
        }
        lines.push_back(line);
    }

    bool Has(const std::string& text) const {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const auto& line) { return line.find(text) != std::string::npos; });
    }
    std::string All() const {
        std::string all;
        for (const auto& line : lines) {
            all += line + "\n";
        }
        return all;
    }
};

inline ByteRange Range(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

class ServiceFixture : public ::testing::Test {
protected:
    ServiceFixture()
        : sink_(std::make_shared<RecordingSink>()),
          scope_(sink_),
          purpose_(ict_test::vds::Purpose()) {
        for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
            rootBytes_.push_back(ict_test::vds::RootCertificate(name));
        }
    }

    std::vector<ByteRange> Roots() const {
        std::vector<ByteRange> roots;
        for (const auto& root : rootBytes_) {
            roots.push_back(Range(root));
        }
        return roots;
    }

    ruk::result_t Create(const Bytes& crl = {}, std::vector<ByteRange> roots = {},
                         std::vector<ByteRange> optional = {}) {
        // By default every root needs its database when there is a list,
        // and none does without one.
        if (roots.empty() && optional.empty()) {
            (crl.empty() ? optional : roots) = Roots();
        }
        verifier_.reset();
        return crypto::vds::service::VdsCreateVerifierWithOptionalCrls(roots, optional, Range(crl),
                                                                       &verifier_);
    }

    ruk::intrusive_ptr<ruk::IIO> SignedIo(const std::string& signer, bool bindName = false,
                                          const std::string& name = "file.bin") {
        const auto path = scratch_ / name;
        ict_test::WriteBytes(path, Bytes(4096, 0x5A));
        ict_test::vds::Sign(path, signer, bindName);
        return ruk::CreateMemoryIO(ict_test::vds::ReadBytes(path));
    }

    ruk::result_t Verify(ruk::IIO* io, crypto::vds::service::IVdsVerificationResultPtr* result) {
        return verifier_->VerifyObject(io, Range(purpose_), result);
    }

    static VdsVerificationFlags FlagsOf(
        const crypto::vds::service::IVdsVerificationResultPtr& result) {
        VdsVerificationFlags flags = 0;
        EXPECT_EQ(result->GetVerificationFlags(&flags), ruk::result::Success);
        return flags;
    }

    std::shared_ptr<RecordingSink> sink_;
    crypto::vds::service::ScopedLogSink scope_;
    ict_test::TempDir scratch_;
    Bytes purpose_;
    std::vector<Bytes> rootBytes_;
    crypto::vds::service::IVdsSignatureVerifierPtr verifier_;
};

}  // namespace vds_service_test
