// Random sequences of calls on a file, against a model: edits of every kind, at every limit, with
// system calls and allocations that fail, and further edits after each failure.

#include "tests/support/file_model.h"
#include "tests/support/test.h"

namespace quern {
namespace {

using tavrix_test::Choices;
using tavrix_test::ClearedTrail;
using tavrix_test::FileModel;
using tavrix_test::Tree;

struct FaultPlan {
  int64_t step = -1;   // the call that has it
  bool calls = false;  // of the system; else allocations
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
  Trial(Choices& choices, const Tree& tree, const FaultPlan& plan)
      : choices_(choices), tree_(tree), plan_(plan) {}

  // What was different; empty when nothing was.
  std::string Run();
  bool hit() const { return hit_; }  // the fault was met

  Step Replace();
  Step Print();
  Step Resize();
  Step SetMost();
  Step Map();
  Step Reopen();

 private:
  uint32_t Any(uint32_t below) { return choices_.Below(below); }
  template <typename Value>
  Value One(std::initializer_list<Value> values) {
    return choices_.One(values);
  }
  std::string Text(uint32_t most);
  uint32_t Position();
  uint32_t Length(int64_t pos);
  FileModel::Source Source();
  Step Open();
  Step Revert();
  Step Close();

  bool Make(const Step& step, bool fails);
  std::string Shown(FileModel& model, int64_t result, const std::string& trail);
  bool SameBytes();

  Choices& choices_;
  const Tree& tree_;
  const FaultPlan& plan_;
  FileModel model_;
  const char* view_ = nullptr;
  bool hit_ = false;
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
  choices_.Log("%lld, %u, %s %lld+%u", static_cast<long long>(pos), length,
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
  choices_.Log("%s%s %u, %u, form %u %s %u+%u",
               how == 0   ? "append"
               : how == 1 ? "insert"
                          : "put",
               listed == 0 ? " list" : "", pos, length, form, mine ? "own" : "view", from,
               source.count);
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
  choices_.Log("%d", static_cast<int32_t>(change));
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
  choices_.Log("%u", most);
  return {[=] { return CurrentFile->nMaxSize = most, 0; },
          [=](FileModel& model) { return model.most = most, 0; }};
}

Step Trial::Map() {
  uint32_t size = One({0u, 1u, model_.size, model_.size + Any(70'000)});
  bool reader = !model_.Has(FO_WRITE | FO_KEEP_NAME);
  if (model_.stream || (reader && model_.based)) size = 0;
  choices_.Log("%u", size);
  return {[=] { return FileMap(size); }, [=](FileModel& model) { return model.Map(size); }};
}

Step Trial::Reopen() {
  uint32_t flags = FO_MAPPED | One({9u, 10u, 2u, 18u, 16u, 4u}) | One({0u, FO_STAT, FO_ZERO_END}) |
                   (model_.flags & FO_SEP_MASK);
  // Behind a view without a reserve others may be, and a reserve that fails is fatal.
  if (model_.based && !model_.Has(FO_WRITE | FO_KEEP_NAME)) flags = FO_MAPPED | One({1u, 4u});
  if (model_.stream) flags = FO_MAPPED | 4;  // the stream of such a file stays, and nothing fits
  choices_.Log("0x%X", flags);
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
  model_.missing = Any(8) == 0;
  model_.disk = model_.missing ? "" : Any(6) == 0 ? Text(70'000) : Text(Any(5) ? 60 : 0);
  std::filesystem::remove(tree_.root() / "f");
  if (!model_.missing) tree_.File("f", model_.disk);
#ifndef _WIN32
  if ((flags & FO_MAPPED) && Any(6) == 0)
    model_.diskLimit =
        std::max(One({66'000u, 140'000u}), static_cast<uint32_t>(model_.disk.size()));
#endif
  choices_.Log("open 0x%X, %u bytes%s", flags, static_cast<uint32_t>(model_.disk.size()),
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

FileModel::View ViewOf(const FileObject* file) {
  if (!file->pView || IsBadReadPtr(file->pView, 1)) return FileModel::kNone;
  return IsBadWritePtr(file->pView, 1) ? FileModel::kReading : FileModel::kWriting;
}

// A line of all that can be seen. What the model leaves open is as the system has it.
std::string Trial::Shown(FileModel& model, int64_t result, const std::string& trail) {
  if (const FileObject* file = CurrentFile) {
    if (model.mappedOpen && file->nMapped == 0) model.mapped = 0;
    if (model.basedOpen) model.based = file->pView;
    if (model.viewOpen) model.view = ViewOf(file);
  }
  char line[256];
  snprintf(line, sizeof line,
           "%lld \"%s\" size %u most %u delta %d open %u mapped %u grow %u flags 0x%X based %d "
           "view %d\n",
           static_cast<long long>(result), trail.c_str(), model.size, model.most,
           static_cast<int>(model.delta), model.openSize, model.mapped, model.grow, model.flags,
           model.based, model.view);
  return line;
}

FileModel Real() {
  FileModel real;
  const FileObject* file = CurrentFile;
  if (!file) return real;
  real.size = file->nSize, real.most = file->nMaxSize, real.delta = file->nDelta;
  real.openSize = file->nOpenSize, real.mapped = file->nMapped, real.grow = file->nGrow;
  real.flags = file->fFlags, real.based = file->pView, real.view = ViewOf(file);
  return real;
}

// The view shows what the disk has.
bool Trial::SameBytes() {
  if (!CurrentFile || model_.view == FileModel::kNone) return true;
  size_t shown = std::min<size_t>(model_.mapped, model_.disk.size());
  if (memcmp(CurrentFile->pView, model_.disk.data(), shown) == 0) return true;
  return choices_.Log("  other bytes\n"), false;
}

// Makes a call of the library, then that of the model with each of its choices.
bool Trial::Make(const Step& step, bool fails) {
  int64_t result;
  bool hit = false;
  {
#ifndef _WIN32
    std::optional<tavrix_test::Limit> limit;
    if (model_.diskLimit != ~uint64_t{0}) limit.emplace(RLIMIT_FSIZE, model_.diskLimit);
    std::optional<tavrix_test::CallFault> calls;
    if (fails && plan_.calls) calls.emplace(plan_.number);
#endif
    std::optional<tavrix_test::AllocationFault> allocations;
    if (fails && !plan_.calls) allocations.emplace(plan_.number);
    result = step.real();
    if (allocations) hit = allocations->Hit();
#ifndef _WIN32
    if (calls) hit = calls->Hit();
#endif
  }
  hit_ = hit_ || hit;
  const std::string trail = ClearedTrail();
  if (step.ends && CurrentFile) return choices_.Log(" still there\n"), false;
  model_.mayFail = model_.mayFail || hit;
  if (model_.stream && CurrentFile && CurrentFile->pStream) fflush(CurrentFile->pStream);
  const bool compares = (model_.stream || step.ends) && tree_.Exists("f");
  const std::string disk = compares ? tree_.Read("f") : "";
  FileModel real = Real();
  const std::string seen = Shown(real, result, trail);
  choices_.Log(" = %s", seen.c_str());
  std::string outcomes;
  int most = 0;
  for (int choice = 0, way = 0; way <= most; ++choice) {
    FileModel model = model_;
    model.Begin(choice, way);
    const int64_t wanted = step.model(model);
    most = std::max(most, model.ways);
    if (choice > model.seen) {
      choice = -1, ++way;
      continue;
    }
    // A call that failed on the way may have made the file longer, with zeros.
    if (hit && tree_.Exists("f")) model.disk.resize(std::filesystem::file_size(tree_.root() / "f"));
    if (compares && (model.stream || step.ends) && disk != model.disk) continue;
    const std::string line = Shown(model, wanted, model.Trail());
    if (line != seen) {
      outcomes += "   not " + line;
      continue;
    }
    const bool stays = model_.based && model.based && model.place == model_.place;
    model_ = model;
    if (!CurrentFile) return true;
    if (stays && view_ && CurrentFile->pView != view_)
      return choices_.Log("  other address\n"), false;
    if (model_.handleOpen && !model_.stream) model_.open = CurrentFile->hFile;
    view_ = CurrentFile->pView;
    return SameBytes();
  }
  choices_.Log("%s", outcomes.substr(0, 1000).c_str());
  return false;
}

std::string Trial::Run() {
  uint32_t total = 0;
  for (const auto& op : kOps) total += op.weight;
  const uint32_t steps = 2 + Any(24);
  for (uint32_t number = 0; number <= steps; ++number) {
    Step step;
    if (number == 0) {
      step = Open();
    } else if (number == steps) {
      step = !model_.stream && model_.open && Any(4) == 0 ? Revert() : Close();
    } else {
      uint32_t which = Any(total), i = 0;
      while (which >= kOps[i].weight) which -= kOps[i++].weight;
      const auto& [name, weight, make] = kOps[i];
      choices_.Log("%s ", name);
      step = (this->*make)();
    }
    if (!Make(step, plan_.step == number)) return "different";
    if (!CurrentFile) break;
  }
  if (CurrentFile) return "left open";
  if (tree_.Exists("f") == model_.missing) return "on the disk, or not";
  return "";
}

// Runs one sequence. What it leaves the first time may be the library's own store, which is kept;
// the second time nothing is left.
std::string Try(Choices& choices, const Tree& tree, const FaultPlan& plan, bool* hit) {
#ifdef _WIN32
  auto held = [] { return tavrix_test::LiveBlocks(); };
#else
  tree.Remove("t");  // a backup that was left has a name that another one may get
  tree.Dir("t/" + tree.Path("t").substr(1));
  setenv("TMPDIR", tree.Path("t").c_str(), 1);  // where a backup can be made
  auto held = [] { return tavrix_test::LiveBlocks() + tavrix_test::OpenDescriptors(); };
#endif
  for (int again = 0; again < 3; ++again) {
    const int64_t before = held();
    {
      Choices same = choices;
      Trial trial(same, tree, plan);
      const std::string difference = trial.Run();
      *hit = trial.hit();
      if (!difference.empty()) return choices = same, difference;
    }
    if (held() == before) return "";
  }
  return "blocks or descriptors are lost";
}

TEST(EditedFile, RandomCallsAgreeWithAModel) {
  Tree tree;
  auto trial = [&](Choices& choices) {
    bool hit;
    return Try(choices, tree, {}, &hit);
  };
  EXPECT_EQ(tavrix_test::RunTrials(1, 600, trial), "");
}

#ifndef _WIN32

// Each allocation and each system call of one call fails in turn; the calls behind it go on. A
// reserve that cannot be set up ends the process with 15 or 16: this runs in children, which count
// in memory that is shared.
TEST(EditedFile, RandomCallsAgreeAfterEachFault) {
  Tree tree;
  ErrRaise("test", 1, 1);  // the stack of errors is there
  ErrClear();
  auto* number = static_cast<int64_t*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  int64_t faults = 0;
  auto each = [&](Choices& choices) {
    const int64_t step = choices.Below(5);
    auto fail = [&](bool calls) {
      for (bool hit = true; hit; ++*number) {
        Choices same = choices;
        const std::string difference = Try(same, tree, {step, calls, *number}, &hit);
        if (!difference.empty())
          return fprintf(stderr, "%s%s\n", same.log().c_str(), difference.c_str()), 1;
      }
      return 0;
    };
    for (bool calls : {false, true}) {
      int code;
      for (*number = 1; (code = tavrix_test::InChild([&] { return fail(calls); })); ++*number) {
        if (code != 15 && code != 16)
          return std::string(calls ? "call " : "allocation ") + std::to_string(*number) +
                 ": ended with " + std::to_string(code);
      }
      faults += *number;
    }
    return std::string();
  };
  EXPECT_EQ(tavrix_test::RunTrials(10'001, 10'080, each), "");
  EXPECT_GT(faults, 400);
}

#endif

}  // namespace
}  // namespace quern
