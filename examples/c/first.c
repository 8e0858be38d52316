/* Lists the headers below a folder, through the exported functions. */
#include <stdio.h>
#include <stdlib.h>
#include <tavrix32.h>

int main(int argc, char** argv) {
  char name[262], pattern[256], trail[256] = "";
  if (argc != 2) {
    fputs("usage: first FOLDER\n", stderr);
    return 2;
  }
#ifdef _WIN32
  snprintf(pattern, sizeof pattern, "%s\\*.h", argv[1]);
#else
  snprintf(pattern, sizeof pattern, "%s/*.h", argv[1]);
#endif
  while (XFileList(name, pattern, NULL, FL_RECURSE)) printf("%d %s\n", (int)XStrLen(name), name);
  XErrorInfo(trail);
  if (*trail) fprintf(stderr, "error %s\n", trail);
  return *trail ? EXIT_FAILURE : EXIT_SUCCESS;
}
