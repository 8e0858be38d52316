/* A user of the shared library in plain C: its header compiles as C, the library links by its plain
 * names, and a call arrives with its arguments in place.
 */
#include <stdio.h>
#include <string.h>

#include "exports/tavrix32.h"

static int failures;

static void Expect(const char* what, int32_t actual, int32_t expected) {
  if (actual == expected) return;
  printf("%s: %ld, expected %ld\n", what, (long)actual, (long)expected);
  ++failures;
}

int main(void) {
  /* Every export is bound at link time, also the ones that are not called. */
  int32_t(TAVRIX_CALL * dialog)(OPENFILENAMEA*) = XDlgFileOpen;
  char buffer[512] = "untouched";
  char missing[] = "there-is-no-such-program-here --at-all";

  Expect("dialog is linked", dialog != NULL, 1);
  Expect("XStrLen", XStrLen("abcdef"), 6);
  Expect("XStrSpn", XStrSpn("aaab", "a", 2), 3);
  Expect("XStrCSpn", XStrCSpn("abcdef", "e", 3), 3);
  Expect("XStrCmp", XStrCmp("\xE4", "z", 1), 2);
  Expect("XProcStart", XProcStart(missing), -1);
  Expect("XErrorInfo", XErrorInfo(buffer), 0);
  Expect("no failure, no trail", strcmp(buffer, "untouched"), 0);
  Expect("XFileList", XFileList(buffer, NULL, NULL, 0), 0);
  return failures != 0;
}
