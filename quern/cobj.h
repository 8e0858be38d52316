// The registry of objects: tags memory as an instance of a class, lists the instances of each
// class, and releases them, one by one or all at process exit.
//
// The first ClsAttach of the process initialises the registry, registers ClsExit with the runtime's
// list of functions that run at exit, and reads the system parameters (csys.h).
#pragma once

#include <cstdint>

#include "quern/quern.h"

namespace quern {

inline constexpr uint32_t kClassLists = 16;  // list 0 is never used

extern InstanceHeader* ClassLists[kClassLists];  // heads, in attach order, by class number

// 1 when the last ClsAttach linked an instance that was not linked before, else 0.
extern uint32_t ClsNew;

extern uint32_t ClsFlags;
inline constexpr uint32_t kClsReady = 0x10000000;      // initialised
inline constexpr uint32_t kClsCollecting = 0x1000000;  // ClsGarbage runs: detaching is not traced
inline constexpr uint32_t kClsArmed = 0x20000000;      // the exit hook found no pending errors

// Called by ClsExit before it collects. For the application; null by default.
extern void (*ClsExitHook)();

// The current file that the file entry points hold while they run. ClsDetach clears it when that
// instance goes, so that a deleted file never becomes current again.
extern InstanceHeader* ClsSavedFile;

// A tag that asks for the initialisation alone: ClsAttach returns `instance` unchanged.
inline constexpr uint32_t kClsInitialise = 0x8000000;

// Makes `instance` an instance of a class and links it. Null allocates `size` zeroed bytes, which
// the registry frees on detach (INST_OWNED). Memory with a first word of 0 is zeroed whole and
// stays the caller's. Memory that carries the tag already is returned as it is.
//
// Returns the instance, or null after raising 2 (no memory), 0xA0000003 (memory not writable), 4
// (another tag), 5 (tag 0) or 6 (class number 0). Compat: 5 and 6 come after the allocation, whose
// block then stays allocated. A class number above 15 gives null without a raise; so does a size
// below the header's behind those checks, and nothing is allocated or zeroed for it.
void* ClsAttach(uint32_t tag, void* instance, uint32_t classNumber, uint32_t size, ClassProc proc);

// Whether `instance` is a linked instance of a class. Nothing of it is read unless it is linked.
bool ClsLinked(uint32_t tag, uint32_t classNumber, const void* instance);

// Whether it is a linked instance of any class. Nothing of it is read.
bool ClsAlive(const void* instance);

// Unlinks the instance that the variable at `reference` (a pointer of any type) holds, frees it or
// zeroes the caller's memory, and sets the variable to null. Returns 0, or minus ErrLast after
// raising 1 (no reference) or 2 (no instance, or another tag).
int32_t ClsDetach(uint32_t tag, void* reference);

// Releases the instances of the class whose list begins with `tag`, newest first; 0 means every
// class, from the highest class number down. Returns 0.
uint32_t ClsGarbage(uint32_t tag);

// The tag as a text of up to four characters, in a buffer that every call overwrites.
const char* ClsTagName(uint32_t tag);

// Runs at process exit: reports pending errors, calls ClsExitHook, collects everything. Returns 0.
uint32_t ClsExit();

// Whether ClsExit runs.
bool ClsExiting();

}  // namespace quern
