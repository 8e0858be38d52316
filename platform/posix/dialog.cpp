// The file-open dialog: the desktop's own, or a prompt on the terminal.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/posix/native.h"
#include "platform/posix/process.h"

namespace posix_layer {
namespace {

constexpr uint32_t kShortRecord = 76;
constexpr uint32_t kLongRecord = 88;

// A dialog that hands out names that are refused, again and again, is taken for broken.
constexpr int kMostAttempts = 20;

DWORD dialogError = 0;

enum class Outcome { kChosen, kCancelled, kUnavailable };

// Ends the dialog like a cancel, with the reason left behind.
Outcome OutOfMemory() {
  dialogError = CDERR_MEMALLOCFAILURE;
  return Outcome::kCancelled;
}

// A text that grows; `failed` once there was no memory, and then it stays as it was.
struct Text {
  char* data = nullptr;
  size_t length = 0;
  size_t capacity = 0;
  bool failed = false;

  ~Text() { free(data); }

  void Add(const char* bytes, size_t count) {
    if (failed) return;
    if (capacity - length <= count) {
      size_t grown = (length + count) * 2 + 64;
      char* block = static_cast<char*>(realloc(data, grown));
      if (!block) {
        failed = true;
        return;
      }
      data = block;
      capacity = grown;
    }
    memcpy(data + length, bytes, count);
    length += count;
    data[length] = 0;
  }

  void Add(const char* text) { Add(text, strlen(text)); }

  void Clear() { length = 0; }
};

// The arguments of a program: texts one behind the other, each with its terminator.
struct Arguments {
  static constexpr size_t kMost = 64;
  Text text;
  size_t count = 0;
  size_t starts[kMost];

  // Begins the next argument, of kMost at most; what is added to `text` from here on belongs to it.
  Text& Begin() {
    if (count > 0) text.Add("", 1);
    starts[count++] = text.length;
    return text;
  }

  bool List(char** words) {
    text.Add("", 1);
    if (text.failed) return false;
    for (size_t i = 0; i < count; ++i) words[i] = text.data + starts[i];
    words[count] = nullptr;
    return true;
  }
};

// Calls visit(label, patterns, count of the pair from 1) for each pair of the filter.
template <typename Visit>
void ForEachFilter(const char* filter, Visit visit) {
  uint32_t number = 0;
  while (filter && *filter) {
    const char* patterns = filter + strlen(filter) + 1;
    if (!*patterns) return;
    visit(filter, patterns, ++number);
    filter = patterns + strlen(patterns) + 1;
  }
}

// Patterns "*.txt;*.doc" as desktops write them: "*.txt *.doc", and what means everything as "*".
void AddPatterns(const char* patterns, Text* text) {
  bool first = true;
  while (*patterns) {
    size_t length = strcspn(patterns, ";");
    if (length > 0) {
      if (!first) text->Add(" ");
      bool everything = length == 3 && memcmp(patterns, "*.*", 3) == 0;
      text->Add(patterns, everything ? 1 : length);
      first = false;
    }
    patterns += length + (patterns[length] == ';');
  }
}

// Calls visit for the filter that is chosen at first, then for the others.
template <typename Visit>
void ForEachFilterInOrder(const OPENFILENAMEA& ofn, Visit visit) {
  uint32_t chosen = ofn.nFilterIndex ? ofn.nFilterIndex : 1;
  for (bool wanted = true;; wanted = false) {
    ForEachFilter(ofn.lpstrFilter, [&](const char* label, const char* patterns, uint32_t number) {
      if ((number == chosen) == wanted) visit(label, patterns);
    });
    if (!wanted) return;
  }
}

// Where the dialog begins: the initial folder and the initial name.
void AddStart(const OPENFILENAMEA& ofn, Text* text) {
  bool absolute = IsSeparator(ofn.lpstrFile[0]);
  if (!absolute && ofn.lpstrInitialDir && *ofn.lpstrInitialDir) {
    text->Add(ofn.lpstrInitialDir);
    if (!IsSeparator(ofn.lpstrInitialDir[strlen(ofn.lpstrInitialDir) - 1])) text->Add("/");
  } else if (!absolute) {
    text->Add("./");
  }
  text->Add(ofn.lpstrFile);
}

const char* TitleOf(const OPENFILENAMEA& ofn) {
  return ofn.lpstrTitle && *ofn.lpstrTitle ? ofn.lpstrTitle : "Open";
}

void ZenityArguments(const OPENFILENAMEA& ofn, Arguments* arguments) {
  arguments->Begin().Add("zenity");
  arguments->Begin().Add("--file-selection");
  Text& title = arguments->Begin();
  title.Add("--title=");
  title.Add(TitleOf(ofn));
  Text& start = arguments->Begin();
  start.Add("--filename=");
  AddStart(ofn, &start);
  ForEachFilterInOrder(ofn, [&](const char* label, const char* patterns) {
    if (arguments->count == Arguments::kMost) return;
    Text& filter = arguments->Begin();
    filter.Add("--file-filter=");
    filter.Add(label, strcspn(label, "|"));
    filter.Add(" | ");
    AddPatterns(patterns, &filter);
  });
}

void KdialogArguments(const OPENFILENAMEA& ofn, Arguments* arguments) {
  arguments->Begin().Add("kdialog");
  arguments->Begin().Add("--title");
  arguments->Begin().Add(TitleOf(ofn));
  arguments->Begin().Add("--getopenfilename");
  AddStart(ofn, &arguments->Begin());
  bool first = true;
  ForEachFilterInOrder(ofn, [&](const char* label, const char* patterns) {
    Text& filters = first ? arguments->Begin() : arguments->text;
    if (!first) filters.Add("\n");
    first = false;
    AddPatterns(patterns, &filters);
    filters.Add("|");
    filters.Add(label, strcspn(label, "|\n"));
  });
}

// Everything that the descriptor gives, without the line end behind it.
void ReadText(int descriptor, Text* text) {
  char bytes[512];
  for (;;) {
    ssize_t count = read(descriptor, bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    text->Add(bytes, static_cast<size_t>(count));
  }
  if (text->length > 0 && text->data[text->length - 1] == '\n') text->data[--text->length] = 0;
}

// Runs a dialog program and takes the name that it prints.
Outcome RunProgram(const char* name, Arguments* arguments, Text* chosen) {
  char path[PATH_MAX];
  char* words[Arguments::kMost + 1];
  int ends[2];
  chosen->Clear();
  if (FindProgram(name, path, sizeof path) != 0) return Outcome::kUnavailable;
  if (!arguments->List(words)) return OutOfMemory();
  if (pipe2(ends, O_CLOEXEC) != 0) return Outcome::kUnavailable;
  pid_t child = -1;
  int number = Spawn(path, words, ends[1], &child);
  close(ends[1]);
  if (number != 0) {
    close(ends[0]);
    return Outcome::kUnavailable;
  }
  ReadText(ends[0], chosen);
  close(ends[0]);
  DWORD code = 0;
  WaitForChild(child, true, &code);
  if (chosen->failed) return OutOfMemory();
  // Both programs end with 1 on a cancel; other codes mean that there was no dialog.
  if (code > 1) return Outcome::kUnavailable;
  return code == 0 && chosen->length > 0 ? Outcome::kChosen : Outcome::kCancelled;
}

bool HasDisplay() {
  constexpr const char* kDisplays[] = {"WAYLAND_DISPLAY", "DISPLAY"};
  for (const char* name : kDisplays) {
    const char* value = getenv(name);
    if (value && *value) return true;
  }
  return false;
}

Outcome AskDesktop(const OPENFILENAMEA& ofn, Text* chosen) {
  if (!HasDisplay()) return Outcome::kUnavailable;
  Arguments zenity;
  ZenityArguments(ofn, &zenity);
  Outcome outcome = RunProgram("zenity", &zenity, chosen);
  if (outcome != Outcome::kUnavailable) return outcome;
  Arguments kdialog;
  KdialogArguments(ofn, &kdialog);
  return RunProgram("kdialog", &kdialog, chosen);
}

bool Say(int terminal, const char* text) {
  size_t length = strlen(text);
  return write(terminal, text, length) == static_cast<ssize_t>(length);
}

// One line of the terminal.
Outcome ReadLine(int terminal, Text* line) {
  for (char byte;;) {
    ssize_t count = read(terminal, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return Outcome::kCancelled;
    if (byte == '\n') return line->failed ? OutOfMemory() : Outcome::kChosen;
    line->Add(&byte, 1);
  }
}

// An empty line takes the name that the caller began with, or cancels when there is none.
Outcome AskTerminal(const OPENFILENAMEA& ofn, Text* chosen) {
  int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) return Outcome::kUnavailable;
  Outcome outcome = Outcome::kUnavailable;
  // In the background reading would stop the whole program.
  if (tcgetpgrp(terminal) == getpgrp()) {
    bool preset = ofn.lpstrFile[0] != 0;
    bool said =
        Say(terminal, TitleOf(ofn)) &&
        (!preset || (Say(terminal, " [") && Say(terminal, ofn.lpstrFile) && Say(terminal, "]"))) &&
        Say(terminal, ": ");
    Text line;
    if (said) outcome = ReadLine(terminal, &line);
    if (outcome == Outcome::kChosen && line.length == 0 && !preset) outcome = Outcome::kCancelled;
    if (outcome == Outcome::kChosen) {
      const char* name = line.length ? line.data : ofn.lpstrFile;
      if (!IsSeparator(name[0]) && ofn.lpstrInitialDir && *ofn.lpstrInitialDir) {
        chosen->Add(ofn.lpstrInitialDir);
        chosen->Add("/");
      }
      chosen->Add(name);
      if (chosen->failed) outcome = OutOfMemory();
    }
  }
  close(terminal);
  return outcome;
}

const char* LastComponent(const char* path) {
  const char* last = path;
  for (; *path; ++path) {
    if (IsSeparator(*path)) last = path + 1;
  }
  return last;
}

// Whether the flags accept a name.
bool IsAccepted(const char* path, DWORD flags) {
  DWORD attributes = GetFileAttributesA(path);
  if (attributes != INVALID_FILE_ATTRIBUTES) return !(attributes & FILE_ATTRIBUTE_DIRECTORY);
  if (flags & OFN_FILEMUSTEXIST) return false;
  return !(flags & OFN_PATHMUSTEXIST) || GetLastError() == ERROR_FILE_NOT_FOUND;
}

// Puts a chosen name into its full form, with the default extension when it was given none and
// exists only with it, or not at all.
bool Complete(const OPENFILENAMEA& ofn, const Text& chosen, char* full, size_t size) {
  DWORD length = GetFullPathNameA(chosen.data, static_cast<DWORD>(size), full, nullptr);
  if (length == 0 || length >= size) return false;
  if (!ofn.lpstrDefExt || !*ofn.lpstrDefExt || strchr(LastComponent(full), '.')) return true;
  if (GetFileAttributesA(full) != INVALID_FILE_ATTRIBUTES) return true;
  size_t extension = strlen(ofn.lpstrDefExt);
  if (length + 1 + extension >= size) return false;
  full[length] = '.';
  memcpy(full + length + 1, ofn.lpstrDefExt, extension + 1);
  return true;
}

bool Deliver(OPENFILENAMEA* ofn, const char* full) {
  size_t length = strlen(full);
  if (length >= ofn->nMaxFile) {
    // The size that would do stands in the first two bytes.
    uint16_t needed = static_cast<uint16_t>(length + 1);
    if (ofn->nMaxFile >= sizeof needed) memcpy(ofn->lpstrFile, &needed, sizeof needed);
    dialogError = FNERR_BUFFERTOOSMALL;
    return false;
  }
  memcpy(ofn->lpstrFile, full, length + 1);
  const char* title = LastComponent(ofn->lpstrFile);
  const char* dot = strrchr(title, '.');
  ofn->nFileOffset = static_cast<uint16_t>(title - ofn->lpstrFile);
  ofn->nFileExtension = dot ? static_cast<uint16_t>(dot + 1 - ofn->lpstrFile) : 0;
  if (ofn->lpstrFileTitle && strlen(title) < ofn->nMaxFileTitle) {
    memcpy(ofn->lpstrFileTitle, title, strlen(title) + 1);
  }
  return true;
}

bool Ask(OPENFILENAMEA* ofn) {
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    Text chosen;
    Outcome outcome = AskDesktop(*ofn, &chosen);
    if (outcome == Outcome::kUnavailable) {
      chosen.Clear();
      outcome = AskTerminal(*ofn, &chosen);
    }
    if (outcome != Outcome::kChosen) return false;
    char full[MAX_PATH];
    if (Complete(*ofn, chosen, full, sizeof full) && IsAccepted(full, ofn->Flags)) {
      return Deliver(ofn, full);
    }
  }
  return false;
}

}  // namespace
}  // namespace posix_layer

BOOL GetOpenFileNameA(OPENFILENAMEA* ofn) {
  using namespace posix_layer;
  dialogError = 0;
  if (!ofn || !ofn->lpstrFile || ofn->nMaxFile == 0) {
    dialogError = CDERR_INITIALIZATION;
    return FALSE;
  }
  if (ofn->lStructSize != kShortRecord && ofn->lStructSize != kLongRecord) {
    dialogError = CDERR_STRUCTSIZE;
    return FALSE;
  }
  // The looks at files on the way are not the caller's.
  DWORD before = GetLastError();
  bool chosen = Ask(ofn);
  SetLastError(before);
  return chosen;
}

DWORD CommDlgExtendedError() { return posix_layer::dialogError; }
