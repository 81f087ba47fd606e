/* program_1_0_0 FOLDER MANIFEST KEYSTORE RECORD: a caller as it was written for 1.0.0. Ends with 0, or with the number
 * of the first line that did not get what 1.0.0 gives. */
#include "interface_1_0_0.h"

extern const void* const everyFunction[]; /* keeps each one in the program's import table */

static int logged;

static void CountLines(void* context, uint32_t level, const wchar_t* message) {
    if (context == &logged && level <= ZOSIG_LOG_ERROR && message[0] != 0) ++logged;
}

#define EXPECT(condition)                  \
    do {                                   \
        if (!(condition)) return __LINE__; \
    } while (0)

int wmain(int count, wchar_t** arguments) {
    EXPECT(count == 5 && everyFunction[0] != NULL);
    ZoProtectorDriverStatus driver;
    EXPECT(ZoProtector_QueryDriverStatus(&driver) == ZOP_OK && driver.state <= ZOP_DRIVER_RUNNING);

    const wchar_t *folder = arguments[1], *manifest = arguments[2], *keystore = arguments[3];
    ZoSignerSignOptions sign = {folder, manifest, keystore, NULL, 0, ZOSIG_SEAL_ALL, NULL, NULL, CountLines, &logged};
    ZoSignerSignResult made;
    EXPECT(ZoSigner_SignDirectory(&sign, &made) == ZOP_OK && made.signedOrAnchored == 1 && logged > 0);
    ZoSignerVerifyOptions verify = {folder, manifest, keystore, NULL, 0, NULL, NULL};
    ZoSignerVerifyResult found;
    EXPECT(ZoSigner_VerifyDirectory(&verify, &found) == ZOP_OK && found.ok == 1 && found.extra == 0);

    ZoCrashReportConfig config = {L"https://127.0.0.1:9/crash", L"program", L"1.0.0", 0, NULL, arguments[4], 0, 0, 1};
    EXPECT(ZoCrashReport_Initialize(&config) == ZOP_OK && ZoCrashReport_Uninitialize() == ZOP_OK);
    return 0;
}
