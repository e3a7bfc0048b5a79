#include "dsvm/dsvm.h"

namespace {

struct ResultText {
    DsvmResult code;
    const char* text;
};

// The texts are part of the library's published vocabulary: callers show
// them to users and match on them, so their wording stays exactly as is.
const ResultText kResultTexts[] = {
    {DSVM_OK, "Success"},
    {DSVM_E_NOT_INITIALIZED, "The library is not initialized"},
    {DSVM_E_IO_LIBRARY_NOT_LOADED, "The external IO library is not loaded"},
    {DSVM_E_REGISTRY_FILE_CREATE, "The registry file couldn't be created"},
    {DSVM_E_REGISTRY_FILE_WRITE, "The registry file couldn't be written"},
    {DSVM_E_REGISTRY_BUFFER_WRITE, "The registry buffer couldn't be written"},
    {DSVM_E_REGISTRY_BUFFER_OPEN, "The registry buffer couldn't be opened"},
    {DSVM_E_REGISTRY_FILE_READ, "The registry file couldn't be read"},
    {DSVM_E_REGISTRY_HEADER_SIGNATURE, "Invalid registry file (has invalid header signature)"},
    {DSVM_E_REGISTRY_HEADER_VERSION, "Invalid registry file (has invalid header version)"},
    {DSVM_E_REGISTRY_HEADER_OBJECTS_TYPE,
     "Invalid registry file (has invalid header objects type)"},
    {DSVM_E_KEY_NOT_FOUND, "Key for operation couldn't be found"},
    {DSVM_E_REGISTRY_NOT_FOUND, "Registry for operation couldn't be found"},
    {DSVM_E_HASH_INPUT, "Object hash couln't be calculated because of input error"},
    {DSVM_E_NOT_ALL_VERIFIED, "Not all objects from the given list were verified successfully"},
    {DSVM_E_INVALID_SIGNATURE, "Object signed by \"sign-in-object\" has invalid signature"},
    {DSVM_E_INCOMPLETE_SIGNATURE, "Signature buffer contains incomplete signature"},
    {DSVM_E_EMPTY_OBJECT, "Given pointer to object buffer and its size are 0"},
    {DSVM_E_INVALID_PARAMETER,
     "Some parameters of function call are invalid. In most cases - pointers to buffer and sizes "
     "are 0"},
    {DSVM_E_TYPE_MISMATCH,
     "Given type of objects isn't comply given set of parameters or registry has invalid type"},
    {DSVM_E_INTERNAL, "There was an internal processing error"},
    {DSVM_E_HASH_NOT_IN_REGISTRIES,
     "Hash of object signed by \"hash registry\" wasn't found among given registries"},
    {DSVM_E_DUPLICATE_REGISTRY, "Another base registry with the same type was found"},
    {DSVM_E_SIGNING_CRYPTO,
     "The signature wasn't created because of internal crypto-library error"},
    {DSVM_E_CRYPTO, "The internal crypto-library error occurred"},
    {DSVM_E_OBJECT_NOT_FOUND, "The object for operation wasn't found"},
    {DSVM_E_READ_CALLBACK, "The external GetBuffer_CallBack function error occurred"},
    {DSVM_E_FILE_OPEN, "The file for operation couldn't be opened"},
    {DSVM_E_IO_NOT_INITIALIZED, "The external I/O interface isn't initialized"},
    {DSVM_E_REGISTRIES_NOT_PREPARED,
     "The given set of registries isn't prepared to operation (DSVM_IsRegsSetPrepared)"},
    {DSVM_E_SEVERAL_PRIVATE_KEYS,
     "More than one private key of given type was found in call DSVM_SignOneObjectTo*"},
    {DSVM_E_SIGNATURE_NOT_FOUND,
     "The signature of object signed by \"sign-in-object\" wasn't found"},
    {DSVM_E_SIGNATURE_PRESENT, "The signature was found during the operation of object hashing"},
    {DSVM_E_PROPERTY_BUFFER_SIZE, "Invalid size of buffer was given to call of property request"},
    {DSVM_E_PROPERTY_NOT_FOUND, "The requested property wasn't found"},
    {DSVM_E_OBJECTS_DIFFER,
     "The result of function DSVM_CompareObjectsIgnoreSign in case objects not equal"},
    {DSVM_E_REGISTRY_INDEX_RANGE,
     "The value of property DSVM_OBJ_REG_INDEX is out of range of hash array in registry"},
    {DSVM_E_REGISTRY_INDEX_AMBIGUOUS,
     "Returned if the value of property DSVM_OBJ_REG_INDEX is set and count of set of hash "
     "registries > 1"},
    {DSVM_E_OUT_OF_MEMORY, "Failed to allocate necessary memory"},
    {DSVM_E_UNKNOWN_GOST_VERSION, "Unknown Gost version"},
};

}  // namespace

extern "C" const char* DsvmGetResultText(DsvmResult code) {
    for (const auto& entry : kResultTexts) {
        if (entry.code == code) {
            return entry.text;
        }
    }
    return nullptr;
}
