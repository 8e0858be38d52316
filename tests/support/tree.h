// A temporary folder for tests, the same on both systems.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavrix_test {

namespace fs = std::filesystem;

// An empty folder below the system's temporary one, which goes in the end with everything in it,
// also what a test made unreadable. Names are relative to it and have '/' between their components.
// Where the tree itself fails, the test does.
class Tree {
 public:
  Tree() {
    std::random_device random;
    do {  // names of one length
      const std::string name = "tavrix-" + std::to_string(1'000'000'000 + random() % 1'000'000'000);
      root_ = fs::temp_directory_path() / name;
    } while (!fs::create_directory(root_));
  }
  ~Tree() {
    std::error_code error;
    SetMode("", 0700);
    for (const auto& entry : fs::recursive_directory_iterator(root_, error))
      if (!entry.is_symlink(error)) SetMode(entry.path(), 0700);
    fs::remove_all(root_, error);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  const fs::path& root() const { return root_; }

  // The full path of `name` with the system's separator, as the library is given it; of the folder
  // itself, without a separator at its end, for "".
  std::string Path(std::string_view name = "") const {
    return Native(name.empty() ? root_ : root_ / name);
  }
  static std::string Native(fs::path path) { return path.make_preferred().string(); }

  // Makes a folder, or a file with these bytes, and the folders on the way.
  void Dir(std::string_view name) const { fs::create_directories(root_ / name); }
  void File(std::string_view name, std::string_view bytes = "") const {
    fs::create_directories((root_ / name).parent_path());
    if (!(std::ofstream(root_ / name, std::ios::binary) << bytes << std::flush))
      throw std::runtime_error("cannot write " + Path(name));
  }

  std::string Read(std::string_view name) const {
    std::ifstream file(root_ / name, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + Path(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool Exists(std::string_view name) const { return fs::exists(fs::symlink_status(root_ / name)); }
  void Remove(std::string_view name) const { fs::remove_all(root_ / name); }
  void Rename(std::string_view from, std::string_view to) const {
    fs::rename(root_ / from, root_ / to);
  }

  // Takes the write permission away, or gives it back.
  void SetReadOnly(std::string_view name, bool readOnly) const {
    readOnly ? SetMode(name, 0222, fs::perm_options::remove) : SetMode(name, 0200);
  }

 private:
  void SetMode(const fs::path& name, int bits, fs::perm_options how = fs::perm_options::add) const {
    std::error_code error;
    fs::permissions(root_ / name, static_cast<fs::perms>(bits), how, error);
  }

  fs::path root_;
};

}  // namespace tavrix_test
