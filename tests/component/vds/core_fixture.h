#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"
#include "vds/vds_core.h"

namespace vds_core_test {

using ict_test::vds::Bytes;

// Serves an object from memory; can be told to fail from some offset on, or
// to claim `missing` bytes more than it has.
struct MemoryObject {
    Bytes bytes;
    std::uint64_t failFrom = UINT64_MAX;
    std::uint64_t missing = 0;

    static bool Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                     std::size_t* read) {
        auto* self = static_cast<MemoryObject*>(context);
        if (offset + size > self->failFrom) {
            return false;
        }
        const std::size_t available = offset >= self->bytes.size()
                                          ? 0
                                          : static_cast<std::size_t>(self->bytes.size() - offset);
        *read = std::min(size, available);
        std::memcpy(buffer, self->bytes.data() + offset, *read);
        return true;
    }

    VdsReadCallback Callback() { return {this, &MemoryObject::Read, bytes.size() + missing}; }
};

// Keeps the names of the events in order; answers the questions as told.
class RecordingHandler : public IVdsVerificationResultHandler {
public:
    std::vector<std::string> events;
    bool nextSignedData = false;
    std::vector<std::string> chainSubjects;
    VdsFileFormat lastFileFormat = UINT32_MAX;

#define ICT_RECORD(event, ...)         \
    void event(__VA_ARGS__) override { \
        events.push_back(#event);      \
    }
    ICT_RECORD(OnVerifierCreated, const void*, std::size_t, const VdsCertificateInfo*)
    ICT_RECORD(OnRevocationCheckerCreated, const void*, std::size_t)
    ICT_RECORD(OnCertificateParsingFailed, std::size_t, const VdsBlob&)
    ICT_RECORD(OnRevocationDbLoad, const char*, std::int64_t)
    ICT_RECORD(OnRdbLoadFailed, const char*, std::size_t, VdsResult)
    ICT_RECORD(OnSignedDataStarted, std::size_t, std::size_t)
    ICT_RECORD(OnSignerInfoStarted, const char*, const char*)
    ICT_RECORD(OnContentProcessed, std::uint64_t, std::uint64_t, std::uint64_t, const VdsBlob&,
               const VdsDigest*, std::size_t)
    ICT_RECORD(OnAdditionalContent, const VdsBlob&, const VdsDigest*, std::size_t)
    ICT_RECORD(OnCertificateSignCheckFailure, const char*, const char*)
    ICT_RECORD(OnValidatedContentChain, VdsVerificationFlags)
    ICT_RECORD(OnValidatedTimestampChain, VdsVerificationFlags)
    ICT_RECORD(OnSignerInfoChecked, std::int64_t, VdsVerificationFlags)
    ICT_RECORD(OnSignedDataChecked, VdsVerificationFlags)
    ICT_RECORD(OnEmbeddedSignatureChecked, VdsVerificationFlags)
    ICT_RECORD(OnFinalResult, VdsResult, VdsVerificationFlags)
    ICT_RECORD(OnHashContainer, const char*, std::size_t)
    ICT_RECORD(OnHashFound, const char*, const char*, const char*, VdsVerificationFlags,
               VdsVerificationFlags, VdsVerificationFlags)
#undef ICT_RECORD

    void OnFileFormat(VdsFileFormat format) override {
        lastFileFormat = format;
        events.push_back("OnFileFormat");
    }
    void LogCertificateChain(const VdsCertificateInfo* chain, std::size_t count) override {
        chainSubjects.clear();
        for (std::size_t index = 0; index < count; ++index) {
            chainSubjects.push_back(chain[index].subject);
        }
        events.push_back("LogCertificateChain");
    }
#define ICT_ASK(question, answer)    \
    bool question() override {       \
        events.push_back(#question); \
        return answer;               \
    }
    ICT_ASK(IsNextSignerInfoRequired, false)
    ICT_ASK(IsNextSignedDataRequired, nextSignedData)
    ICT_ASK(IsSignedDataVerificationRequiredForcedly, false)
#undef ICT_ASK

    bool Saw(const std::string& event) const {
        return std::find(events.begin(), events.end(), event) != events.end();
    }
};

constexpr VdsVerificationFlags kGood =
    vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped;

// Owns a core verifier over the four development roots.
class CoreFixture : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(VdsInitializeLibrary(), vdsOk); }
    void TearDown() override { VdsReleaseVerifier(verifier_); }

    static std::vector<Bytes> AllRoots() {
        std::vector<Bytes> roots;
        for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
            roots.push_back(ict_test::vds::RootCertificate(name));
        }
        return roots;
    }

    VdsResult CreateVerifier(const std::vector<Bytes>& roots = AllRoots(),
                             const VdsRevocationChecker* checker = nullptr) {
        std::vector<VdsBlob> blobs;
        for (const auto& root : roots) {
            blobs.push_back({root.data(), root.size()});
        }
        VdsReleaseVerifier(verifier_);
        verifier_ = nullptr;
        return VdsCreateVerifier_Ex(blobs.data(), blobs.size(), checker, &handler_, &verifier_);
    }

    VdsResult Verify(MemoryObject& object, VdsVerificationResultData* result,
                     const Bytes* fileName = nullptr) {
        const Bytes purpose = ict_test::vds::Purpose();
        const VdsBlob purposeBlob{purpose.data(), purpose.size()};
        const VdsReadCallback callback = object.Callback();
        if (fileName == nullptr) {
            return VdsVerifyObjectByCallback_Ex(verifier_, &callback, &purposeBlob, result);
        }
        const VdsBlob name{fileName->data(), fileName->size()};
        return VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier_, &callback, &name,
                                                                 &purposeBlob, result);
    }

    struct Outcome {
        VdsResult code = vdsErrUnknown;
        VdsVerificationResultData data{};
    };

    // Verifies `bytes`; the handler's events are then this verification's.
    Outcome Check(const Bytes& bytes, const Bytes* fileName = nullptr) {
        MemoryObject object{bytes};
        Outcome outcome;
        handler_.events.clear();
        outcome.code = Verify(object, &outcome.data, fileName);
        return outcome;
    }

    // A file of `size` pattern bytes signed by `signer`, read back.
    Bytes SignedContent(const std::string& signer, std::size_t size = 5000,
                        bool bindFileName = false, const std::string& name = "payload.bin") {
        const auto path = scratch_ / name;
        ict_test::WriteBytes(path, Pattern(size));
        ict_test::vds::Sign(path, signer, bindFileName);
        return ict_test::vds::ReadBytes(path);
    }

    static Bytes Pattern(std::size_t size) { return ict_test::PatternBytes(size); }

    ict_test::TempDir scratch_;
    RecordingHandler handler_;
    VdsVerifier* verifier_ = nullptr;
};

}  // namespace vds_core_test
