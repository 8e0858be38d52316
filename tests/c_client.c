/* A user of the shared library in plain C: its header is C, its names are plain, and each call gets
 * its arguments. */
#include <string.h>

#include "exports/tavrix32.h"

int main(void) {
  int32_t(TAVRIX_CALL * dialog)(OPENFILENAMEA*) = XDlgFileOpen;
  char trail[512] = "untouched", missing[] = "there-is-no-such-program-here --at-all";
  return !(dialog && XStrLen("abcdef") == 6 && XStrSpn("aaab", "a", 2) == 3 &&
           XStrCSpn("abcdef", "e", 3) == 3 && XStrCmp("\xE4", "z", 1) == 2 &&
           XProcStart(missing) == -1 && XErrorInfo(trail) == 0 && strcmp(trail, "untouched") == 0 &&
           XFileList(trail, NULL, NULL, 0) == 0);
}
