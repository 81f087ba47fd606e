#ifndef ZOSIM_FILE_ACCESS_H
#define ZOSIM_FILE_ACCESS_H

/* Opening, copying and renaming single files from kernel mode. A name is a full NT path, or relative to a folder that
 * is open (root). Whoever opens a handle closes it with ZwClose. */

#include "kernel.h"

/* For reading a file, or a folder's listing. */
NTSTATUS SimOpenFile(HANDLE root, UNICODE_STRING* name, HANDLE* file);
NTSTATUS SimOpenFolder(HANDLE root, UNICODE_STRING* name, HANDLE* folder);

/* Opens a folder and makes it when it is missing; made tells which. */
NTSTATUS SimMakeFolder(HANDLE root, UNICODE_STRING* name, HANDLE* folder, BOOLEAN* made);

/* Contents, times and attributes. Without overwrite an existing file is STATUS_OBJECT_NAME_COLLISION. A file whose
 * copying broke off is deleted again. block is the memory to copy through. */
NTSTATUS SimCopyFile(HANDLE source, HANDLE root, UNICODE_STRING* name, BOOLEAN overwrite, void* block,
                     uint32_t blockSize);

/* Both full paths on one volume; an existing new name is a failure. */
NTSTATUS SimRenameFile(UNICODE_STRING* oldPath, const UNICODE_STRING* newPath);

#endif
