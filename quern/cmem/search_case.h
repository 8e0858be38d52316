// Lower case as the C runtime's locale in force has it, as tables that a search can afford to read.
#pragma once

#include <cstdint>

namespace quern {

// What tolower says about the 256 bytes. Bytes with the same lower form are the same letter here; a
// letter usually has two forms, but nothing stops a locale from giving it more.
struct CaseTable {
  uint8_t lower[256];
  uint8_t twin[256];    // another form of the same letter; the byte itself when it stands alone
  uint8_t spread[256];  // the bits in which any two forms of the letter differ
  bool pairs;           // no letter has more than two forms, so that `twin` tells all
  bool ascii;           // 'A' to 'Z' have lower forms as in ASCII, and no other byte has one
};

// The table for one call; it tests whether the locale changed since the last one. Tables of the
// first few locales are kept for the life of the process, any further locale is tabulated anew by
// each call. A locale that a thread has for itself alone (uselocale) is not seen.
class CaseInForce {
 public:
  // Without `wanted` there is no table: bytes are compared as they are.
  explicit CaseInForce(bool wanted) : table_(wanted ? Find(&spare_) : nullptr) {}
  CaseInForce(const CaseInForce&) = delete;
  CaseInForce& operator=(const CaseInForce&) = delete;

  const CaseTable* table() const { return table_; }

 private:
  static const CaseTable* Find(CaseTable* spare);

  CaseTable spare_;
  const CaseTable* table_;
};

}  // namespace quern
