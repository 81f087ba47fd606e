#ifndef ZOSIM_FILE_OPERATIONS_H
#define ZOSIM_FILE_OPERATIONS_H

/* The two commands by which the driver moves files for the library. They really do. */

#include "dispatch.h"

/* Copies the files of a folder, with their times and attributes. option1: with all subfolders, else they count as
 * skipped. option2: existing files are overwritten, else they count as skipped. Links count as skipped, and so does
 * what cannot be read or written. Fails when the source cannot be opened or the destination folder cannot be made, and
 * with STATUS_INVALID_PARAMETER when the destination lies inside the source. */
NTSTATUS SimCopyDirectory(SimCall* call);

/* Moves the target to the staging path and puts a copy of the source in its place. When that fails, the target is moved
 * back and the first error is answered. */
NTSTATUS SimReplaceFile(SimCall* call);

#endif
