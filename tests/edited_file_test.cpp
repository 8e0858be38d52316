// Random sequences of calls on a mapped file, against a model: edits of every kind, at every limit,
// with system calls and allocations that fail, and further edits after each failure.

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

// One call: of the library, and of the model. Both return 0 if it is refused.
struct Step {
  std::function<int64_t()> real;
  std::function<int64_t(FileModel&)> model;
  bool ends = false;  // the object is gone
};

int32_t Listed(uint32_t how, char* pos, uint32_t length, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int32_t change = how == 0   ? FileAppendf(kFileArgList, format, arguments)
                         : how == 1 ? FilePrintf(pos, kFileArgList, format, arguments)
                                    : FileVPrintf(pos, length, kFileArgList, format, arguments);
  va_end(arguments);
  return change;
}

FileModel Real() {
  FileModel real;
  const FileObject* file = CurrentFile;
  if (!file) return real;
  real.size = file->nSize, real.most = file->nMaxSize, real.delta = file->nDelta;
  real.openSize = file->nOpenSize, real.mapped = file->nMapped, real.grow = file->nGrow;
  real.flags = file->fFlags, real.based = file->pView, real.open = file->hFile;
  real.named = file->pName && *file->pName->szFull;
  if (file->pView && !IsBadReadPtr(file->pView, 1))
    real.view = IsBadWritePtr(file->pView, 1) ? FileModel::kReading : FileModel::kWriting;
  return real;
}

// A line of all that can be seen.
std::string Line(const FileModel& file, int64_t result) {
  return tavrix_test::Line(
      "%d \"%s\" size %u most %u delta %d open %d %u mapped %u grow %u flags 0x%X view %d%d\n",
      static_cast<int>(result), file.trail.c_str(), file.size, file.most,
      static_cast<int>(file.delta), file.open, file.openSize, file.mapped, file.grow, file.flags,
      file.based, file.view);
}

class Trial {
 public:
  Trial(Choices& choices, const Tree& tree, const FaultPlan& plan)
      : choices_(choices), tree_(tree), plan_(plan) {}

  // What was different; empty when nothing was.
  std::string Run() {
    const struct {
      uint32_t weight;
      Step (Trial::*make)();
    } kOps[] = {{30, &Trial::Replace}, {30, &Trial::Print}, {12, &Trial::Resize},
                {10, &Trial::SetMost}, {4, &Trial::Map},    {4, &Trial::Reopen}};
    const uint32_t steps = 2 + Any(24);
    for (uint32_t number = 0; number <= steps; ++number) {
      uint32_t which = Any(90), i = 0;
      while (which >= kOps[i].weight) which -= kOps[i++].weight;
      const Step step = number == 0 ? Open() : number == steps ? End() : (this->*kOps[i].make)();
      if (!Make(step, plan_.step == number)) return "different";
      if (!CurrentFile) return "";
    }
    return "left open";
  }
  bool hit() const { return hit_; }  // the fault was met

 private:
  uint32_t Any(uint32_t below) { return choices_.Below(below); }
  template <typename Value>
  Value One(std::initializer_list<Value> values) {
    return choices_.One(values);
  }
  // Texts that have separators in them, and no percent sign.
  std::string Text(uint32_t most) {
    static const char* const kPieces[] = {"[", "\r\n", "\r\n\r\n", "a", "bcd", "\n", "efghijk"};
    const uint32_t size = Any(most + 1);
    std::string text;
    while (text.size() < size && text.size() < 200) text += kPieces[Any(7)];
    while (text.size() < size) text += text.substr(0, size - text.size());
    text.resize(size);
    return text;
  }

  uint32_t Position() {
    if (Any(12) == 0) return model_.size + Any(3);
    return Any(4) ? Any(model_.size + 1) : std::min(model_.size, Any(12));
  }

  uint32_t Length(int64_t pos) {
    if (Any(20) == 0) return One({100u, 70'000u, model_.size + 1, 0x7FFFFFFFu});
    const auto left = static_cast<uint32_t>(std::max<int64_t>(model_.size - pos, 0));
    return Any(8) ? std::min(left, Any(9)) : Any(left + 2);
  }

  // How many bytes the view has.
  uint32_t Shown() const {
    return std::min(model_.mapped, static_cast<uint32_t>(model_.disk.size()));
  }

  Step Open() {
    constexpr uint32_t kAppend = 18;
    uint32_t flags = FO_MAPPED | One({2u, 2u, 2u, 10u, 1u, 9u, 9u, kAppend, FO_TRUNCATE + 0u});
    flags |=
        FO_NAME | Any(16) << 16 | Any(4) << 20 | One({0u, FO_STAT}) | (Any(3) ? 0 : FO_ZERO_END);
    if ((flags & FO_GROW_MASK) == FO_GROW_5M || (flags & FO_GROW_MASK) == FO_GROW_10M)
      flags ^= FO_GROW_MASK & 0x60000;
#ifndef _WIN32
    if (Any(8) == 0) flags |= FO_BACKUP;
#endif
    model_.disk = Any(6) == 0 ? Text(70'000) : Text(Any(5) ? 60 : 0);
    tree_.File("f", model_.disk);
    choices_.Log("open 0x%X, %u bytes", flags, static_cast<uint32_t>(model_.disk.size()));
    return {[name = tree_.Path("f"), flags] {
              return FileOpen(nullptr, name.c_str(), flags) != nullptr;
            },
            [=](FileModel& model) { return model.Open(flags, false); }};
  }

  Step Replace() {
    const int64_t pos = model_.based && Any(30) == 0 ? -1 : int64_t{Position()};
    const uint32_t length = Length(pos), kind = Any(12);
    FileModel::Source source;
    if (kind == 0) {
      source.kind = FileModel::kNoBytes;
      source.count = Any(9);
    } else if (kind <= 2 && model_.view != FileModel::kNone) {
      source.kind = FileModel::kOfTheView;
      source.from = One<int64_t>({0, model_.size, Any(model_.size + 1), model_.size + 1});
      const int64_t left = std::max<int64_t>(Shown() - source.from, 0);
      source.count = static_cast<uint32_t>(std::min<int64_t>(Any(40), left));
    } else {
      source.own = Text(Any(10) ? 12 : 80'000);
      source.count = static_cast<uint32_t>(source.own.size());
    }
    choices_.Log("replace %d, %u, %d %d+%u", static_cast<int>(pos), length, source.kind,
                 static_cast<int>(source.from), source.count);
    return {[=] {
              char* view = CurrentFile->pView;
              const void* bytes = source.kind == FileModel::kOwn         ? source.own.data()
                                  : source.kind == FileModel::kOfTheView ? view + source.from
                                                                         : nullptr;
              return FileReplace(view + pos, length, bytes, source.count);
            },
            [=](FileModel& model) { return model.Replace(pos, length, source); }};
  }

  // Formats and arguments of the caller's, or in the file's own data.
  Step Print() {
    const uint32_t how = Any(3), listed = Any(3), form = Any(3);
    const uint32_t pos = how == 0 ? model_.size : Position(), length = how < 2 ? 0 : Length(pos);
    const uint32_t from = Any(std::min(model_.size, Shown()) + 1);
    const bool mine = model_.view == FileModel::kNone ||
                      model_.disk.substr(0, Shown()).find('\0', from) == std::string::npos;
    std::string own = Text(Any(4) ? 12 : 2000);
    if (Any(6) == 0) own.resize(One({1021, 1022, 1023, 1024, 65'534, 65'536}), 'l');
    const std::string text = mine ? own : std::string(model_.disk.c_str() + from);
    const int number = static_cast<int>(Any(200'000)), precision = number % 10;
    FileModel::Source source;
    source.own = form == 0   ? std::to_string(number) + text
                 : form == 1 ? text
                             : text.substr(0, precision) + "," + text;
    source.count = static_cast<uint32_t>(source.own.size());
    choices_.Log("print %u%u%u %u, %u, %d %u+%u", how, listed, form, pos, length, mine, from,
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
                                 : call("%.*s,%s", precision, what, what);
            },
            [=](FileModel& model) { return model.Replace(pos, length, source); }};
  }

  Step Resize() {
    uint32_t change = One<uint32_t>({Any(40), 0u - Any(40), 0u - Any(model_.size + 2), 0,
                                     model_.most - model_.size + Any(2), 70'000, 66'000});
    if (model_.size + change > 500'000 && model_.size + change <= model_.most)
      change = 0 - model_.size / 2;
    choices_.Log("resize %d", static_cast<int32_t>(change));
    return {[=] { return FileResize(static_cast<int32_t>(change)) == 0; },
            [=](FileModel& model) { return model.Resize(change) == 0; }};
  }

  // No more than the addresses that it has: others may lie behind.
  Step SetMost() {
    uint32_t end = static_cast<uint32_t>(std::min<uint64_t>(model_.rangeEnd, 400'000));
    if (!model_.based) end = 400'000;
    const uint32_t most =
        std::min(end, One({model_.size, model_.size + Any(40), model_.size + 10'000,
                           model_.size - Any(model_.size + 1), 150'000u, 200'000u}));
    choices_.Log("most %u", most);
    return {[=] { return CurrentFile->nMaxSize = most, 1; },
            [=](FileModel& model) { return model.most = most, 1; }};
  }

  Step Map() {
    uint32_t size = One({0u, 1u, model_.size, model_.size + Any(70'000)});
    if (model_.based && !model_.Has(FO_WRITE | FO_KEEP_NAME)) size = 0;
    choices_.Log("map %u", size);
    return {[=] { return FileMap(size) == 0; },
            [=](FileModel& model) { return model.Map(size) == 0; }};
  }

  Step Reopen() {
    uint32_t flags = FO_MAPPED | One({9u, 10u, 2u, 18u, 4u}) | One({0u, FO_STAT, FO_ZERO_END}) |
                     (model_.flags & FO_SEP_MASK);
    // Behind a view without a reserve others may be, and a reserve that fails is fatal.
    if (model_.based && !model_.Has(FO_WRITE | FO_KEEP_NAME)) flags = FO_MAPPED | One({1u, 4u});
    choices_.Log("reopen 0x%X", flags);
    return {[=] { return FileOpen(CurrentFile, nullptr, flags) != nullptr; },
            [=](FileModel& model) { return model.Open(flags, true); }};
  }

  Step End() {
    if (Any(4)) {
      choices_.Log("close");
      return {[] { return FileClass(0), 1; }, [](FileModel& model) { return model.Close(), 1; },
              true};
    }
    choices_.Log("revert");
    return {[] { return FileRevert() == 0; }, [](FileModel& model) { return model.Revert(), 1; },
            true};
  }

  // After a failure that no rule foretells: what is there is of one piece, and goes on.
  bool Follows(const FileModel& before, const FileModel& real) {
    const std::string disk = tree_.Read("f");
    model_ = real;
    model_.trail.clear();
    model_.disk = disk;
    model_.backup = before.backup, model_.backed = before.backed;
    model_.rangeEnd = before.based ? before.rangeEnd : 0;
    const bool agree =
        real.view == FileModel::kNone || (real.view == FileModel::kWriting) == !real.Has(FO_READ);
    const size_t kept = std::min(before.disk.size(), disk.size());
    return agree && !real.trail.empty() && disk.size() >= std::min<size_t>(before.size, kept) &&
           disk.compare(0, kept, before.disk, 0, kept) == 0;
  }

  // Makes a call of the library, then that of the model.
  bool Make(const Step& step, bool fails) {
    int64_t result;
    bool hit = false;
    {
#ifndef _WIN32
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
    FileModel real = Real();
    real.trail = ClearedTrail();
    if (!real.trail.empty()) real.trail.insert(0, 1, '.');
    const FileModel before = model_;
    model_.mayFail = hit;
    model_.trail.clear();
    const int64_t wanted = step.model(model_);
    if (!model_.trail.empty()) model_.trail[0] = '.';
    const std::string seen = Line(real, result), line = Line(model_, wanted);
    choices_.Log(" = %s", seen.c_str());
    if (step.ends) {  // with the bytes that it is to have, or with a failure
      if (CurrentFile || (hit_ && !real.trail.empty())) return !CurrentFile;
      return result == wanted && real.trail == model_.trail && tree_.Read("f") == model_.disk;
    }
    if (line != seen) {
      if (model_.mayFail && result <= 0 && Follows(before, real)) return true;
      return choices_.Log("   not %s", line.c_str()), false;
    }
    const char* place = std::exchange(view_, CurrentFile ? CurrentFile->pView : nullptr);
    const bool stays = !place || !before.based || !model_.based || place == view_;
    return stays && (!model_.view || memcmp(view_, model_.disk.data(), Shown()) == 0);
  }

  Choices& choices_;
  const Tree& tree_;
  const FaultPlan& plan_;
  FileModel model_;
  const char* view_ = nullptr;
  bool hit_ = false;
};

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
// reserve that cannot be set up ends the process with 15 or 16.
TEST(EditedFile, RandomCallsAgreeAfterEachFault) {
  Tree tree;
  ErrRaise("test", 1, 1);  // the stack of errors is there
  ErrClear();
  int faults = 0;
  auto each = [&](Choices& choices) -> std::string {
    FaultPlan plan = {choices.Below(5)};
    for (bool calls : {false, true}) {
      plan.calls = calls;
      int code = 1;
      for (plan.number = 1; code != 0; ++plan.number, ++faults) {
        code = tavrix_test::InChild([&] {
          bool hit;
          const std::string difference = Try(choices, tree, plan, &hit);
          if (difference.empty()) return hit ? 1 : 0;
          return fprintf(stderr, "%s%s\n", choices.log().c_str(), difference.c_str()), 2;
        });
        if (code > 1 && code != 15 && code != 16)
          return tavrix_test::Line("%d %d: %d", calls, static_cast<int>(plan.number), code);
      }
    }
    return "";
  };
  EXPECT_EQ(tavrix_test::RunTrials(10'001, 10'060, each), "");
  EXPECT_GT(faults, 400);
}

#endif

}  // namespace
}  // namespace quern
