#ifndef DSVM_DSVM_H
#define DSVM_DSVM_H

/*
 * DSVM2: GOST R 34.10-2012 "sign-in-object" signatures over GOST R 34.11-2012
 * digests. A plain C interface so that the library can be replaced or loaded
 * by any caller; every call reports a DsvmResult and never throws. The
 * signature format is described in the README beside this folder.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t DsvmResult;

/* Result codes. Only DSVM_OK means success; DsvmGetResultText names them. */
#define DSVM_OK ((DsvmResult)0xE9BA5770u)
#define DSVM_E_NOT_INITIALIZED ((DsvmResult)0xD10CC37Au)
#define DSVM_E_IO_LIBRARY_NOT_LOADED ((DsvmResult)0x48097982u)
#define DSVM_E_REGISTRY_FILE_CREATE ((DsvmResult)0x68B0ACF0u)
#define DSVM_E_REGISTRY_FILE_WRITE ((DsvmResult)0x308015E7u)
#define DSVM_E_REGISTRY_BUFFER_WRITE ((DsvmResult)0xDAB8D467u)
#define DSVM_E_REGISTRY_BUFFER_OPEN ((DsvmResult)0x3D0507BDu)
#define DSVM_E_REGISTRY_FILE_READ ((DsvmResult)0xFD6EB8BEu)
#define DSVM_E_REGISTRY_HEADER_SIGNATURE ((DsvmResult)0xC2FEF413u)
#define DSVM_E_REGISTRY_HEADER_VERSION ((DsvmResult)0x2A592774u)
#define DSVM_E_REGISTRY_HEADER_OBJECTS_TYPE ((DsvmResult)0x4EF35E4Du)
#define DSVM_E_KEY_NOT_FOUND ((DsvmResult)0x408B1C02u)
#define DSVM_E_REGISTRY_NOT_FOUND ((DsvmResult)0x8F995FFDu)
#define DSVM_E_HASH_INPUT ((DsvmResult)0x7D11F7E2u)
#define DSVM_E_NOT_ALL_VERIFIED ((DsvmResult)0xC58506EDu)
#define DSVM_E_INVALID_SIGNATURE ((DsvmResult)0x38F3542Du)
#define DSVM_E_INCOMPLETE_SIGNATURE ((DsvmResult)0x28A9A54Fu)
#define DSVM_E_EMPTY_OBJECT ((DsvmResult)0xDEABF3F6u)
#define DSVM_E_INVALID_PARAMETER ((DsvmResult)0x5AAEEAE0u)
#define DSVM_E_TYPE_MISMATCH ((DsvmResult)0xE75ABF28u)
#define DSVM_E_INTERNAL ((DsvmResult)0x6EB9A4A4u)
#define DSVM_E_HASH_NOT_IN_REGISTRIES ((DsvmResult)0x9CEF5380u)
#define DSVM_E_DUPLICATE_REGISTRY ((DsvmResult)0xDEC30EBEu)
#define DSVM_E_SIGNING_CRYPTO ((DsvmResult)0x5B118908u)
#define DSVM_E_CRYPTO ((DsvmResult)0xA0F61271u)
#define DSVM_E_OBJECT_NOT_FOUND ((DsvmResult)0xA200485Bu)
#define DSVM_E_READ_CALLBACK ((DsvmResult)0x96BDEA9Fu)
#define DSVM_E_FILE_OPEN ((DsvmResult)0x14064F2Au)
#define DSVM_E_IO_NOT_INITIALIZED ((DsvmResult)0x04529DA3u)
#define DSVM_E_REGISTRIES_NOT_PREPARED ((DsvmResult)0xEB529C3Du)
#define DSVM_E_SEVERAL_PRIVATE_KEYS ((DsvmResult)0xC9098782u)
#define DSVM_E_SIGNATURE_NOT_FOUND ((DsvmResult)0x08CD9BACu)
#define DSVM_E_SIGNATURE_PRESENT ((DsvmResult)0xDE3346ACu)
#define DSVM_E_PROPERTY_BUFFER_SIZE ((DsvmResult)0x504DE1B9u)
#define DSVM_E_PROPERTY_NOT_FOUND ((DsvmResult)0xDDEE3E3Du)
#define DSVM_E_OBJECTS_DIFFER ((DsvmResult)0x2BA71BA6u)
#define DSVM_E_REGISTRY_INDEX_RANGE ((DsvmResult)0xBB25EA66u)
#define DSVM_E_REGISTRY_INDEX_AMBIGUOUS ((DsvmResult)0x474677E6u)
#define DSVM_E_OUT_OF_MEMORY ((DsvmResult)0x7AFA8B14u)
#define DSVM_E_UNKNOWN_GOST_VERSION ((DsvmResult)0xC93BC471u)

/* The code's fixed text, or NULL for a code the library does not know. */
const char* DsvmGetResultText(DsvmResult code);

/*
 * Library lifetime. Initialisation is counted and thread-safe: the first call
 * in the process loads OpenSSL's "gost" engine, which then stays loaded; each
 * successful DsvmInitialize needs one DsvmRelease. Every other call (except
 * DsvmGetResultText and the reader helpers) fails with DSVM_E_NOT_INITIALIZED
 * while no initialisation is outstanding.
 */
DsvmResult DsvmInitialize(void);
DsvmResult DsvmRelease(void);

/*
 * Object input. The library reads an object only through its reader, at
 * increasing or random offsets, in blocks of at most 1 MiB, so objects of
 * any size are handled without holding them in memory. `read` returns 0 on
 * success and stores the number of bytes read; fewer bytes than asked within
 * `size` count as a failure (the object changed while it was read).
 */
typedef int (*DsvmReadCallback)(void* context, uint64_t offset, void* buffer, size_t size,
                                size_t* bytesRead);

typedef struct DsvmObjectReader {
    DsvmReadCallback read;
    void* context;
    uint64_t size; /* the object's size in bytes */
} DsvmObjectReader;

/* Fills `reader` to read `size` bytes at `data`, which must outlive it. */
void DsvmInitMemoryReader(DsvmObjectReader* reader, const void* data, size_t size);

/* GOST R 34.11-2012 with a 256-bit result. */
#define DSVM_HASH_SIZE 32u

/* What DsvmHashObject feeds into the hash. */
#define DSVM_HASH_WHOLE_OBJECT 0u /* every byte; an empty object is allowed */
/*
 * Every byte except a well-formed signature block and trailer at the end: the
 * content a signature covers. An object without one (unsigned, damaged) is
 * hashed whole, so that the verification reports what is wrong with it.
 */
#define DSVM_HASH_IGNORE_SIGNATURE 1u
/* Every byte of a non-empty object that must not end in a signature trailer. */
#define DSVM_HASH_UNSIGNED_OBJECT 2u

typedef struct DsvmHash DsvmHash;

DsvmResult DsvmHashCreate(DsvmHash** hash);
void DsvmHashDestroy(DsvmHash* hash);
DsvmResult DsvmHashUpdate(DsvmHash* hash, const void* data, size_t size);
DsvmResult DsvmHashObject(DsvmHash* hash, const DsvmObjectReader* object, uint32_t mode);
/* Writes DSVM_HASH_SIZE bytes (valueSize must be at least that) and starts a new hash. */
DsvmResult DsvmHashFinish(DsvmHash* hash, uint8_t* value, size_t valueSize);

/*
 * Parameter lists: public keys (DER SubjectPublicKeyInfo of GOST R 34.10-2012
 * 256- or 512-bit keys), private keys (PEM) and objects with their names and
 * optional precomputed hashes. A list keeps copies of keys, hashes and names;
 * an object's reader context must outlive the list.
 */
typedef struct DsvmParams DsvmParams;

DsvmResult DsvmParamsCreate(DsvmParams** params);
void DsvmParamsDestroy(DsvmParams* params);
DsvmResult DsvmParamsAddKey(DsvmParams* params, const void* blob, size_t size);
DsvmResult DsvmParamsAddPrivateKey(DsvmParams* params, const char* pem, size_t size);
/* `name`: zero-terminated UTF-16 or NULL; sign-in-object signatures do not bind it. */
DsvmResult DsvmParamsAddObject(DsvmParams* params, const DsvmObjectReader* object,
                               const uint16_t* name);
/* The DSVM_HASH_IGNORE_SIGNATURE hash of the object added last. */
DsvmResult DsvmParamsSetObjectHash(DsvmParams* params, const void* hash, size_t size);

/* Working handles: one GOST standard version and its prepared key registry. */
#define DSVM_GOST_2012 2012u

typedef struct DsvmHandle DsvmHandle;

DsvmResult DsvmHandleCreate(uint32_t gostVersion, DsvmHandle** handle);
void DsvmHandleDestroy(DsvmHandle* handle);
/* Takes the public keys of `keys` as the registry set; a handle is prepared once. */
DsvmResult DsvmPrepareRegistrySet(DsvmHandle* handle, const DsvmParams* keys);
/*
 * Verifies the sign-in-object signature of every object of the list against
 * the registry set. With one object the result is that object's; with more,
 * DSVM_E_NOT_ALL_VERIFIED when any failed.
 */
DsvmResult DsvmVerifyObjects(const DsvmHandle* handle, DsvmParams* objects);

/* Largest signature block and trailer that the format allows. */
#define DSVM_MAX_SIGNATURE_SIZE 4096u

/*
 * Signs `object` (which must not carry a signature) with the one private key
 * of `keys`; writes the signature block and trailer to append to the object.
 * `signatureSize` holds the buffer size on entry and the bytes written on return.
 */
DsvmResult DsvmSignObject(const DsvmHandle* handle, const DsvmParams* keys,
                          const DsvmObjectReader* object, uint8_t* signature,
                          size_t* signatureSize);

/* Properties of an object's signature, read from the object itself. */
#define DSVM_PROPERTY_SIGNATURE_POSITION 1u  /* uint64_t: offset of the block */
#define DSVM_PROPERTY_SIGNATURE_SIZE 2u      /* uint64_t: block and trailer */
#define DSVM_PROPERTY_KEY_ID 3u              /* DSVM_HASH_SIZE bytes */
#define DSVM_PROPERTY_DIGEST_ALGORITHM 4u    /* uint16_t */
#define DSVM_PROPERTY_SIGNATURE_ALGORITHM 5u /* uint16_t */

DsvmResult DsvmGetSignatureProperty(const DsvmObjectReader* object, uint32_t property, void* value,
                                    size_t valueSize);

#ifdef __cplusplus
}
#endif

#endif /* DSVM_DSVM_H */
