// A terminal for tests: a pseudo-terminal, and behind it a small emulator that the test can look
// at.
//
//   Terminal terminal(20, 5);
//   EXPECT_EQ(terminal.Run([] { puts("seen"); }), 0);
//   EXPECT_EQ(terminal.Text(), "seen");
//   EXPECT_EQ(terminal.CursorRow(), 1);
#pragma once

#ifndef _WIN32

#include <functional>
#include <string>
#include <vector>

namespace tavrix_test {

// How cells look. Colours count in the terminal's order (1 is red, 4 is blue, 8 is bright black).
struct Look {
  static constexpr int kOwn = -1;  // the terminal's own colour
  int foreground = kOwn;           // 0 to 15, or kOwn
  int background = kOwn;
  bool bold = false, underline = false, reverse = false;

  bool operator==(const Look&) const = default;
};

struct Cell {
  std::string text = " ";  // one character, in as many bytes as UTF-8 has for it
  Look look;
};

struct TerminalOptions {
  const char* term = "xterm";     // the variable TERM; null: there is none
  bool mute = false;              // answers no question
  bool errorsApart = false;       // standard error is a pipe, see Errors
  std::string typedAhead = {};    // waits as input when the body begins
  std::string beforeAnswer = {};  // typed between the first question and its answer
};

// Prints with wrapping (a full row wraps only when the next character comes), scrolls, and knows
// CR, LF, BS, TAB, CUP, SGR, DECSCUSR, DECCARA with colours, the modes ?7 and ?25, and the question
// for the cursor's position. Any other sequence is a failure of the test that runs. What one body
// leaves on the screen the next one finds.
class Terminal {
 public:
  Terminal(int columns, int rows, TerminalOptions options = {});

  // Runs the body in a child that has this terminal as its controlling terminal and, in the
  // foreground, as its standard streams; the child ends by exit(0) unless the body ends it in
  // another way. Expectations that fail in the body are failures of the test, but fatal ones end
  // only the function they are in. A child that takes longer than 20 seconds is killed, which is a
  // failure, too.
  //
  // Returns the exit code, or minus the signal that ended the child.
  int Run(const std::function<void()>& body);

  // For the body, which shares no memory with the test. All three return when the terminal has
  // shown what was written before and done what they say.
  void Report(const std::string& text);  // adds a line to Reported()
  void Type(const std::string& bytes);   // types
  void Resize(int columns, int rows);    // also for the test, between two runs

  // Of the last run:
  const std::string& Bytes() const { return bytes_; }        // arrived; '\n' as "\r\n"
  const std::string& Reported() const { return reported_; }  // each line ends in '\n'
  const std::string& Errors() const { return errors_; }      // bytes of the pipe, see errorsApart
  int Questions() const { return questions_; }               // for the cursor's position

  // The screen. Rows and columns count from 0.
  int Columns() const { return columns_; }
  int Rows() const { return static_cast<int>(cells_.size()); }
  const Cell& At(int column, int row) const { return cells_[row][column]; }
  std::string Row(int row) const;  // its text, without the blanks at its end
  std::string Text() const;        // the rows with '\n' between them, without the empty ones below

  // The cursor. Its column is that of the last character while the row is full.
  int CursorColumn() const { return column_; }
  int CursorRow() const { return row_; }
  bool CursorVisible() const { return visible_; }
  int CursorShape() const { return shape_; }  // as DECSCUSR numbers them; 0: the terminal's own
  bool Wraps() const { return wraps_; }
  const Look& CurrentLook() const { return look_; }  // of text to come

 private:
  enum class State { kText, kEscape, kSequence };

  void Serve(int channel, int errors, int child, int* status);
  bool Drain();
  void Take(char byte);
  void Print(char byte);
  void LineFeed();
  void Obey(const std::string& sequence);
  void Fit(int columns, int rows);
  void Request(char kind, const std::string& text);

  TerminalOptions options_;
  std::vector<std::vector<Cell>> cells_;
  int columns_ = 0, column_ = 0, row_ = 0, lastColumn_ = 0, shape_ = 0, questions_ = 0;
  bool visible_ = true, wraps_ = true, full_ = false;
  Look look_;
  State state_ = State::kText;
  std::string sequence_, bytes_, reported_, errors_;
  int master_ = -1;   // while a body runs
  int channel_ = -1;  // in the child: requests to the test
};

}  // namespace tavrix_test

#endif
