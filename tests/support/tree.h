// A temporary folder for tests, the same on both systems.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace tavrix_test {

// An empty folder below the system's temporary one, which goes in the end with everything in it,
// also what a test made unreadable. Names are relative to it and have '/' between their components.
// Where the tree itself fails, the test does.
class Tree {
 public:
  Tree() {
    std::random_device random;
    do {  // names of one length
      const std::string name = "tavrix-" + std::to_string(1'000'000'000 + random() % 1'000'000'000);
      root_ = std::filesystem::temp_directory_path() / name;
    } while (!std::filesystem::create_directory(root_));
  }
  ~Tree() {
    std::error_code error;
    SetMode("", std::filesystem::perms::owner_all, true);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_, error))
      if (!entry.is_symlink(error)) SetMode(entry.path(), std::filesystem::perms::owner_all, true);
    std::filesystem::remove_all(root_, error);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  const std::filesystem::path& root() const { return root_; }

  // The full path of `name` with the system's separator, as the library is given it; of the folder
  // itself, without a separator at its end, for "".
  std::string Path(std::string_view name = "") const {
    return Native(name.empty() ? root_ : root_ / name);
  }
  static std::string Native(std::filesystem::path path) { return path.make_preferred().string(); }

  // Makes a folder, or a file with these bytes, and the folders on the way.
  void Dir(std::string_view name) const { std::filesystem::create_directories(root_ / name); }
  void File(std::string_view name, std::string_view bytes = "") const {
    std::filesystem::create_directories((root_ / name).parent_path());
    if (!(std::ofstream(root_ / name, std::ios::binary) << bytes << std::flush))
      throw std::runtime_error("cannot write " + Path(name));
  }

  std::string Read(std::string_view name) const {
    std::ifstream file(root_ / name, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + Path(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool Exists(std::string_view name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(root_ / name));
  }
  void Remove(std::string_view name) const { std::filesystem::remove_all(root_ / name); }
  void Rename(std::string_view from, std::string_view to) const {
    std::filesystem::rename(root_ / from, root_ / to);
  }

  // Takes the write permission away, or gives it back.
  void SetReadOnly(std::string_view name, bool readOnly) const {
    SetMode(name, static_cast<std::filesystem::perms>(readOnly ? 0222 : 0200), !readOnly);
  }

 private:
  void SetMode(const std::filesystem::path& name, std::filesystem::perms bits, bool add) const {
    using Options = std::filesystem::perm_options;
    std::error_code error;
    std::filesystem::permissions(root_ / name, bits, add ? Options::add : Options::remove, error);
  }

  std::filesystem::path root_;
};

}  // namespace tavrix_test
