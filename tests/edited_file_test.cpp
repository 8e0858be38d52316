// Random sequences of calls on a file, against a model: edits of every kind, at every limit, with
// system calls and allocations that fail, and further edits after each failure.
//
// A sequence that fails is printed with its seed; EDITED_FILE_SEED=<seed> runs that one alone.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <string>

#include "platform/win32.h"
#include "quern/cerr.h"
#include "quern/cfile.h"
#include "quern/cfile/map.h"
#include "quern/cobj.h"
#include "tests/support/alloc.h"
#include "tests/support/call.h"
#include "tests/support/child.h"
#include "tests/support/file_model.h"
#include "tests/support/limit.h"
#include "tests/support/trail.h"
#include "tests/support/tree.h"

#ifndef _WIN32
#include <sys/mman.h>
#endif

namespace quern {
namespace {

using tavrix_test::ClearedTrail;
using tavrix_test::FileModel;
using tavrix_test::Tree;

// What a child has done so far, which its parent reads when it is gone.
struct Progress {
  uint32_t seed;
  int64_t fault;  // number of the call or allocation that fails; 0: none
  bool calls;     // a call of the system
  bool everHit;   // it has failed
  uint32_t steps, refused, faults;
  char log[1 << 16];
  size_t logged;
};
Progress* progress;

__attribute__((format(printf, 1, 2))) void Log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  size_t left = sizeof progress->log - progress->logged;
  int size = vsnprintf(progress->log + progress->logged, left, format, arguments);
  va_end(arguments);
  progress->logged += std::min(left - 1, static_cast<size_t>(size));
}

struct FaultPlan {
  uint32_t step = ~0u;  // the call that has it
  bool calls = false;   // of the system; else allocations
  int64_t number = 0;
};

// One call: of the library, and of the model.
struct Step {
  std::function<int64_t()> real;
  std::function<int64_t(FileModel&)> model;
  bool ends = false;  // the object is gone
};

class Trial {
 public:
  Trial(const Tree& tree, uint32_t seed) : tree_(tree), random_(seed) {}

  bool Run(const FaultPlan& plan);

  uint32_t Any(uint32_t below) { return below ? static_cast<uint32_t>(random_() % below) : 0; }
  template <typename Value>
  Value One(std::initializer_list<Value> values) {
    return values.begin()[Any(static_cast<uint32_t>(values.size()))];
  }
  FileModel& model() { return model_; }

  std::string Text(uint32_t most);
  uint32_t Position();
  uint32_t Length(int64_t pos);
  FileModel::Source Source();
  Step Open();
  Step Replace();
  Step Print();
  Step Resize();
  Step SetMost();
  Step Map();
  Step Reopen();
  Step Close();
  Step Revert();

 private:
  bool Make(Step step, const FaultPlan* fault);
  bool Agrees(const FileModel& model, int64_t wanted, int64_t result, const std::string& trail,
              std::string* why);
  bool SameBytes();
  void SyncDisk();
  std::string Flushed();

  const Tree& tree_;
  std::mt19937 random_;
  FileModel model_;
  const char* view_ = nullptr;
  bool streamed_ = false;
};

const struct {
  const char* name;
  uint32_t weight;
  Step (Trial::*make)();
} kOps[] = {{"replace", 30, &Trial::Replace}, {"print", 30, &Trial::Print},
            {"resize", 12, &Trial::Resize},   {"most", 10, &Trial::SetMost},
            {"map", 4, &Trial::Map},          {"reopen", 4, &Trial::Reopen}};

// Texts that have separators in them, and no percent sign.
std::string Trial::Text(uint32_t most) {
  static const char* const kPieces[] = {"[", "\r\n", "\r\n\r\n", "a", "bcd", "\n", "efghijk"};
  uint32_t size = Any(most + 1);
  std::string text;
  while (text.size() < size && text.size() < 200) text += kPieces[Any(7)];
  while (text.size() < size) text += text.substr(0, size - text.size());
  text.resize(size);
  return text;
}

uint32_t Trial::Position() {
  if (Any(12) == 0) return model_.size + Any(3);
  return Any(4) ? Any(model_.size + 1) : std::min(model_.size, Any(12));
}

uint32_t Trial::Length(int64_t pos) {
  if (Any(20) == 0) return One({100u, 70'000u, model_.size + 1, 0x7FFFFFFFu});
  auto left = static_cast<uint32_t>(std::max<int64_t>(model_.size - pos, 0));
  return Any(8) ? std::min(left, Any(9)) : Any(left + 2);
}

FileModel::Source Trial::Source() {
  FileModel::Source source;
  uint32_t kind = Any(12);
  if (kind == 0) {
    source.kind = FileModel::kNoBytes;
    source.count = Any(9);
  } else if (kind <= 2 && model_.view != FileModel::kNone) {
    source.kind = FileModel::kOfTheView;
    source.from = One<int64_t>({0, model_.size, Any(model_.size + 1), model_.size + 1});
    uint32_t shown = std::min<uint32_t>(model_.mapped, static_cast<uint32_t>(model_.disk.size()));
    source.count =
        source.from < shown ? std::min(Any(40), shown - static_cast<uint32_t>(source.from)) : 0;
  } else {
    source.own = Text(Any(10) ? 12 : model_.stream ? 300 : 80'000);
    source.count = static_cast<uint32_t>(source.own.size());
  }
  return source;
}

Step Trial::Replace() {
  int64_t pos = Position();
  if (!model_.stream && model_.based && Any(30) == 0) pos = -1;
  uint32_t length = model_.stream ? Any(8) : Length(pos);
  FileModel::Source source = Source();
  Log("%lld, %u, %s %lld+%u", static_cast<long long>(pos), length,
      source.kind == FileModel::kOwn       ? "own"
      : source.kind == FileModel::kNoBytes ? "null"
                                           : "view",
      static_cast<long long>(source.from), source.count);
  return {[=] {
            char* view = CurrentFile->pView;
            const void* bytes = source.kind == FileModel::kOwn         ? source.own.data()
                                : source.kind == FileModel::kOfTheView ? view + source.from
                                                                       : nullptr;
            return FileReplace(view + pos, length, bytes, source.count);
          },
          [=](FileModel& model) { return model.Replace(pos, length, source); }};
}

int32_t Listed(uint32_t how, char* pos, uint32_t length, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int32_t change = how == 0   ? FileAppendf(kFileArgList, format, arguments)
                   : how == 1 ? FilePrintf(pos, kFileArgList, format, arguments)
                              : FileVPrintf(pos, length, kFileArgList, format, arguments);
  va_end(arguments);
  return change;
}

// Formats and arguments of the caller's, or in the file's own data.
Step Trial::Print() {
  FileModel::Source source;
  uint32_t how = Any(3), listed = Any(3), form = Any(4);
  uint32_t pos = how == 0 ? model_.size : Position();
  uint32_t length = how < 2 ? 0 : model_.stream ? Any(8) : Length(pos);
  uint32_t shown = std::min<uint32_t>(model_.mapped, static_cast<uint32_t>(model_.disk.size()));
  uint32_t from = Any(std::min(model_.size, shown) + 1);
  bool mine = model_.view == FileModel::kNone ||
              model_.disk.substr(0, shown).find('\0', from) == std::string::npos;
  std::string own = Text(Any(4) ? 12 : model_.stream ? 300 : 2000);
  if (!model_.stream && Any(6) == 0) own.resize(One({1021, 1022, 1023, 1024, 65'534, 65'536}), 'l');
  std::string text = mine ? own : std::string(model_.disk.c_str() + from);
  int number = static_cast<int>(Any(200'000)), precision = static_cast<int>(Any(10));
  source.own = form == 0   ? std::to_string(number) + text
               : form == 1 ? text
               : form == 2 ? text.substr(0, precision) + "," + text
                           : own + "-" + text;
  source.count = static_cast<uint32_t>(source.own.size());
  Log("%s%s %u, %u, form %u %s %u+%u",
      how == 0   ? "append"
      : how == 1 ? "insert"
                 : "put",
      listed == 0 ? " list" : "", pos, length, form, mine ? "own" : "view", from, source.count);
  return {[=] {
            char *view = CurrentFile->pView, *to = view + pos;
            const char* what = mine ? own.c_str() : view + from;
            auto call = [&]<typename... Arguments>(const char* format, Arguments... arguments) {
              if (listed == 0) return Listed(how, to, length, format, arguments...);
              return how == 0   ? FileAppendf(format, arguments...)
                     : how == 1 ? FilePrintf(to, format, arguments...)
                                : FileVPrintf(to, length, format, arguments...);
            };
            return form == 0   ? call("%d%s", number, what)
                   : form == 1 ? call(what)
                   : form == 2 ? call("%.*s,%s", precision, what, what)
                               : call("%s-%s", own.c_str(), what);
          },
          [=](FileModel& model) {
            // Longer texts than the buffer take memory.
            if (source.count > 1023 && model.NoMemory()) return 0;
            return model.Replace(pos, length, source);
          }};
}

Step Trial::Resize() {
  uint32_t change = One<uint32_t>({Any(40), 0u - Any(40), 0u - Any(model_.size + 2), 0,
                                   model_.most - model_.size + Any(2), 70'000, 66'000});
  if (model_.size + change > 500'000 && model_.size + change <= model_.most)
    change = 0 - model_.size / 2;
  Log("%d", static_cast<int32_t>(change));
  return {[=] { return FileResize(static_cast<int32_t>(change)); },
          [=](FileModel& model) { return model.Resize(change); }};
}

// No more than the addresses that it has: others may lie behind.
Step Trial::SetMost() {
  uint32_t end = static_cast<uint32_t>(std::min<uint64_t>(model_.rangeEnd, 400'000));
  if (!model_.based || model_.stream) end = 400'000;
  uint32_t most = std::min(end, One({model_.size, model_.size + Any(40), model_.size + 10'000,
                                     model_.size - Any(model_.size + 1), 150'000u, 200'000u}));
  if (model_.stream) most = std::max(most, model_.size);
  Log("%u", most);
  return {[=] { return CurrentFile->nMaxSize = most, 0; },
          [=](FileModel& model) { return model.most = most, 0; }};
}

Step Trial::Map() {
  uint32_t size = One({0u, 1u, model_.size, model_.size + Any(70'000)});
  bool reader = !model_.Has(FO_WRITE | FO_KEEP_NAME);
  if (model_.stream || (reader && model_.based)) size = 0;
  Log("%u", size);
  return {[=] { return FileMap(size); }, [=](FileModel& model) { return model.Map(size); }};
}

Step Trial::Reopen() {
  uint32_t flags = FO_MAPPED | One({9u, 10u, 2u, 18u, 16u, 4u}) | One({0u, FO_STAT, FO_ZERO_END}) |
                   (model_.flags & FO_SEP_MASK);
  if (model_.stream) flags = FO_MAPPED | 4;  // the stream of such a file stays, and nothing fits
  Log("0x%X", flags);
  return {[=] { return FileOpen(CurrentFile, nullptr, flags) ? 1 : 0; },
          [=](FileModel& model) { return model.Open(flags, true) ? 1 : 0; }};
}

Step Trial::Open() {
  const uint32_t access = One({2u, 2u, 2u, 10u, 1u, 9u, 9u, 16u, 18u, 32u, 64u, 4u});
  uint32_t flags = access | Any(16) << 16 | Any(4) << 20;
  if (Any(4) == 0) {
    // A stream for reading and writing that is opened again goes on at its end: not modelled.
    flags = One({64u, 64u, 64u, 32u, 18u, 1u, 2u}) | Any(4) << 20 | (Any(8) ? FO_STREAMED : 0);
  } else {
    flags |= FO_MAPPED | One({0u, 0u, FO_NAME, FO_KEEP_NAME & access, FO_STAT}) |
             (Any(3) ? 0 : FO_ZERO_END) | (Any(12) ? 0 : FO_STREAMED);
    if ((flags & FO_GROW_MASK) == FO_GROW_5M || (flags & FO_GROW_MASK) == FO_GROW_10M)
      flags ^= FO_GROW_MASK & 0x60000;
    if (access >= 16 && Any(2)) flags |= FO_KEEP_NAME * (access == 2);
#ifndef _WIN32
    if (Any(8) == 0) flags |= FO_BACKUP;
#endif
  }
  streamed_ = !(flags & FO_MAPPED);
  model_.missing = Any(8) == 0;
  model_.disk = model_.missing ? "" : Any(6) == 0 ? Text(70'000) : Text(Any(5) ? 60 : 0);
  std::filesystem::remove(tree_.root() / "f");
  if (!model_.missing) tree_.File("f", model_.disk);
  Log("0x%X, %u bytes%s", flags, static_cast<uint32_t>(model_.disk.size()),
      model_.missing ? " missing" : "");
  std::string name = tree_.Path("f");
  return {[=] { return FileOpen(nullptr, name.c_str(), flags) ? 1 : 0; },
          [=](FileModel& model) { return model.Open(flags, false) ? 1 : 0; }};
}

Step Trial::Close() {
  return {[] { return FileClass(0); }, [](FileModel& model) { return model.Close(), 0; }, true};
}

Step Trial::Revert() {
  return {[] { return FileRevert(); }, [](FileModel& model) { return model.Revert(); }, true};
}

FileModel::View Shown(const FileObject* file) {
  if (!file->pView || IsBadReadPtr(file->pView, 1)) return FileModel::kNone;
  return IsBadWritePtr(file->pView, 1) ? FileModel::kReading : FileModel::kWriting;
}

bool Trial::Agrees(const FileModel& model, int64_t wanted, int64_t result, const std::string& trail,
                   std::string* why) {
  const FileObject* file = CurrentFile;
  char text[512];
  auto line = [&](const char* who, int64_t value, const std::string& codes, auto... fields) {
    snprintf(text, sizeof text,
             "  %s: %lld \"%s\" size %u most %u delta %d open %u mapped %u grow %u flags 0x%X "
             "based %d view %d\n",
             who, static_cast<long long>(value), codes.c_str(), fields...);
    *why += text;
  };
  line("model", wanted, model.Trail(), model.size, model.most, static_cast<int>(model.delta),
       model.openSize, model.mapped, model.grow, model.flags, model.based, model.view);
  bool same = wanted == result && model.Trail() == trail;
  if (!file) return same;
  FileModel::View view = Shown(file);
  return same && model.size == file->nSize && model.most == file->nMaxSize &&
         model.delta == file->nDelta && model.openSize == file->nOpenSize &&
         model.grow == file->nGrow && model.flags == file->fFlags &&
         (model.mapped == file->nMapped || (model.mappedOpen && file->nMapped == 0)) &&
         (model.based == (file->pView != nullptr) || model.basedOpen) &&
         (model.view == view || model.viewOpen);
}

// The view shows what the disk has.
bool Trial::SameBytes() {
  const FileObject* file = CurrentFile;
  if (!file || model_.view == FileModel::kNone) return true;
  size_t shown = std::min<size_t>(model_.mapped, model_.disk.size());
  const char* disk = model_.disk.data();
  if (memcmp(file->pView, disk, shown) == 0) return true;
  size_t at = 0;
  while (file->pView[at] == disk[at]) ++at;
  Log("\n  other bytes from %u on\n", static_cast<uint32_t>(at));
  return false;
}

// What a stream has written.
std::string Trial::Flushed() {
  if (CurrentFile && CurrentFile->pStream) fflush(CurrentFile->pStream);
  return tree_.Read("f");
}

// What a call that failed on the way has made of the file's size; what it adds is zeros.
void Trial::SyncDisk() {
  if (tree_.Exists("f")) model_.disk.resize(std::filesystem::file_size(tree_.root() / "f"));
}

bool Trial::Make(Step step, const FaultPlan* fault) {
  int64_t result;
  bool hit = false;
  {
#ifndef _WIN32
    std::optional<tavrix_test::Limit> limit;
    if (model_.diskLimit != ~uint64_t{0}) limit.emplace(RLIMIT_FSIZE, model_.diskLimit);
    std::optional<tavrix_test::CallFault> calls;
    if (fault && fault->calls) calls.emplace(fault->number);
#endif
    std::optional<tavrix_test::AllocationFault> allocations;
    if (fault && !fault->calls) allocations.emplace(fault->number);
    result = step.real();
    if (allocations) hit = allocations->Hit();
#ifndef _WIN32
    if (calls) hit = calls->Hit();
#endif
  }
  progress->everHit = progress->everHit || hit;
  std::string trail = ClearedTrail();
  if (step.ends && CurrentFile) return Log("\n  still there\n"), false;
  std::string outcomes;
  model_.mayFail = model_.mayFail || hit;
  FileModel before = model_;
  std::string disk = before.stream ? Flushed() : "";
  int most = 0;
  for (int choice = 0, way = 0; way <= most; ++choice) {
    FileModel model = before;
    model.Begin(choice, way);
    int64_t wanted = step.model(model);
    most = std::max(most, model.ways);
    if (choice > model.seen) {
      choice = -1, ++way;
      continue;
    }
    if (model.stream && before.stream && disk != model.disk) continue;
    if (!Agrees(model, wanted, result, trail, &outcomes)) continue;
    model_ = model;
    if (CurrentFile) {
      if (model_.based && CurrentFile->pView != view_ && view_ && before.based &&
          before.place == model_.place)
        return Log("\n  other address\n"), false;
      model_.mapped = CurrentFile->nMapped;
      model_.based = CurrentFile->pView;
      model_.view = Shown(CurrentFile);
      if (model_.handleOpen && !model_.stream) model_.open = CurrentFile->hFile;
      if (hit) SyncDisk();
      view_ = CurrentFile->pView;
    }
    ++progress->steps;
    progress->refused += !trail.empty();
    Log(" = %lld %s\n", static_cast<long long>(result), trail.c_str());
    return SameBytes();
  }
  Log("\n  real: %lld \"%s\"", static_cast<long long>(result), trail.c_str());
  if (const FileObject* file = CurrentFile)
    Log(" size %u most %u delta %d open %u mapped %u grow %u flags 0x%X based %d view %d",
        file->nSize, file->nMaxSize, static_cast<int>(file->nDelta), file->nOpenSize, file->nMapped,
        file->nGrow, file->fFlags, file->pView != nullptr, Shown(file));
  Log("%s\n%s", hit ? " after a fault" : "", outcomes.c_str());
  return false;
}

bool Trial::Run(const FaultPlan& plan) {
#ifndef _WIN32
  uint64_t end = Any(6) ? ~uint64_t{0} : One({66'000u, 140'000u});
#else
  uint64_t end = ~uint64_t{0};
#endif
  uint32_t total = 0, steps = 2 + Any(24);
  for (const auto& op : kOps) total += op.weight;
  for (uint32_t number = 0; number <= steps; ++number) {
    const FaultPlan* fault = plan.step == number ? &plan : nullptr;
    Step step;
    bool revert = false;
    if (number == 0) {
      Log("open ");
      step = Open();
      if (!streamed_) model_.diskLimit = std::max<uint64_t>(end, model_.disk.size());
    } else if (number == steps) {
      revert = !model_.stream && model_.open && Any(4) == 0;
      Log(revert ? "revert" : "close");
      step = revert ? Revert() : Close();
    } else {
      uint32_t which = Any(total), i = 0;
      while (which >= kOps[i].weight) which -= kOps[i++].weight;
      Log("%s ", kOps[i].name);
      step = (this->*kOps[i].make)();
    }
    if (fault)
      Log(" (%s %lld fails)", fault->calls ? "call" : "allocation",
          static_cast<long long>(fault->number));
    if (!Make(step, fault)) return false;
    if (!CurrentFile) break;
  }
  if (CurrentFile) return Log("left open\n"), false;
  if (tree_.Exists("f") == model_.missing) return Log("missing: %d\n", !model_.missing), false;
  if (model_.missing) return true;
  std::string disk = tree_.Read("f");
  if (disk == model_.disk) return true;
  auto other = std::mismatch(disk.begin(), disk.end(), model_.disk.begin(), model_.disk.end());
  Log("on the disk %u bytes, model %u, other from %u on\n", static_cast<uint32_t>(disk.size()),
      static_cast<uint32_t>(model_.disk.size()), static_cast<uint32_t>(other.first - disk.begin()));
  return false;
}

// Runs one sequence. What it leaves behind the first time may be the library's own store, which is
// kept; the second time nothing is left.
bool Runs(const Tree& tree, uint32_t seed, const FaultPlan& plan) {
  progress->everHit = false;
  int64_t lost = 0;
  for (int again = 0; again < 3; ++again) {
    progress->logged = 0;
    Log("seed %u\n", seed);
    int64_t blocks = tavrix_test::LiveBlocks();
#ifndef _WIN32
    int64_t descriptors = tavrix_test::OpenDescriptors();
#endif
    {
      Trial trial(tree, seed);
      if (!trial.Run(plan)) return false;
    }
    lost = tavrix_test::LiveBlocks() - blocks;
#ifndef _WIN32
    lost += tavrix_test::OpenDescriptors() - descriptors;
#endif
    if (lost == 0) return true;
  }
  Log("%lld blocks or descriptors are lost\n", static_cast<long long>(lost));
  return false;
}

void ShareProgress() {
#ifdef _WIN32
  static Progress own;
  progress = &own;
#else
  void* shared =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  progress = static_cast<Progress*>(shared);
#endif
}

// Runs sequences from `first` to `last`, in children where there are any; EDITED_FILE_SEED chooses
// one of them. Without one the body fails alike.
void RunAll(uint32_t first, uint32_t last, const std::function<bool(const Tree&, uint32_t)>& each) {
  ShareProgress();
  Tree tree;
  if (const char* only = getenv("EDITED_FILE_SEED"))
    first = last = static_cast<uint32_t>(atoi(only));
  progress->seed = first;
  auto all = [&] {
#ifndef _WIN32
    setenv("TMPDIR", tree.Path("t").c_str(), 1);  // where a backup can be made
#endif
    ErrRaise("test", 1, 1);
    ErrClear();
    for (; progress->seed <= last; ++progress->seed) {
      if (!each(tree, progress->seed)) return 1;
    }
    return 0;
  };
#ifdef _WIN32
  EXPECT_EQ(all(), 0) << progress->log;
#else
  tree.Dir("t/" + tree.Path("t").substr(1));
  for (int failures = 0; failures < 5;) {
    int code = tavrix_test::InChild(all);
    if (code == 0) break;
    // A reserve that cannot be set up ends the process.
    bool fatal = progress->fault != 0 && (code == 15 || code == 16);
    if (!fatal) {
      ++failures;
      ADD_FAILURE() << "ended with " << code << "\n" << progress->log;
      ++progress->seed, progress->fault = 0, progress->calls = false;
    }
  }
#endif
}

TEST(EditedFile, RandomCallsAgreeWithAModel) {
  RunAll(1, 1000, [](const Tree& tree, uint32_t seed) { return Runs(tree, seed, {}); });
  EXPECT_GT(progress->refused, 3000u);
  EXPECT_GT(progress->steps, 8000u);
}

#ifndef _WIN32

// Each system call and each allocation of one call fails in turn; the calls behind it go on.
TEST(EditedFile, RandomCallsAgreeAfterEachFault) {
  RunAll(10'001, 10'120, [](const Tree& tree, uint32_t seed) {
    for (;; progress->calls = true, progress->fault = 0) {
      do {
        ++progress->fault;
        FaultPlan plan = {seed % 5, progress->calls, progress->fault};
        if (!Runs(tree, seed, plan)) return false;
        ++progress->faults;
      } while (progress->everHit);
      if (progress->calls) break;
    }
    progress->calls = false, progress->fault = 0;
    return true;
  });
  EXPECT_GT(progress->faults, 400u);
}

#endif

}  // namespace
}  // namespace quern
