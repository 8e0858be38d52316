/* The record of the file-open dialog, for platforms whose system headers do not have it.
 *
 * Plain C: callers of the exported functions include it through tavrix32.h. On Windows the system's
 * own OPENFILENAMEA is used and this file is empty.
 */
#ifndef TAVRIX_OPENFILENAME_H
#define TAVRIX_OPENFILENAME_H

#ifndef _WIN32

#include <stdint.h>

typedef struct tagOFNA {
  uint32_t lStructSize; /* bytes up to pvReserved on the 32-bit system: 76 */
  void* hwndOwner;      /* not used */
  void* hInstance;      /* not used */
  const char*
      lpstrFilter; /* pairs of texts (label, patterns split by ';'), ended by an empty one */
  char* lpstrCustomFilter;     /* not used */
  uint32_t nMaxCustFilter;     /* not used */
  uint32_t nFilterIndex;       /* 1-based pair to begin with; 0 counts as 1 */
  char* lpstrFile;             /* in: a name to begin with, or ""; out: the full path chosen */
  uint32_t nMaxFile;           /* bytes at lpstrFile, the terminator included */
  char* lpstrFileTitle;        /* out: the last component of the chosen name; may be null */
  uint32_t nMaxFileTitle;      /* bytes at lpstrFileTitle */
  const char* lpstrInitialDir; /* folder to begin in; may be null */
  const char* lpstrTitle;      /* title of the dialog; may be null */
  uint32_t Flags;              /* OFN_... bits */
  uint16_t nFileOffset;        /* out: offset of the last component in lpstrFile */
  uint16_t nFileExtension;     /* out: offset behind the last '.' of it, 0 when there is none */
  const char* lpstrDefExt;     /* extension added to a name typed without one; may be null */
  intptr_t lCustData;          /* not used */
  uintptr_t (*lpfnHook)(void*, uint32_t, uintptr_t, intptr_t); /* not used */
  const char* lpTemplateName;                                  /* not used */
  void* pvReserved; /* these three are never read or written: callers may leave them out */
  uint32_t dwReserved;
  uint32_t FlagsEx;
} OPENFILENAMEA;

#define OFN_PATHMUSTEXIST 0x00000800u /* refuse a name whose folder does not exist */
#define OFN_FILEMUSTEXIST 0x00001000u /* refuse a name that does not exist */

#endif
#endif
