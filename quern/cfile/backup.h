// The backup copy of a file that is opened with FO_BACKUP.
//
// The copy is a new file of this process: exclusively made, for its owner alone. Its handle stays
// open until the file is closed, and the bytes that are put back come from that handle. So whoever
// else may write to the temporary folder can neither read the copy nor put another one in its
// place.
#pragma once

#include "quern/cfile/object.h"

namespace quern {

// Copies the file of the name record into the temporary folder and sets pszBackup, also when no
// copy could be made; that is raised (0x80000004, 0x80000005) and reported. False after raising 3
// (no memory).
bool BackUp(FileObject* file);

// Copies the backup over the file of the name record and removes it. False, with the last error
// set, when there is no copy, or when it could not be put back; it then stays.
bool PutBack(FileObject* file);

// Forgets the backup. The copy stays.
void DropBackup(FileObject* file);

}  // namespace quern
