// Expansion of %NAME% environment references, and the prompt that carries a colour.
#pragma once

namespace quern {

// Expands the references of `text` in the current console's expansion buffer. A value is searched
// for references in its turn; unknown names stay as they stand. A text without a pair of '%' is
// itself taken as a name, and becomes its value when there is such a variable. After an unknown
// name the search goes on behind it by as many characters as the name lies from the start of the
// text.
//
// Returns the expanded text (valid until the next expansion) when the variable found last had a
// value that is not empty, else null; the buffer holds the text in both cases (CslExpandTake). A
// null text frees the buffer; null and an empty text give null. Null after raising 1000 (no
// console) or 2 (no memory). A variable that names itself ends after 1,000 replacements or 1 MiB of
// text.
char* CslExpand(const char* text);

// Hands the expanded text over to the caller, who frees it. Null when there is none.
char* CslExpandTake();

// Makes the prompt of the command interpreter carry an escape text (such as CslAnsi's), whose first
// byte is the prompt's own "$e": puts the rest of it behind a "$e" that comes first among the
// prompt's references, in the place of all that follows, else appends "$e" and the rest. Returns
// the variable "prompt" as it is then, in the expansion buffer; unchanged without a "$" in it, null
// when there is none or no memory.
char* CslSetPrompt(const char* escape);

}  // namespace quern
