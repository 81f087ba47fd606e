#ifndef ZOSIGNER_H
#define ZOSIGNER_H

/* ZoProtectorLib: the directory signer.
 *
 * Seals a directory tree with a manifest signed by RSA-2048 (PKCS #1 v1.5 over SHA-256), and later verifies the tree
 * against that manifest. Plain C functions; this header needs nothing but the two headers below. What a seal promises
 * and what it does not: docs/sealing.md. The manifest's format: docs/manifest-format.md.
 *
 * Conventions
 *   - Every function returns a status: 0 is success, negative is failure. A Win32 error is returned as
 *     0x80070000 + error, a failure of the platform's cryptography as its NTSTATUS with bit 0x10000000 set.
 *   - Strings are UTF-16 and end with a zero. The caller owns them, and everything else that the options point to;
 *     nothing is kept after the call. Relative paths are resolved against the current directory. Paths may be of any
 *     length, inside the tree too.
 *   - The calls share no state: each may run on any thread at any time. The caller makes sure that no two calls write
 *     the same keystore or manifest at once.
 *   - Nothing is thrown by design, but the functions are not noexcept. std::bad_alloc passes through when memory runs
 *     out, and std::filesystem::filesystem_error ("create_directories") when the folder of a key or of the manifest
 *     cannot be created: from GenerateKeyPair and SignDirectory only. Only callers built with the same compiler can
 *     catch them; others avoid the second one by creating these folders before the call. */

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

/* The manifest verifies with this key, but names another one. */
#define ZOSIG_E_THUMBPRINT_MISMATCH ((int32_t)0x80049101)
/* The whole tree was checked, and bad, missing or extra items were found; the result holds their numbers. */
#define ZOSIG_E_VERIFY_FAILED ((int32_t)0x80049102)
/* The manifest is malformed; a message says where. */
#define ZOSIG_E_BAD_MANIFEST ((int32_t)0x80049103)
/* No key could be loaded from the keystore. */
#define ZOSIG_E_NO_KEY ((int32_t)0x80049104)
/* The manifest's own signature does not verify: the manifest was changed, or another key signed it. */
#define ZOSIG_E_TAMPERED ((int32_t)0x80049106)

typedef uint32_t ZoSignerLogLevel;
#define ZOSIG_LOG_INFO ((ZoSignerLogLevel)0)
#define ZOSIG_LOG_WARNING ((ZoSignerLogLevel)1)
#define ZOSIG_LOG_ERROR ((ZoSignerLogLevel)2)

/* Called on the calling thread with each message: one line, without a line end. The text is valid during the call only.
 * The callback must not throw.
 *
 * Single findings are reported here and nowhere else, one message each. These beginnings never change, so that programs
 * can recognise them; what they show in capitals varies. PATH is a full path, 0x........ a status.
 *
 *   either
 *     "ImportKeyBlob -> NTSTATUS 0x........"                   level 2; the key blob is not a key of the kind needed
 *   verifying
 *     "[MISS] PATH"                                            a file is gone or cannot be read
 *     "[MISS] shortcut anchor: PATH"                           a shortcut is gone
 *     "[BAD ] hash mismatch: PATH"                             a file has other contents
 *     "[BAD ] signature invalid: PATH (0x........)"            the manifest's signature of a file does not verify
 *     "[XTRA] unexpected file in sealed dir: PATH"             an item that is not listed
 *     "[XTRA] unexpected dir  in sealed dir: PATH"             the same; two blanks after "dir"
 *     "[XTRA] new mklink (reparse point) created in sealed dir: PATH"
 *     "cannot list sealed dir 'PATH': TEXT"                    level 2; what it holds is unknown; TEXT is the system's
 *   signing
 *     "open root 'PATH': TEXT"                                 level 2; the folder to seal cannot be listed
 *     "Create manifest -> Win32 NUMBER"                        level 2; the manifest cannot be created
 *     "Write manifest -> Win32 NUMBER"                         level 2; it cannot be written
 *     "Found NUMBER files, "                                   what is signed now, shortcuts included
 *     "hash 'PATH' -> 0x........ (skipped)"                    a file cannot be read and is left out
 *     "sign 'PATH' -> 0x........ (skipped)"                    a file cannot be signed and is left out
 *     "iter: TEXT"                                             a folder cannot be listed, or not to its end
 *     "name with control characters: PATH"                     level 1; left out with all below it
 *     "name that is not valid UTF-16: PATH"                    level 1; left out with all below it
 *     "skipping reparse point: PATH"                           level 0; links are not listed */
typedef void (*ZoSignerLogCallback)(void* context, uint32_t level, const wchar_t* message);

typedef uint32_t ZoSignerSealMode;
#define ZOSIG_SEAL_ALL ((ZoSignerSealMode)0)
#define ZOSIG_SEAL_NONE ((ZoSignerSealMode)1)
#define ZOSIG_SEAL_ASK ((ZoSignerSealMode)2) /* any other value also asks the callback */

/* Decides whether one directory is sealed. relativePath is "." for the root, "a/b" below it. At the call *seal is 1 and
 * *applyToRest is 0. If the callback sets *applyToRest to a non-zero value, every directory that follows in walk order
 * gets the same answer, not only those below this one. A negative result ends the signing and becomes its status. */
typedef int32_t (*ZoSignerSealCallback)(void* context, const wchar_t* relativePath, int32_t* seal,
                                        int32_t* applyToRest);

typedef struct ZoSignerSignOptions {
    const wchar_t* root;     /* folder to seal; required */
    const wchar_t* manifest; /* file to write; required. An existing one is replaced, missing folders are created. It
                                may lie in the tree, in any spelling: the manifest does not list itself. */
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
    uint32_t ok;            /* files and shortcuts that are as they were sealed */
    uint32_t bad;           /* files with other contents, or whose signature does not verify */
    uint32_t missing;       /* files and shortcuts that are listed, but not there or not readable */
    uint32_t extra;         /* items of sealed directories that are not listed */
    uint32_t directories;   /* directory lines of the manifest */
    uint8_t thumbprint[32]; /* of the verifying key; filled once the manifest could be read, also with
                               ZOSIG_E_THUMBPRINT_MISMATCH */
} ZoSignerVerifyResult;

/* Makes a new RSA-2048 pair and saves it as private.rsakey and public.rsakey in the keystore folder, which is created
 * with its ancestors if missing. Both files are always replaced. Where the file system has access lists, only the
 * calling user, the local system and administrators can open the private file; an older file whose access list cannot
 * be set is deleted and created anew. But an older file keeps its owner, who can change that list again, and a link in
 * its place is followed: use a folder that nobody else can write to. The private key is not encrypted.
 *
 *   0            done
 *   0x80070057   keystore is null or empty
 *   0x8007001D   a file could not be written, or the key could not be exported; the private file may have been written
 *   0xD......., 0x9.......   the platform's cryptography failed: its own status with bit 0x10000000 set */
ZO_API int32_t ZoSigner_GenerateKeyPair(const wchar_t* keystore);

/* The SHA-256 of the public key blob: manifests name their key by it. The key is taken from public.rsakey, or from
 * private.rsakey if there is no public file. A public file that holds no public key is an error.
 *
 *   0                done
 *   0x80070057       an argument is null
 *   ZOSIG_E_NO_KEY   no key could be loaded; the buffer is unchanged */
ZO_API int32_t ZoSigner_GetPublicKeyThumbprint(const wchar_t* keystore, uint8_t thumbprint[32]);

/* Lists the tree, hashes and signs each file, and writes the signed manifest. Links are neither listed nor followed;
 * shortcuts (.lnk) are listed without their contents. If the keystore has no private key that imports, a new pair is
 * made, which replaces both files.
 *
 * Files that cannot be read are reported as warnings and left out; the call still succeeds. Compare result->entries
 * with what you expect, or look at the warnings.
 *
 * result may be null. It is zeroed once the arguments have been checked, and filled on success.
 *
 *   0            done
 *   0x80070057   options, root or manifest is null; there is neither a key blob nor a keystore; the root cannot be made
 *                absolute; a seal callback is needed but null
 *   0x8007001D   a new pair could not be saved
 *   0x80004005   the root cannot be listed, or the manifest cannot be signed or written; a message says why
 *   0xD000000D   the key blob is shorter than its 24-byte header
 *   0xD00000BB   the key blob is not one full private key of 2048 bits, as long as its header says
 *   0xD......., 0x9.......   the platform's cryptography failed
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

/* Verifies the manifest, then checks the tree against it: the contents and the signature of each listed file, the
 * presence of each shortcut, and that sealed directories hold nothing else (names are compared byte for byte). The
 * check does not stop at a finding: everything found is reported.
 *
 * A sealed directory that is gone has no extra items; its listed files count as missing. One that exists, or may exist,
 * but cannot be listed to its end is reported at level 2, and the rest is still checked: it could hold anything, so the
 * tree does not verify.
 *
 * result may be null. It is zeroed once the arguments have been checked. After a status marked * below, the whole tree
 * was checked, and the counters are complete but for the items of directories that could not be listed.
 *
 *   0                            * the tree is as it was sealed
 *   ZOSIG_E_VERIFY_FAILED        * there are bad, missing or extra items, and all sealed directories were listed
 *   0x8007....                   * a sealed directory could not be listed: the Win32 error of the first one. The
 *                                counters say whether there are bad, missing or extra items as well.
 *   0x8007....                   the manifest cannot be opened or read; result->thumbprint is zero then, which it never
 *                                is in the case before
 *   0x80070057                   options, root or manifest is null; there is neither a key blob nor a keystore; the
 *                                root cannot be made absolute
 *   ZOSIG_E_TAMPERED             the manifest was changed, or was signed by another key
 *   ZOSIG_E_BAD_MANIFEST         the manifest is malformed
 *   ZOSIG_E_THUMBPRINT_MISMATCH  the manifest names another key
 *   ZOSIG_E_NO_KEY               no key could be loaded from the keystore
 *   0xD000000D                   the key blob is shorter than its 24-byte header
 *   0xD00000BB                   the key blob is not one public or full private key of 2048 bits, as long as its header
 *                                says
 *   0xD......., 0x9.......       the platform's cryptography failed */
ZO_API int32_t ZoSigner_VerifyDirectory(const ZoSignerVerifyOptions* options, ZoSignerVerifyResult* result);

/* The same with the public key that the library was built with (ZO_EMBEDDED_PUBLIC_KEY); keystore and key blob are
 * ignored. The statuses are those of ZoSigner_VerifyDirectory except ZOSIG_E_NO_KEY. */
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
