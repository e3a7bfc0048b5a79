#include "dsvm/gost2012.h"

#include <limits>
#include <string>

#include "common/signed_file_name.h"
#include "common/trace_level.h"
#include "dsvm/dsvm.h"
#include "dsvm/exception.h"
#include "dsvm/io_object_reader.h"
#include "ruk/io.h"

namespace integrity_check_tool::dsvm {
namespace {

const char* CreatingInstance() {
    return "Creating Gost2012 instance ...";
}
const char* InstanceCreated() {
    return "Gost2012 instance created";
}
const char* CantInitialize() {
    return "Can't initialize DSVM2 library";
}
const char* Verifying() {
    return "Verifying Gost2012 signature of file %1% ...";
}
const char* SignatureOk() {
    return "Gost2012 signature of file %1% is OK";
}
const char* FindingPosition() {
    return "Finding signature position ...";
}
const char* SignaturePosition() {
    return "Signature position: %1%";
}
const char* SignatureSize() {
    return "Signature size: %1%";
}
const char* CantCreateParameters() {
    return "Can't create DSVM parameters list";
}
const char* CantRegisterKeys() {
    return "Can't register keys in DSVM parameters list";
}
const char* CantCreateInstance() {
    return "Can't create GOST2012 instance";
}
const char* CantPrepareRegistrySet() {
    return "Can't prepare registry set";
}
const char* CantCalculateHash() {
    return "Can't calculate hash";
}
const char* CantAddObjectHash() {
    return "Can't add object hash to DSVM parameters list";
}
const char* CantAddObject() {
    return "Can't add object to DSVM parameters list";
}
const char* InvalidSignature() {
    return "Invalid signature";
}
const char* CantGetPosition() {
    return "Can't get signature position";
}
const char* CantReadContent() {
    return "Can't read signed content";
}

void Check(DsvmResult result, const char* message) {
    if (result != DSVM_OK) {
        ICT_THROW(Exception(message, result));
    }
}

// A DSVM parameter list, destroyed on every path.
class Parameters {
public:
    Parameters() { Check(DsvmParamsCreate(&params_), CantCreateParameters()); }
    ~Parameters() { DsvmParamsDestroy(params_); }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

    void AddKeys(const Gost2012::Blob& first, const Gost2012::Blob& second) {
        for (const auto* blob : {&first, &second}) {
            Check(DsvmParamsAddKey(params_, blob->data(), blob->size()), CantRegisterKeys());
        }
    }

    void AddObject(const DsvmObjectReader* object, const std::vector<char16_t>& name,
                   const std::vector<std::uint8_t>& hash) {
        const std::vector<std::uint16_t> units(name.begin(), name.end());
        Check(DsvmParamsAddObject(params_, object, units.data()), CantAddObject());
        Check(DsvmParamsSetObjectHash(params_, hash.data(), hash.size()), CantAddObjectHash());
    }

    DsvmParams* Get() const { return params_; }

private:
    DsvmParams* params_ = nullptr;
};

// A GOST 2012 working handle with its registry set.
class Handle {
public:
    Handle() { Check(DsvmHandleCreate(DSVM_GOST_2012, &handle_), CantCreateInstance()); }
    ~Handle() { DsvmHandleDestroy(handle_); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    void PrepareRegistrySet(const Parameters& keys) {
        Check(DsvmPrepareRegistrySet(handle_, keys.Get()), CantPrepareRegistrySet());
    }

    void Verify(const Parameters& objects) const {
        Check(DsvmVerifyObjects(handle_, objects.Get()), InvalidSignature());
    }

private:
    DsvmHandle* handle_ = nullptr;
};

// The object hash of a file: its bytes without a signature at its end.
class Hash {
public:
    Hash() { Check(DsvmHashCreate(&hash_), CantCalculateHash()); }
    ~Hash() { DsvmHashDestroy(hash_); }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;

    void Calculate(const DsvmObjectReader* object, std::vector<std::uint8_t>& value) const {
        Check(DsvmHashObject(hash_, object, DSVM_HASH_IGNORE_SIGNATURE), CantCalculateHash());
        value.resize(DSVM_HASH_SIZE);
        Check(DsvmHashFinish(hash_, value.data(), value.size()), CantCalculateHash());
    }

private:
    DsvmHash* hash_ = nullptr;
};

std::uint64_t GetUint64Property(const DsvmObjectReader* object, std::uint32_t property) {
    std::uint64_t value = 0;
    Check(DsvmGetSignatureProperty(object, property, &value, sizeof(value)), CantGetPosition());
    return value;
}

std::unique_ptr<::dsvm::IoObjectReader> OpenObject(const boost::filesystem::path& path) {
    ruk::intrusive_ptr<ruk::IIO> io;
    std::unique_ptr<::dsvm::IoObjectReader> reader;
    if (ruk::Failed(ruk::OpenFileIO(path, ruk::OpenMode::Read, &io)) ||
        ruk::Failed(::dsvm::IoObjectReader::Create(io, &reader))) {
        ICT_THROW(Exception(CantCalculateHash(), DSVM_E_FILE_OPEN));
    }
    return reader;
}

void ReadContent(const ::dsvm::IoObjectReader& reader, std::uint64_t size,
                 std::vector<std::uint8_t>& content) {
    if (size > std::numeric_limits<std::size_t>::max()) {
        ICT_THROW(Exception(CantReadContent(), DSVM_E_OUT_OF_MEMORY));
    }
    content.resize(static_cast<std::size_t>(size));
    const DsvmObjectReader* object = reader.Get();
    std::size_t read = 0;
    if (size != 0 &&
        (object->read(object->context, 0, content.data(), content.size(), &read) != 0 ||
         read != content.size())) {
        content.clear();
        ICT_THROW(Exception(CantReadContent(), DSVM_E_READ_CALLBACK));
    }
}

}  // namespace

class Gost2012::Impl {
public:
    explicit Impl(TracerPtr tracer) : tracer_(std::move(tracer)) {
        tracer_->Trace(trace_level::Detail, CreatingInstance());
        Check(DsvmInitialize(), CantInitialize());
        tracer_->Trace(trace_level::Detail, InstanceCreated());
    }
    ~Impl() { DsvmRelease(); }

    void VerifySignature(const boost::filesystem::path& path, const Blob& firstKey,
                         const Blob& secondKey, std::vector<std::uint8_t>* content) const {
        tracer_->Trace(trace_level::Detail, Verifying(), path.string());
        // The DSVM object name: the bound file name with one terminating zero.
        const std::u16string bound = SignedFileName(path);
        std::vector<char16_t> name(bound.begin(), bound.end());
        name.push_back(u'\0');

        Parameters keys;
        keys.AddKeys(firstKey, secondKey);
        Handle handle;
        handle.PrepareRegistrySet(keys);

        const std::unique_ptr<::dsvm::IoObjectReader> reader = OpenObject(path);
        std::vector<std::uint8_t> hash;
        Hash().Calculate(reader->Get(), hash);
        Parameters objects;
        objects.AddObject(reader->Get(), name, hash);

        handle.Verify(objects);
        tracer_->Trace(trace_level::Detail, SignatureOk(), path.string());

        tracer_->Trace(trace_level::Detail, FindingPosition());
        const std::uint64_t position =
            GetUint64Property(reader->Get(), DSVM_PROPERTY_SIGNATURE_POSITION);
        const std::uint64_t size = GetUint64Property(reader->Get(), DSVM_PROPERTY_SIGNATURE_SIZE);
        tracer_->Trace(trace_level::Detail, SignaturePosition(), position);
        tracer_->Trace(trace_level::Detail, SignatureSize(), size);
        if (content != nullptr) {
            ReadContent(*reader, position, *content);
        }
    }

private:
    TracerPtr tracer_;
};

Gost2012::Gost2012(TracerPtr tracer) : impl_(std::make_unique<Impl>(std::move(tracer))) {}

Gost2012::~Gost2012() = default;

void Gost2012::VerifySignature(const boost::filesystem::path& path, const Blob& firstKey,
                               const Blob& secondKey, bool /*requireBothKeys*/,
                               std::vector<std::uint8_t>* content) const {
    impl_->VerifySignature(path, firstKey, secondKey, content);
}

}  // namespace integrity_check_tool::dsvm
