#include "device_paths.h"

static USHORT Units(const UNICODE_STRING* text) {
    return (USHORT)(text->Length / sizeof(WCHAR));
}

static UNICODE_STRING WithoutTrailingSeparators(UNICODE_STRING path) {
    while (path.Length != 0 && path.Buffer[Units(&path) - 1] == L'\\')
        path.Length = (USHORT)(path.Length - sizeof(WCHAR));
    return path;
}

BOOLEAN SimIsSameOrBelow(const UNICODE_STRING* inner, const UNICODE_STRING* outer) {
    const UNICODE_STRING below = WithoutTrailingSeparators(*inner);
    const UNICODE_STRING above = WithoutTrailingSeparators(*outer);
    if (!RtlPrefixUnicodeString(&above, &below, TRUE)) return FALSE;
    return below.Length == above.Length || below.Buffer[Units(&above)] == L'\\';
}

/* The device of \??\X: into target. */
static NTSTATUS QueryDrive(WCHAR letter, UNICODE_STRING* target) {
    WCHAR name[] = L"\\??\\X:";
    name[4] = letter;
    UNICODE_STRING linkName;
    RtlInitUnicodeString(&linkName, name);
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &linkName, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, NULL, NULL);
    HANDLE link;
    NTSTATUS status = ZwOpenSymbolicLinkObject(&link, GENERIC_READ, &attributes);
    if (!NT_SUCCESS(status)) return status;
    status = ZwQuerySymbolicLinkObject(link, target, NULL);
    ZwClose(link);
    return status;
}

NTSTATUS SimOpenablePath(const uint16_t* field, SimPath* path) {
    uint32_t length = 0;
    while (length < ZOP_PATH_UNITS && field[length] != 0)
        ++length;
    if (length == 0 || length == ZOP_PATH_UNITS) return STATUS_INVALID_PARAMETER;
    memcpy(path->units, field, length * sizeof(WCHAR));
    path->text.Buffer = path->units;
    path->text.Length = (USHORT)(length * sizeof(WCHAR));
    path->text.MaximumLength = sizeof(path->units);

    WCHAR targetUnits[128];
    for (WCHAR letter = L'A'; letter <= L'Z'; ++letter) {
        UNICODE_STRING target;
        target.Buffer = targetUnits;
        target.Length = 0;
        target.MaximumLength = sizeof(targetUnits);
        if (!NT_SUCCESS(QueryDrive(letter, &target)) || target.Length == 0) continue;
        if (!SimIsSameOrBelow(&path->text, &target)) continue;

        const uint32_t device = Units(&target);
        const WCHAR drive[6] = {L'\\', L'?', L'?', L'\\', letter, L':'};
        memcpy(path->units, drive, sizeof(drive));
        memcpy(path->units + 6, field + device, (length - device) * sizeof(WCHAR));
        path->text.Length = (USHORT)((6 + length - device) * sizeof(WCHAR));
        break;
    }
    return STATUS_SUCCESS;
}
