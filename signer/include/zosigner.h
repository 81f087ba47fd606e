#ifndef ZOSIGNER_H
#define ZOSIGNER_H

/* ZoProtectorLib: the directory signer.
 *
 * Seals a directory tree with a manifest signed by RSA-2048 (PKCS #1 v1.5 over SHA-256) and verifies the tree against
 * it later. Plain C functions; this header stands alone. What a seal promises and what it does not: docs/sealing.md;
 * the manifest's format: docs/manifest-format.md.
 *
 * Conventions
 *   - Every function returns a status: 0 is success, negative is failure. Win32 errors come as 0x80070000 + error,
 *     failures of the platform's cryptography as the NTSTATUS with bit 0x10000000 set.
 *   - Strings are UTF-16, zero-terminated, and stay the caller's, like everything that options point to; nothing is
 *     kept after the call. Relative paths are resolved against the current directory. Paths of any length work, the
 *     tree's own names included.
 *   - The calls share no state: each may run on any thread at any time. Two that write the same keystore or manifest at
 *     once are the caller's to keep apart.
 *   - Nothing is thrown by design, but the functions are not noexcept: std::bad_alloc passes through when memory runs
 *     out, and std::filesystem::filesystem_error where the folder of a key or manifest cannot be made
 *     ("create_directories") or a sealed directory cannot be listed to its end while verifying. */

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

/* The key is not the one that the manifest names, although the manifest verifies with it. */
#define ZOSIG_E_THUMBPRINT_MISMATCH ((int32_t)0x80049101)
/* The tree was checked to the end, and bad, missing or extra items were found; the result holds their numbers. */
#define ZOSIG_E_VERIFY_FAILED ((int32_t)0x80049102)
/* The manifest is malformed; a message says where. */
#define ZOSIG_E_BAD_MANIFEST ((int32_t)0x80049103)
/* No key could be loaded from the keystore. */
#define ZOSIG_E_NO_KEY ((int32_t)0x80049104)
/* The manifest's own signature does not verify: it was changed, or another key signed it. */
#define ZOSIG_E_TAMPERED ((int32_t)0x80049106)

typedef uint32_t ZoSignerLogLevel;
#define ZOSIG_LOG_INFO ((ZoSignerLogLevel)0)
#define ZOSIG_LOG_WARNING ((ZoSignerLogLevel)1)
#define ZOSIG_LOG_ERROR ((ZoSignerLogLevel)2)

/* Called on the calling thread with each message, one line without a line end. The text is valid during the call only.
 * Findings are reported here and nowhere else, one message each: "[MISS] ...", "[BAD ] ...", "[XTRA] ..." with the full
 * path. It must not throw. */
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
    const wchar_t* root;     /* folder to seal; required */
    const wchar_t* manifest; /* file to write; required; replaced when it exists, its folders are made. It may lie in
                                the tree and is then left out of its own list, whatever its spelling. */
    const wchar_t* keystore; /* keystore folder; used and required when no key blob is given */
    const uint8_t* keyBlob;  /* a full private key blob (the bytes of private.rsakey); counts when both are non-zero */
    uint32_t keyBlobSize;    /* bytes */
    uint32_t sealMode;       /* ZoSignerSealMode */
    ZoSignerSealCallback sealCallback; /* required when sealMode is neither ALL nor NONE */
    void* sealContext;
    ZoSignerLogCallback logCallback; /* may be null */
    void* logContext;
} ZoSignerSignOptions;

typedef struct ZoSignerVerifyOptions {
    const wchar_t* root;             /* folder to check; required; need not be where it was sealed */
    const wchar_t* manifest;         /* required */
    const wchar_t* keystore;         /* keystore folder; used and required when no key blob is given */
    const uint8_t* keyBlob;          /* a public or a full private key blob; counts when both are non-zero */
    uint32_t keyBlobSize;            /* bytes */
    ZoSignerLogCallback logCallback; /* may be null */
    void* logContext;
} ZoSignerVerifyOptions;

typedef struct ZoSignerSignResult {
    uint32_t entries;          /* in the written manifest: files and shortcuts */
    uint32_t signedOrAnchored; /* files signed plus shortcuts */
    uint32_t directories;      /* the root included */
    uint32_t sealedDirectories;
    uint8_t thumbprint[32]; /* of the signing key */
} ZoSignerSignResult;

typedef struct ZoSignerVerifyResult {
    uint32_t ok;            /* files and shortcuts as they were sealed */
    uint32_t bad;           /* files with other contents, or whose signature does not verify */
    uint32_t missing;       /* listed, but not there or not readable */
    uint32_t extra;         /* in a sealed directory without being listed */
    uint32_t directories;   /* directory lines of the manifest */
    uint8_t thumbprint[32]; /* of the verifying key; filled once the manifest could be read, also with
                               ZOSIG_E_THUMBPRINT_MISMATCH */
} ZoSignerVerifyResult;

/* Makes a fresh RSA-2048 pair and saves it as private.rsakey and public.rsakey in the keystore folder, which is made
 * with its ancestors when missing. Both files are always replaced. The private file can be read by the calling user,
 * the local system and administrators only, where the file system has access lists; it is not encrypted.
 *
 *   0            done
 *   0x80070057   keystore is null or empty
 *   0x8007001D   the files could not be written; one of them may have been
 *   0xD......., 0x9.......   the platform's cryptography failed: its own status with bit 0x10000000 set */
ZO_API int32_t ZoSigner_GenerateKeyPair(const wchar_t* keystore);

/* The SHA-256 of the public key blob, by which manifests name their key. Taken from public.rsakey, or from
 * private.rsakey where there is no public file; a public file that is no key is not passed over.
 *
 *   0                done
 *   0x80070057       an argument is null
 *   ZOSIG_E_NO_KEY   no key could be loaded; the buffer is untouched */
ZO_API int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]);

/* Lists the tree, hashes and signs each file, and writes the signed manifest. Links are neither listed nor followed;
 * shortcuts (.lnk) are listed without their contents. A keystore without a private key that imports gets a fresh pair,
 * which replaces both of its files.
 *
 * Files that cannot be read are reported as warnings ("hash '...' -> 0x........ (skipped)") and left out; the call
 * succeeds all the same. Compare result->entries with what you expect, or listen to the warnings.
 *
 * result may be null; it is zeroed once the arguments have been checked, and filled on success.
 *
 *   0            done
 *   0x80070057   options, root or manifest is null; neither a key blob nor a keystore; the root cannot be made
 *                absolute; a seal callback is needed and null
 *   0x8007001D   a fresh pair could not be saved
 *   0x80004005   the root cannot be listed, or the manifest cannot be signed or written; a message says why
 *   0xD......., 0x9.......   the key blob is no private key, or the platform's cryptography failed
 *   other        what the seal callback returned
 *
 * Example:
 *     ZoSignerSignOptions options = {0};
 *     options.root = L"C:\\Suite";
 *     options.manifest = L"C:\\Suite\\suite.zosig";
 *     options.keystore = L"D:\\Keys\\suite";
 *     options.sealMode = ZOSIG_SEAL_ALL;
 *     int32_t status = ZoSigner_SignDirectory(&options, NULL); */
ZO_API int32_t ZoSigner_SignDirectory(const ZoSignerSignOptions* options, ZoSignerSignResult* result);

/* Verifies the manifest, then checks the tree against it: each listed file's contents and signature, each shortcut's
 * presence, and that sealed directories hold nothing else (names compared byte for byte). Everything found is reported;
 * the check goes on to the end.
 *
 * result may be null; it is zeroed once the arguments have been checked.
 *
 *   0                            the tree is as it was sealed
 *   ZOSIG_E_VERIFY_FAILED        it is not; see the result and the messages
 *   ZOSIG_E_TAMPERED             the manifest was changed, or was signed by another key
 *   ZOSIG_E_BAD_MANIFEST         the manifest is malformed
 *   ZOSIG_E_THUMBPRINT_MISMATCH  the manifest names another key
 *   ZOSIG_E_NO_KEY               no key could be loaded from the keystore
 *   0x80070057                   options, root or manifest is null; neither a key blob nor a keystore; the root
 *                                cannot be made absolute
 *   0x8007....                   the manifest cannot be opened or read
 *   0xD......., 0x9.......       the key blob is no key, or the platform's cryptography failed */
ZO_API int32_t ZoSigner_VerifyDirectory(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result);

/* The same with the public key that the library was built with (ZO_EMBEDDED_PUBLIC_KEY); keystore and key blob are
 * ignored. The statuses are those of ZoSigner_VerifyDirectory but ZOSIG_E_NO_KEY. */
ZO_API int32_t ZoSigner_VerifyDirectoryWithEmbeddedKey(const ZoSignerVerifyOptions* options,
                                                       ZoSignerVerifyResult* result);

/* For programs that load the library at run time: one pointer type for each function, called like it with "Fn" at the
 * end. zoprotector.h says more. None of the signer's functions may be called under the loader lock. */
typedef int32_t (*ZoSigner_GenerateKeyPairFn)(const wchar_t* keystore);
typedef int32_t (*ZoSigner_GetPublicKeyThumbprintFn)(const wchar_t* keystore, uint8_t thumbprint[32]);
typedef int32_t (*ZoSigner_SignDirectoryFn)(const ZoSignerSignOptions* options, ZoSignerSignResult* result);
typedef int32_t (*ZoSigner_VerifyDirectoryFn)(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result);
typedef int32_t (*ZoSigner_VerifyDirectoryWithEmbeddedKeyFn)(const ZoSignerVerifyOptions* options,
                                                             ZoSignerVerifyResult* result);

#ifdef __cplusplus
}
#endif

#endif
