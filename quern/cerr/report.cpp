// The error report.

#include "quern/cerr.h"

namespace quern {

// The composing of the report goes here; what lasts of a full report is the cleared stack.
int32_t ErrReport(void* /*target*/, uint32_t mode) {
  if (ErrCurrent && (mode & ERR_REPORT_FULL)) ErrClear();
  return 0;
}

}  // namespace quern
