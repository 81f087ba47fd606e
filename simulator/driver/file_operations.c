#include "file_operations.h"

#include "device_paths.h"
#include "file_access.h"
#include "simulator_state.h"

#define SIM_BLOCK_SIZE 65536u

/* A folder that is still to be copied, by its name below the two roots. */
typedef struct PendingFolder {
    struct PendingFolder* next;
    USHORT length; /* bytes */
    WCHAR relative[1];
} PendingFolder;

typedef struct Copy {
    ZoProtectorCopyDirectoryResult result;
    HANDLE sourceRoot;
    HANDLE targetRoot;
    BOOLEAN withSubfolders;
    BOOLEAN overwrite;
    PendingFolder* pending;
    uint8_t* block;   /* for file contents */
    uint8_t* listing; /* for directory entries */
} Copy;

static NTSTATUS PushFolder(Copy* copy, const PendingFolder* parent, const WCHAR* name, USHORT length) {
    const USHORT before = parent->length == 0 ? 0 : (USHORT)(parent->length + sizeof(WCHAR));
    if ((ULONG)before + length > 0xFFFEu) return STATUS_NAME_TOO_LONG;
    PendingFolder* const folder = SimAllocate(sizeof(PendingFolder) + before + length);
    if (folder == NULL) return STATUS_INSUFFICIENT_RESOURCES;
    if (before != 0) {
        memcpy(folder->relative, parent->relative, parent->length);
        folder->relative[parent->length / sizeof(WCHAR)] = L'\\';
    }
    memcpy(folder->relative + before / sizeof(WCHAR), name, length);
    folder->length = (USHORT)(before + length);
    folder->next = copy->pending;
    copy->pending = folder;
    return STATUS_SUCCESS;
}

static BOOLEAN IsDotName(const FILE_BOTH_DIR_INFORMATION* entry) {
    const ULONG units = entry->FileNameLength / sizeof(WCHAR);
    return (units == 1 && entry->FileName[0] == L'.') ||
           (units == 2 && entry->FileName[0] == L'.' && entry->FileName[1] == L'.');
}

static BOOLEAN CopyOneFile(Copy* copy, HANDLE sourceFolder, HANDLE targetFolder, UNICODE_STRING* name) {
    HANDLE source;
    if (!NT_SUCCESS(SimOpenFile(sourceFolder, name, &source))) return FALSE;
    const NTSTATUS status = SimCopyFile(source, targetFolder, name, copy->overwrite, copy->block, SIM_BLOCK_SIZE);
    ZwClose(source);
    return NT_SUCCESS(status);
}

static void CopyEntry(Copy* copy, const PendingFolder* folder, HANDLE sourceFolder, HANDLE targetFolder,
                      FILE_BOTH_DIR_INFORMATION* entry) {
    if (IsDotName(entry)) return;
    UNICODE_STRING name;
    name.Buffer = entry->FileName;
    name.Length = (USHORT)entry->FileNameLength;
    name.MaximumLength = name.Length;
    const BOOLEAN isFolder = (entry->FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    BOOLEAN done = FALSE;
    if ((entry->FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        done = FALSE; /* a link is neither followed nor made anew */
    } else if (!isFolder) {
        done = CopyOneFile(copy, sourceFolder, targetFolder, &name);
        if (done) ++copy->result.filesCopied;
    } else if (copy->withSubfolders) {
        done = NT_SUCCESS(PushFolder(copy, folder, name.Buffer, name.Length));
    }
    if (!done) ++copy->result.skipped;
}

/* The entries that are in the listing's memory now. */
static void CopyBlock(Copy* copy, const PendingFolder* folder, HANDLE sourceFolder, HANDLE targetFolder) {
    uint8_t* at = copy->listing;
    for (;;) {
        FILE_BOTH_DIR_INFORMATION* const entry = (FILE_BOTH_DIR_INFORMATION*)at;
        const ULONG step = entry->NextEntryOffset;
        CopyEntry(copy, folder, sourceFolder, targetFolder, entry);
        if (step == 0) return;
        at += step;
    }
}

static void CopyListing(Copy* copy, const PendingFolder* folder, HANDLE sourceFolder, HANDLE targetFolder) {
    IO_STATUS_BLOCK io;
    NTSTATUS status;
    BOOLEAN restart = TRUE;
    while (NT_SUCCESS(status = ZwQueryDirectoryFile(sourceFolder, NULL, NULL, NULL, &io, copy->listing, SIM_BLOCK_SIZE,
                                                    FileBothDirectoryInformation, FALSE, NULL, restart))) {
        restart = FALSE;
        CopyBlock(copy, folder, sourceFolder, targetFolder);
    }
    const BOOLEAN complete = status == STATUS_NO_MORE_FILES || (restart && status == STATUS_NO_SUCH_FILE);
    if (!complete) ++copy->result.skipped;
}

/* A folder that cannot be opened, made or listed to its end counts as skipped. */
static void CopyFolder(Copy* copy, PendingFolder* folder) {
    UNICODE_STRING name;
    name.Buffer = folder->relative;
    name.Length = folder->length;
    name.MaximumLength = folder->length;
    HANDLE source;
    HANDLE target;
    BOOLEAN made;
    if (!NT_SUCCESS(SimOpenFolder(copy->sourceRoot, &name, &source))) {
        ++copy->result.skipped;
        return;
    }
    if (NT_SUCCESS(SimMakeFolder(copy->targetRoot, &name, &target, &made))) {
        if (made) ++copy->result.dirsCopied;
        CopyListing(copy, folder, source, target);
        ZwClose(target);
    } else {
        ++copy->result.skipped;
    }
    ZwClose(source);
}

static NTSTATUS CopyTree(Copy* copy, SimPath* source, SimPath* destination) {
    NTSTATUS status = SimOpenFolder(NULL, &source->text, &copy->sourceRoot);
    if (!NT_SUCCESS(status)) return status;
    BOOLEAN made;
    status = SimMakeFolder(NULL, &destination->text, &copy->targetRoot, &made);
    if (NT_SUCCESS(status)) {
        if (made) ++copy->result.dirsCopied;
        PendingFolder root = {0};
        CopyListing(copy, &root, copy->sourceRoot, copy->targetRoot);
        while (copy->pending != NULL) {
            PendingFolder* const folder = copy->pending;
            copy->pending = folder->next;
            CopyFolder(copy, folder);
            SimFree(folder);
        }
        ZwClose(copy->targetRoot);
    }
    ZwClose(copy->sourceRoot);
    return status;
}

NTSTATUS SimCopyDirectory(SimCall* call) {
    const ZoProtectorCopyDirectoryRequest* const request = call->in;
    SimPath source;
    SimPath destination;
    NTSTATUS status = SimOpenablePath(request->sourceDir, &source);
    if (NT_SUCCESS(status)) status = SimOpenablePath(request->destinationDir, &destination);
    if (!NT_SUCCESS(status)) return status;
    if (SimIsSameOrBelow(&destination.text, &source.text)) return STATUS_INVALID_PARAMETER;

    Copy copy;
    memset(&copy, 0, sizeof(copy));
    copy.withSubfolders = request->option1 != 0;
    copy.overwrite = request->option2 != 0;
    copy.block = SimAllocate(SIM_BLOCK_SIZE);
    copy.listing = SimAllocate(SIM_BLOCK_SIZE);
    status = copy.block != NULL && copy.listing != NULL ? CopyTree(&copy, &source, &destination)
                                                        : STATUS_INSUFFICIENT_RESOURCES;
    SimFree(copy.block);
    SimFree(copy.listing);

    ExAcquireFastMutex(&gSim.lock);
    gSim.counters[ZOSIM_COUNTER_FILES_COPIED] += copy.result.filesCopied;
    ExReleaseFastMutex(&gSim.lock);
    memcpy(call->out, &copy.result, sizeof(copy.result));
    call->returned = sizeof(copy.result);
    return status;
}

static NTSTATUS PutInPlace(HANDLE source, SimPath* target) {
    void* const block = SimAllocate(SIM_BLOCK_SIZE);
    if (block == NULL) return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = SimCopyFile(source, NULL, &target->text, FALSE, block, SIM_BLOCK_SIZE);
    SimFree(block);
    return status;
}

NTSTATUS SimReplaceFile(SimCall* call) {
    const ZoProtectorReplaceFileRequest* const request = call->in;
    SimPath target;
    SimPath source;
    SimPath staging;
    NTSTATUS status = SimOpenablePath(request->targetPath, &target);
    if (NT_SUCCESS(status)) status = SimOpenablePath(request->sourcePath, &source);
    if (NT_SUCCESS(status)) status = SimOpenablePath(request->stagingPath, &staging);
    if (!NT_SUCCESS(status)) return status;

    HANDLE file; /* opened before anything moves: a source that cannot be read changes nothing */
    status = SimOpenFile(NULL, &source.text, &file);
    if (!NT_SUCCESS(status)) return status;
    status = SimRenameFile(&target.text, &staging.text);
    if (NT_SUCCESS(status)) {
        status = PutInPlace(file, &target);
        /* Moving back may fail too; then the old file is still at its staging path, and the first error tells more. */
        if (!NT_SUCCESS(status)) (void)SimRenameFile(&staging.text, &target.text);
    }
    ZwClose(file);
    if (NT_SUCCESS(status)) {
        ExAcquireFastMutex(&gSim.lock);
        ++gSim.counters[ZOSIM_COUNTER_FILES_REPLACED];
        ExReleaseFastMutex(&gSim.lock);
    }
    return status;
}
