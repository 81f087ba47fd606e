/* seal_folder FOLDER MANIFEST KEYSTORE: seals FOLDER with a signed manifest when MANIFEST does not exist yet, and
 * verifies the folder against it when it does. Ends with 0 when all is well, 1 on a failure, 3 when something was
 * changed, be it the manifest. */

#include <stdio.h>
#include <wchar.h>
#include <zosigner.h>

static void Report(void* context, uint32_t level, const wchar_t* message) {
    (void)context;
    printf("%s %ls\n", level == ZOSIG_LOG_INFO ? "   " : "!! ", message);
}

static int Seal(const wchar_t* folder, const wchar_t* manifest, const wchar_t* keystore) {
    ZoSignerSignOptions options = {0};
    options.root = folder;
    options.manifest = manifest;
    options.keystore = keystore;
    options.sealMode = ZOSIG_SEAL_ALL; /* whatever is added to any folder later will be reported */
    options.logCallback = Report;

    ZoSignerSignResult result;
    const int32_t status = ZoSigner_SignDirectory(&options, &result); /* makes the key pair the first time */
    if (status < 0) {
        printf("sealing failed with status 0x%08X\n", (unsigned)status);
        return 1;
    }
    printf("sealed %u file(s) in %u folder(s)\n", (unsigned)result.signedOrAnchored, (unsigned)result.directories);
    return 0;
}

static int Verify(const wchar_t* folder, const wchar_t* manifest, const wchar_t* keystore) {
    ZoSignerVerifyOptions options = {0};
    options.root = folder;
    options.manifest = manifest;
    options.keystore = keystore;
    options.logCallback = Report;

    ZoSignerVerifyResult result;
    const int32_t status = ZoSigner_VerifyDirectory(&options, &result);
    if (status >= 0) {
        printf("unchanged: %u file(s)\n", (unsigned)result.ok);
        return 0;
    }
    if (status == ZOSIG_E_TAMPERED) {
        printf("the manifest was changed, or was signed with another key\n"); /* the folder was not looked at */
        return 3;
    }
    if (status == ZOSIG_E_VERIFY_FAILED) {
        printf("changed: %u bad, %u missing, %u extra\n", (unsigned)result.bad, (unsigned)result.missing,
               (unsigned)result.extra);
        return 3;
    }
    printf("verifying failed with status 0x%08X\n", (unsigned)status);
    return 1;
}

int wmain(int argc, wchar_t** argv) {
    if (argc != 4) {
        printf("usage: seal_folder FOLDER MANIFEST KEYSTORE\n");
        return 1;
    }
    if (_waccess(argv[2], 0) != 0) return Seal(argv[1], argv[2], argv[3]); /* no manifest yet */
    return Verify(argv[1], argv[2], argv[3]);
}
