// Common ground of the foundation: what every module's records and failures are made of.
//
// "Compat:" in a comment marks behaviour that looks like a slip and stays: released programs depend
// on it. docs/oddities.md lists it.
//
// All state of the library is process-wide and unguarded: it serves one thread at a time. No
// function throws. A function that fails records why on the error stack (cerr.h) and returns its
// failure value.
#pragma once

#include <cstdint>

namespace quern {

// --- objects -------------------------------------------------------------------------------------

// A class's procedure. With kCollectRequest it collects all instances of its class; with the
// address of an instance (or 0: the module's current one) it releases that instance and detaches
// it.
using ClassProc = uint32_t (*)(uintptr_t argument);

inline constexpr uintptr_t kCollectRequest = 0x40000000;

// The first fields of every registered object. A first word of 0 means that the memory holds none.
struct InstanceHeader {
  uint32_t tag;          // up to four characters, the last in the least significant byte
  uint32_t classNumber;  // 1 to 15: the list that holds the instance
  uint32_t size;         // bytes of the whole instance, this header included
  uint32_t flags;        // INST_ bits; the others belong to the owning module
  ClassProc proc;        // may be null
  InstanceHeader* pPrev;
  InstanceHeader* pNext;
};

inline constexpr uint32_t INST_OWNED = 0x4000000;  // the registry allocated the memory and frees it
inline constexpr uint32_t INST_IMPLICIT = 0x2000000;  // made by its module on first use

constexpr uint32_t ClassTag(const char* text) {
  uint32_t tag = 0;
  for (; *text; ++text) tag = tag << 8 | static_cast<unsigned char>(*text);
  return tag;
}

// Class numbers. ClsGarbage visits them from the highest to the lowest.
inline constexpr uint32_t kErrClass = 1;
inline constexpr uint32_t kMemClass = 2;
inline constexpr uint32_t kCslClass = 7;
inline constexpr uint32_t kFileClass = 8;
inline constexpr uint32_t kFinderClass = 9;
inline constexpr uint32_t kScanClass = 10;
inline constexpr uint32_t kFmtClass = 15;

// --- messages ------------------------------------------------------------------------------------

// A row of a message table. The last row has the code 0; its text and flags serve every code that
// the table does not hold.
struct MessageRow {
  uint32_t code;
  const char* text;  // may hold conversion specifications of the printf family
  uint32_t flags;    // the low 16 bits of an entry's flags: what the next raise does
};

// --- texts ---------------------------------------------------------------------------------------

// The text that CslFormat and the time functions fill and return; every call overwrites it.
inline constexpr uint32_t kSharedText = 104;  // bytes
extern char SharedText[kSharedText];

// --- failures ------------------------------------------------------------------------------------

// The failure site, in its fixed order: notes where (module name and line, both part of the
// report), pushes the code, raises it. The caller then returns its failure value:
//
//   return ErrRaise(kModule, 75, ERR_LIBRARY | ERR_SYSTEM | 3), nullptr;
//
// Returns minus ErrLast, which is what functions with a signed status return.
int32_t ErrRaise(const char* module, int32_t line, uint32_t code);

// The same with a message between the push and the raise: `message` is a code of the built-in
// message table, formatted with the arguments that follow.
int32_t ErrRaiseText(const char* module, int32_t line, uint32_t code, uint32_t message, ...);

// The same with a text that stays valid until the stack is cleared.
int32_t ErrRaiseText(const char* module, int32_t line, uint32_t code, const char* text);

}  // namespace quern
