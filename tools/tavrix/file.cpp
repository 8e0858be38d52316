#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "quern/cerr.h"
#include "quern/cfile.h"
#include "tools/tavrix/commands.h"

namespace {

// Prints the report of a failure, if there was one, on standard error; the exit code.
int Ended() {
  char report[8192] = "";
  quern::ErrReport(report, quern::ERR_REPORT_COMPOSE | quern::ERR_REPORT_FULL);
  if (!*report) return 0;
  fprintf(stderr, "tavrix: %s\n", report);
  return 1;
}

// Closes the current file. The exit code.
int Closed() {
  int code = Ended();
  quern::FileClass(0);
  return Ended() | code;
}

struct EditOptions {
  std::string file, at = "0", remove = "0", insert;
};

int Edit(const EditOptions& options) {
  using namespace quern;
  uint32_t at = Number("--at", options.at, UINT32_MAX);
  uint32_t remove = Number("--delete", options.remove, UINT32_MAX);
  if (FileOpen(nullptr, options.file.c_str(), FO_MAPPED | FO_WRITE))
    FileReplace(CurrentFile->pView + at, remove, options.insert.data(),
                static_cast<uint32_t>(options.insert.size()));
  return Closed();
}

// Whether a format has no conversion but %s, and at most one of these.
bool TakesOneText(const std::string& format) {
  int texts = 0;
  for (size_t at = 0; (at = format.find('%', at)) != format.npos; at += 2) {
    if (format[at + 1] == 's') {
      ++texts;
    } else if (format[at + 1] != '%') {
      return false;
    }
  }
  return texts <= 1;
}

int Append(const std::string& file, const std::string& format, const std::string& argument) {
  using namespace quern;
  if (!TakesOneText(format))
    throw CLI::ValidationError("FORMAT", "may have one %s, and %% for a %");
  if (FileOpen(nullptr, file.c_str(), FO_MAPPED | FO_CREATE_NEW | FO_WRITE))
    FileAppendf(format.c_str(), argument.c_str());
  return Closed();
}

int Companion(const std::string& name, const std::string& extension) {
  using namespace quern;
  const FileObject* file = FileOpenBeside(name.empty() ? nullptr : name.c_str(), extension.c_str(),
                                          FO_MAPPED | FO_READ | FO_NAME);
  if (file) puts(file->pName->szFull);
  return Closed();
}

int indent;

uint32_t PrintEntry(uint32_t code, const WIN32_FIND_DATAA* entry) {
  if (code == quern::WALK_END) --indent;
  printf("%*s%u%s%s\n", 2 * indent, "", code, entry ? " " : "", entry ? entry->cFileName : "");
  if (code == quern::WALK_BEGIN) ++indent;
  return 0;
}

int Walk(const std::string& directory, const std::string& pattern) {
  char path[4 * MAX_PATH];
  if (directory.size() >= MAX_PATH) throw CLI::ValidationError("DIR", "is too long");
  strcpy(path, directory.c_str());
  quern::FileWalk(path, pattern.c_str(), PrintEntry);
  return Ended();
}

}  // namespace

void AddFileCommands(CLI::App& app, int& result) {
  auto edit = std::make_shared<EditOptions>();
  CLI::App* command = app.add_subcommand("edit", "Delete and insert bytes in a file.");
  command->add_option("FILE", edit->file, "The file")->required();
  command->add_option("--at", edit->at, "Offset of the first byte; 0 if left out");
  command->add_option("--delete", edit->remove, "Bytes to delete there; 0 if left out");
  command->add_option("--insert", edit->insert, "Text to insert there");
  command->callback([=, &result] { result = Edit(*edit); });

  auto texts = std::make_shared<std::string[]>(3);
  command = app.add_subcommand("append", "Append a formatted text to a file.");
  command->add_option("FILE", texts[0], "The file, made when it is missing")->required();
  command->add_option("FORMAT", texts[1], "The text; %s stands for ARG")->required();
  command->add_option("ARG", texts[2], "What %s stands for");
  command->callback([=, &result] { result = Append(texts[0], texts[1], texts[2]); });

  auto names = std::make_shared<std::vector<std::string>>();
  command = app.add_subcommand("companion", "Print where a companion file is opened.");
  command
      ->add_option("NAME", *names,
                   "The file it belongs to (this program if left out) and its extension with the "
                   "dot (.ini if left out)")
      ->expected(0, 2);
  command->callback([=, &result] {
    std::string extension = ".ini";
    if (!names->empty() && names->back().starts_with('.')) {
      extension = names->back();
      names->pop_back();
    }
    result = Companion(names->empty() ? "" : names->front(), extension);
  });

  auto places = std::make_shared<std::string[]>(2);
  command = app.add_subcommand("walk", "Walk a directory and print the callback's codes.");
  command->add_option("DIR", places[0], "The directory")->required();
  command->add_option("PATTERN", places[1], "Pattern with * and ?")->required();
  command->callback([=, &result] { result = Walk(places[0], places[1]); });
}
