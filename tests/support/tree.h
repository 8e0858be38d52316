// A temporary folder for tests, the same on both homes.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tavrix_test {

// Makes an empty folder under the system's temporary folder and removes it with everything in it at
// the end, also what a test made unreadable. Names are relative to the folder and have '/' between
// their components; a failure of the tree itself ends the test program.
class Tree {
 public:
  Tree();
  ~Tree();
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  const std::filesystem::path& root() const { return root_; }

  // The full path of `name` with the home's separator, as the library is given it; of the folder
  // itself, without a separator at its end, for "".
  std::string Path(std::string_view name = "") const;

  // The same text of any other path.
  static std::string Native(const std::filesystem::path& path);

  // Makes a folder, or a file with these bytes, and the folders on the way.
  void Dir(std::string_view name) const;
  void File(std::string_view name, std::string_view bytes = "") const;

  std::string Read(std::string_view name) const;
  bool Exists(std::string_view name) const;
  void Remove(std::string_view name) const;
  void Rename(std::string_view from, std::string_view to) const;

  // Takes the write permission away, or gives it back.
  void SetReadOnly(std::string_view name, bool readOnly) const;

 private:
  std::filesystem::path root_;
};

}  // namespace tavrix_test
