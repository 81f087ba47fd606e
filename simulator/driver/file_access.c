#include "file_access.h"

#define SIM_SHARE_ALL (FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE)

static NTSTATUS Create(HANDLE root, UNICODE_STRING* name, ACCESS_MASK access, ULONG attributes, ULONG disposition,
                       ULONG options, HANDLE* file, IO_STATUS_BLOCK* io) {
    OBJECT_ATTRIBUTES object;
    InitializeObjectAttributes(&object, name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root, NULL);
    return ZwCreateFile(file, access | SYNCHRONIZE, &object, io, NULL, attributes, SIM_SHARE_ALL, disposition,
                        options | FILE_SYNCHRONOUS_IO_NONALERT, NULL, 0);
}

NTSTATUS SimOpenFile(HANDLE root, UNICODE_STRING* name, HANDLE* file) {
    IO_STATUS_BLOCK io;
    return Create(root, name, FILE_GENERIC_READ, 0, FILE_OPEN, FILE_NON_DIRECTORY_FILE, file, &io);
}

NTSTATUS SimOpenFolder(HANDLE root, UNICODE_STRING* name, HANDLE* folder) {
    IO_STATUS_BLOCK io;
    return Create(root, name, FILE_LIST_DIRECTORY | FILE_TRAVERSE, 0, FILE_OPEN, FILE_DIRECTORY_FILE, folder, &io);
}

NTSTATUS SimMakeFolder(HANDLE root, UNICODE_STRING* name, HANDLE* folder, BOOLEAN* made) {
    IO_STATUS_BLOCK io;
    const NTSTATUS status = Create(root, name, FILE_LIST_DIRECTORY | FILE_TRAVERSE, FILE_ATTRIBUTE_NORMAL, FILE_OPEN_IF,
                                   FILE_DIRECTORY_FILE, folder, &io);
    *made = NT_SUCCESS(status) && io.Information == FILE_CREATED;
    return status;
}

static NTSTATUS CopyContents(HANDLE source, HANDLE target, void* block, uint32_t blockSize) {
    IO_STATUS_BLOCK io;
    for (;;) {
        NTSTATUS status = ZwReadFile(source, NULL, NULL, NULL, &io, block, blockSize, NULL, NULL);
        if (status == STATUS_END_OF_FILE) return STATUS_SUCCESS;
        if (!NT_SUCCESS(status)) return status;
        status = ZwWriteFile(target, NULL, NULL, NULL, &io, block, (ULONG)io.Information, NULL, NULL);
        if (!NT_SUCCESS(status)) return status;
    }
}

static NTSTATUS CopyBasics(HANDLE source, HANDLE target) {
    IO_STATUS_BLOCK io;
    FILE_BASIC_INFORMATION basics;
    const NTSTATUS status = ZwQueryInformationFile(source, &io, &basics, sizeof(basics), FileBasicInformation);
    if (!NT_SUCCESS(status)) return status;
    return ZwSetInformationFile(target, &io, &basics, sizeof(basics), FileBasicInformation);
}

static void DeleteOpenFile(HANDLE file) {
    IO_STATUS_BLOCK io;
    FILE_DISPOSITION_INFORMATION disposition;
    disposition.DeleteFile = TRUE;
    /* Best effort: the error that led here is the one to report. */
    (void)ZwSetInformationFile(file, &io, &disposition, sizeof(disposition), FileDispositionInformation);
}

NTSTATUS SimCopyFile(HANDLE source, HANDLE root, UNICODE_STRING* name, BOOLEAN overwrite, void* block,
                     uint32_t blockSize) {
    HANDLE target;
    IO_STATUS_BLOCK io;
    NTSTATUS status = Create(root, name, FILE_GENERIC_WRITE | DELETE, FILE_ATTRIBUTE_NORMAL,
                             overwrite ? FILE_OVERWRITE_IF : FILE_CREATE, FILE_NON_DIRECTORY_FILE, &target, &io);
    if (!NT_SUCCESS(status)) return status;
    status = CopyContents(source, target, block, blockSize);
    if (NT_SUCCESS(status)) status = CopyBasics(source, target);
    if (!NT_SUCCESS(status)) DeleteOpenFile(target);
    ZwClose(target);
    return status;
}

NTSTATUS SimRenameFile(UNICODE_STRING* oldPath, const UNICODE_STRING* newPath) {
    const ULONG size = (ULONG)(offsetof(FILE_RENAME_INFORMATION, FileName) + newPath->Length);
    FILE_RENAME_INFORMATION* const rename = SimAllocate(size + sizeof(WCHAR));
    if (rename == NULL) return STATUS_INSUFFICIENT_RESOURCES;
    rename->FileNameLength = newPath->Length;
    memcpy(rename->FileName, newPath->Buffer, newPath->Length);

    HANDLE file;
    IO_STATUS_BLOCK io;
    NTSTATUS status = Create(NULL, oldPath, DELETE, 0, FILE_OPEN, FILE_NON_DIRECTORY_FILE, &file, &io);
    if (NT_SUCCESS(status)) {
        status = ZwSetInformationFile(file, &io, rename, size, FileRenameInformation);
        ZwClose(file);
    }
    SimFree(rename);
    return status;
}
