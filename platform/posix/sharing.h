// How the opens of all processes share a file: locks that say what each of them does with it.
//
// The locks are read locks of the open file description, on bytes far behind the data of any file.
// They end with the description: with its last descriptor and its last view, whatever way the
// process ends. Each open locks a byte for each thing that it does, and one for each thing that it
// denies to others; it may come in when nobody holds the counterpart of one of these. What is
// mapped is a range of its own, as long as the mapping; a cut takes a write lock there for as long
// as it lasts, on all that is cut off.
//
// A file system without such locks tells of no other process, and nothing is refused for one.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace posix_layer {

// Whether another open does what is denied here, or denies what is done here. `uses` and `denies`
// are in FILE_SHARE_READ and FILE_SHARE_WRITE.
bool IsDisputed(int descriptor, DWORD uses, DWORD denies);

// Says what an open does and denies, until EndClaim or the end of the description. False, and
// nothing is said, when it is disputed. Of two that come at the same time one gets it.
bool Claim(int descriptor, DWORD uses, DWORD denies);
void EndClaim(int descriptor);

// Says that the first `size` bytes are mapped, until EndMappedClaim or the end of the description;
// a shorter claim leaves a longer one as it is. False while the file is being cut.
bool ClaimMapped(int descriptor, uint64_t size);
void EndMappedClaim(int descriptor);

// Whether another open has anything of the file mapped.
bool IsMappedElsewhere(int descriptor);

// Makes a file `size` bytes long. ERROR_SUCCESS; ERROR_USER_MAPPED_FILE when another open has
// mapped what would be cut off, or the reason of the system.
DWORD Resize(int descriptor, uint64_t size);

}  // namespace posix_layer
