// The console object, an instance of class 'CSL'.
#pragma once

#include <cstdint>

#include "platform/win32.h"
#include "quern/cmem/buffer.h"
#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kCslTag = ClassTag("CSL");

// Flags of the instance.
inline constexpr uint32_t kCslAnsi = 1;         // colours are written as escape texts
inline constexpr uint32_t kCslKeepColours = 2;  // the saved colour is not restored at the end

struct Console {
  InstanceHeader header;
  CONSOLE_CURSOR_INFO savedCursor;         // as found at first use
  CONSOLE_SCREEN_BUFFER_INFO savedScreen;  // likewise, with the attribute of the cell at the cursor
  HANDLE hOutput;                          // standard output; null until first use
  MemBuf bufExpand;                        // the text of CslExpand
};
static_assert(sizeof(void*) != 4 || sizeof(Console) == 80);

extern Console* CslCurrent;  // null until first use

// Makes `console` (a console, zeroed memory for one, or null: allocated) the current console and
// returns it. Null after raising 1000.
Console* CslSelect(void* console);

// Class procedure of 'CSL'. Releasing a console puts the cursor back as it was found, and the
// colour unless kCslKeepColours is set.
uint32_t CslClass(uintptr_t argument);

// The current console, made on demand (and then marked INST_IMPLICIT); null when there is no memory
// for one, with ErrLast set.
Console* CslOnDemand();

// Put back what was found at first use, on a console that has its handle.
void CslRestoreCursor(const Console* console);
void CslRestoreColour(const Console* console);

}  // namespace quern
