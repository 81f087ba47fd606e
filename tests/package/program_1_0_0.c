/* program_1_0_0 FOLDER MANIFEST KEYSTORE DUMPS RECORD: a caller as it was written for 1.0.0. Ends with 0, or with the
 * number of the first line that did not get what 1.0.0 gives. Behind each record that the library fills are bytes that
 * it must not touch: a library whose records had grown would write there. */
#include "interface_1_0_0.h"

#include <string.h>
#include <wchar.h>

extern const void* const everyFunction[]; /* keeps each one in the program's import table */

typedef union Guarded {
    ZoProtectorDriverStatus driver;
    ZoSignerSignResult sign;
    ZoSignerVerifyResult verify;
    ZoCrashRunStats run;
    uint8_t bytes[8192];
} Guarded;

static Guarded filled;

static void Prepare(void) {
    memset(filled.bytes, 0xA5, sizeof filled);
}

static int IsUntouchedFrom(size_t size) {
    for (; size < sizeof filled; ++size) {
        if (filled.bytes[size] != 0xA5) return 0;
    }
    return 1;
}

static int logged;

static void CountSignerLines(void* context, uint32_t level, const wchar_t* message) {
    if (context == &filled && level <= ZOSIG_LOG_ERROR && wcslen(message) > 0) ++logged;
}

static void CountReporterLines(void* context, int32_t level, const wchar_t* message) {
    if (context == &filled && level <= ZOCRASH_LOG_ERROR && wcslen(message) > 0) ++logged;
}

#define EXPECT(condition)                  \
    do {                                   \
        if (!(condition)) return __LINE__; \
    } while (0)

static int UseSdk(void) {
    uint32_t major, minor, patch, count, total;
    EXPECT(ZoProtector_GetVersion(&major, &minor, &patch) == ZOP_E_NOT_INITIALIZED);
    EXPECT(ZoProtector_ListFileProtectRules(NULL, 0, &count, &total) == ZOP_E_NOT_INITIALIZED);
    Prepare();
    EXPECT(ZoProtector_QueryDriverStatus(&filled.driver) == ZOP_OK);
    EXPECT(IsUntouchedFrom(sizeof filled.driver) && filled.driver.state <= ZOP_DRIVER_RUNNING);
    return 0;
}

static int UseSigner(wchar_t** arguments) {
    ZoSignerSignOptions sign = {arguments[1], arguments[2], arguments[3],     NULL,   0, ZOSIG_SEAL_ALL,
                                NULL,         NULL,         CountSignerLines, &filled};
    const ZoSignerVerifyOptions verify = {arguments[1], arguments[2], arguments[3], NULL, 0, CountSignerLines, &filled};
    Prepare();
    EXPECT(ZoSigner_SignDirectory(&sign, &filled.sign) == ZOP_OK);
    EXPECT(IsUntouchedFrom(sizeof filled.sign) && filled.sign.signedOrAnchored == 1 && logged > 0);
    Prepare();
    EXPECT(ZoSigner_VerifyDirectory(&verify, &filled.verify) == ZOP_OK);
    EXPECT(IsUntouchedFrom(sizeof filled.verify) && filled.verify.ok == 1 && filled.verify.extra == 0);
    return 0;
}

static int UseReporter(wchar_t** arguments) {
    ZoCrashReportConfig config = {
        L"https://127.0.0.1:9/crash", L"program", L"1.0.0", 0, arguments[4], arguments[5], 0, 0, 1};
    const char* targets[] = {"none.sys"}; /* so that nothing is sent */
    EXPECT(ZoCrashReport_SetLogger(CountReporterLines, &filled) == ZOP_OK);
    EXPECT(ZoCrashReport_Initialize(&config) == ZOP_OK);
    EXPECT(ZoCrashReport_SetTargetDrivers(targets, 1) == ZOP_OK);
    EXPECT(ZoCrashReport_NotifyNetworkOk() == ZOP_OK);
    logged = 0;
    Prepare();
    memset(&filled.run, 0, sizeof filled.run); /* counters are added to */
    EXPECT(ZoCrashReport_Run(&filled.run) == ZOP_OK);
    EXPECT(IsUntouchedFrom(sizeof filled.run) && filled.run.dumpsFound == 1);
    EXPECT(logged > 0 && ZoCrashReport_Uninitialize() == ZOP_OK);
    return 0;
}

int wmain(int count, wchar_t** arguments) {
    int line = count == 6 && everyFunction[0] != NULL ? UseSdk() : __LINE__;
    if (line == 0) line = UseSigner(arguments);
    if (line == 0) line = UseReporter(arguments);
    return line;
}
