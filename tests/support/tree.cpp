#include "tests/support/tree.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>

namespace tavrix_test {
namespace {

namespace fs = std::filesystem;

void Require(bool done, const char* what, const fs::path& path) {
  if (done) return;
  fprintf(stderr, "temporary tree: cannot %s %s\n", what, path.string().c_str());
  abort();
}

// Gives every folder below `root` back to its owner, so that it can be emptied.
void Unlock(const fs::path& root) {
  std::error_code error;
  fs::permissions(root, fs::perms::owner_all, fs::perm_options::add, error);
  for (const fs::directory_entry& entry : fs::directory_iterator(root, error)) {
    if (entry.is_symlink(error)) continue;
    if (entry.is_directory(error)) {
      Unlock(entry.path());
    } else {
      // A file without the write permission cannot be removed on Windows.
      fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add, error);
    }
  }
}

}  // namespace

Tree::Tree() {
  std::error_code error;
  fs::path home = fs::temp_directory_path();
  std::random_device random;
  do {
    char name[32];
    snprintf(name, sizeof name, "tavrix-%08x", static_cast<unsigned>(random()));
    root_ = home / name;
  } while (!fs::create_directory(root_, error) && !error);
  Require(!error, "make", root_);
}

Tree::~Tree() {
  std::error_code error;
  Unlock(root_);
  fs::remove_all(root_, error);
  if (error) fprintf(stderr, "temporary tree: %s is left behind\n", root_.string().c_str());
}

std::string Tree::Native(const fs::path& path) { return fs::path(path).make_preferred().string(); }

std::string Tree::Path(std::string_view name) const {
  return Native(name.empty() ? root_ : root_ / fs::path(name));
}

void Tree::Dir(std::string_view name) const {
  std::error_code error;
  fs::create_directories(root_ / fs::path(name), error);
  Require(!error, "make", root_ / fs::path(name));
}

void Tree::File(std::string_view name, std::string_view bytes) const {
  fs::path path = root_ / fs::path(name);
  std::error_code error;
  fs::create_directories(path.parent_path(), error);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  Require(!error && file.good(), "write", path);
}

std::string Tree::Read(std::string_view name) const {
  fs::path path = root_ / fs::path(name);
  std::ifstream file(path, std::ios::binary);
  Require(file.good(), "read", path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Tree::Exists(std::string_view name) const {
  std::error_code error;
  return fs::exists(fs::symlink_status(root_ / fs::path(name), error));
}

void Tree::Remove(std::string_view name) const {
  std::error_code error;
  fs::remove_all(root_ / fs::path(name), error);
  Require(!error, "remove", root_ / fs::path(name));
}

void Tree::Rename(std::string_view from, std::string_view to) const {
  std::error_code error;
  fs::rename(root_ / fs::path(from), root_ / fs::path(to), error);
  Require(!error, "rename", root_ / fs::path(from));
}

void Tree::SetReadOnly(std::string_view name, bool readOnly) const {
  constexpr fs::perms kWrite =
      fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  std::error_code error;
  fs::permissions(root_ / fs::path(name), readOnly ? kWrite : fs::perms::owner_write,
                  readOnly ? fs::perm_options::remove : fs::perm_options::add, error);
  Require(!error, "change", root_ / fs::path(name));
}

}  // namespace tavrix_test
