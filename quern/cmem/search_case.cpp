#include "quern/cmem/search_case.h"

#include <atomic>
#include <cctype>
#include <clocale>
#include <cstring>

namespace quern {
namespace {

// A place for the table of one locale. Whoever takes an empty place fills it and marks it ready; it
// does not change again, so that readers need no lock.
struct Place {
  enum State { kEmpty, kTaken, kReady };
  std::atomic<int> state;
  char locale[64];
  CaseTable table;
};

constinit Place places[4] = {};

void Tabulate(CaseTable* table) {
  // By way of a pointer that the compiler cannot see through: it takes tolower for the ASCII one
  // and derives from a known argument which results are possible.
  int (*volatile const lower_case)(int) = std::tolower;
  uint8_t first[256], last[256], spread[256];  // of the letter with this lower form
  uint16_t forms[256] = {};
  table->pairs = table->ascii = true;
  for (int byte = 0; byte < 256; ++byte) {
    const uint8_t form = static_cast<uint8_t>(byte);
    const uint8_t lower = static_cast<uint8_t>(lower_case(byte));
    const uint8_t plain = byte >= 'A' && byte <= 'Z' ? form + ('a' - 'A') : form;
    table->lower[byte] = lower;
    table->ascii &= lower == plain;
    if (forms[lower]++ == 0) first[lower] = form, spread[lower] = 0;
    last[lower] = form;
    spread[lower] |= first[lower] ^ form;
    table->pairs &= forms[lower] <= 2;
  }
  for (int byte = 0; byte < 256; ++byte) {
    const uint8_t lower = table->lower[byte];
    table->twin[byte] = first[lower] == byte ? last[lower] : first[lower];
    table->spread[byte] = spread[lower];
  }
}

}  // namespace

const CaseTable* CaseInForce::Find(CaseTable* spare) {
  const char* locale = std::setlocale(LC_CTYPE, nullptr);
  for (Place& place : places) {
    int state = place.state.load(std::memory_order_acquire);
    if (state == Place::kReady && std::strcmp(place.locale, locale) == 0) return &place.table;
    if (state == Place::kEmpty && std::strlen(locale) < sizeof place.locale &&
        place.state.compare_exchange_strong(state, Place::kTaken)) {
      std::strcpy(place.locale, locale);
      Tabulate(&place.table);
      place.state.store(Place::kReady, std::memory_order_release);
      return &place.table;
    }
  }
  Tabulate(spare);
  return spare;
}

}  // namespace quern
