#ifndef ZOSIGNER_H
#define ZOSIGNER_H

/* ZoProtectorLib: the directory signer.
 *
 * Seals a directory tree with a manifest signed by RSA-2048 (PKCS #1 v1.5 over SHA-256) and verifies the tree against
 * it later. Plain C functions; this header stands alone. The calls share no state: each may run on any thread at any
 * time. */

#include <stddef.h>
#include <stdint.h>

#ifndef ZO_API
#if defined(ZO_BUILDING_LIBRARY)
#define ZO_API __declspec(dllexport)
#elif defined(ZO_NO_IMPORT)
#define ZO_API /* for those who load the library themselves and only want the declarations */
#else
#define ZO_API __declspec(dllimport)
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define ZOSIG_E_THUMBPRINT_MISMATCH ((int32_t)0x80049101) /* the key is not the one that the manifest names */
#define ZOSIG_E_VERIFY_FAILED ((int32_t)0x80049102)       /* bad, missing or extra items were found */
#define ZOSIG_E_BAD_MANIFEST ((int32_t)0x80049103)        /* the manifest is malformed */
#define ZOSIG_E_NO_KEY ((int32_t)0x80049104)              /* no key could be loaded from the keystore */
#define ZOSIG_E_TAMPERED ((int32_t)0x80049106)            /* the manifest's own signature does not verify */

typedef uint32_t ZoSignerLogLevel;
#define ZOSIG_LOG_INFO ((ZoSignerLogLevel)0)
#define ZOSIG_LOG_WARNING ((ZoSignerLogLevel)1)
#define ZOSIG_LOG_ERROR ((ZoSignerLogLevel)2)

/* Called on the calling thread with each message, without a line end. The text is valid during the call only. */
typedef void (*ZoSignerLogCallback)(void* context, uint32_t level, const wchar_t* message);

typedef uint32_t ZoSignerSealMode;
#define ZOSIG_SEAL_ALL ((ZoSignerSealMode)0)
#define ZOSIG_SEAL_NONE ((ZoSignerSealMode)1)
#define ZOSIG_SEAL_ASK ((ZoSignerSealMode)2) /* any other value also asks the callback */

/* Decides whether one directory is sealed. relativePath is "." for the root, "a/b" below it. *seal comes as 1 and
 * *applyToRest as 0. A non-zero *applyToRest gives the same answer to every directory that follows in walk order, not
 * only to those below this one. A negative result stops the signing and becomes its status. */
typedef int32_t (*ZoSignerSealCallback)(void* context, const wchar_t* relativePath, int32_t* seal,
                                        int32_t* applyToRest);

typedef struct ZoSignerSignOptions {
    const wchar_t* root;
    const wchar_t* manifest;
    const wchar_t* keystore;
    const uint8_t* keyBlob;
    uint32_t keyBlobSize;
    uint32_t sealMode;
    ZoSignerSealCallback sealCallback;
    void* sealContext;
    ZoSignerLogCallback logCallback;
    void* logContext;
} ZoSignerSignOptions;

typedef struct ZoSignerVerifyOptions {
    const wchar_t* root;
    const wchar_t* manifest;
    const wchar_t* keystore;
    const uint8_t* keyBlob;
    uint32_t keyBlobSize;
    ZoSignerLogCallback logCallback;
    void* logContext;
} ZoSignerVerifyOptions;

typedef struct ZoSignerSignResult {
    uint32_t entries;
    uint32_t signedOrAnchored;
    uint32_t directories;
    uint32_t sealedDirectories;
    uint8_t thumbprint[32];
} ZoSignerSignResult;

typedef struct ZoSignerVerifyResult {
    uint32_t ok;
    uint32_t bad;
    uint32_t missing;
    uint32_t extra;
    uint32_t directories;
    uint8_t thumbprint[32];
} ZoSignerVerifyResult;

ZO_API int32_t ZoSigner_GenerateKeyPair(const wchar_t* keystore);
ZO_API int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]);
ZO_API int32_t ZoSigner_SignDirectory(const ZoSignerSignOptions* options, ZoSignerSignResult* result);
ZO_API int32_t ZoSigner_VerifyDirectory(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result);
ZO_API int32_t ZoSigner_VerifyDirectoryWithEmbeddedKey(const ZoSignerVerifyOptions* options,
                                                       ZoSignerVerifyResult* result);

#ifdef __cplusplus
}
#endif

#endif
