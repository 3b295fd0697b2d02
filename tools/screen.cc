#include "tools/screen.h"

// Its macros have the names of everything that moves.
#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <curses.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include "tools/exit_code.h"

// Capabilities of terminals are macros, too.
#undef columns
#undef lines

namespace vt::tools {
namespace {

using Kind = KeyPress::Kind;

// --- the way back, where the process is ended in the middle ---

// What ends a process unless it is caught. The first SIGINT or SIGTERM ends in order, elsewhere; a
// second one comes here. SIGTSTP and SIGCONT are the curses library's.
constexpr std::array kDeadly = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM, SIGABRT,   SIGSEGV,
                                SIGBUS,  SIGFPE,  SIGILL,  SIGSYS,  SIGTRAP,   SIGALRM,
                                SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF};

// WayBack is what a handler needs. Only system calls that are safe there are made of it.
struct WayBack {
  bool is_needed = false;
  termios modes{};
  std::array<char, 128> sequence{};
  std::size_t size = 0;
};
constinit WayBack way_back;
std::array<struct sigaction, kDeadly.size()> previous_actions;

extern "C" void RestoreAndDie(int number) {
  if (way_back.is_needed) {
    [[maybe_unused]] const ssize_t written =
        write(STDOUT_FILENO, way_back.sequence.data(), way_back.size);
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &way_back.modes);
  }
  // The action is the one of before again, and what is raised here comes when this returns.
  (void)raise(number);
}

// Capability is what a terminal has under a name, or null. The library has another mark for names
// that are not of this kind.
const char* Capability(const char* name) {
  const char* text = tigetstr(name);
  return reinterpret_cast<std::intptr_t>(text) == -1 ? nullptr : text;
}

void AddSequence(const char* name) {
  const char* text = Capability(name);
  if (text == nullptr) return;
  const std::size_t size = std::strlen(text);
  if (way_back.size + size > way_back.sequence.size()) return;
  std::memcpy(way_back.sequence.data() + way_back.size, text, size);
  way_back.size += size;
}

// NoteModes has to come before the terminal is changed.
void NoteModes() { (void)tcgetattr(STDIN_FILENO, &way_back.modes); }

// PrepareWayBack comes behind newterm, which knows the sequences.
void PrepareWayBack() {
  way_back.size = 0;
  // Attributes off, the cursor visible, keys as they were, the other screen gone.
  for (const char* name : {"sgr0", "cnorm", "rmkx", "rmcup"}) AddSequence(name);
  way_back.is_needed = true;
}

// CatchDeadly comes before newterm: the curses library leaves alone what is caught already, and its
// own handlers would end the process with a code that is not that of the signal.
void CatchDeadly() {
  struct sigaction action {};
  action.sa_handler = RestoreAndDie;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (std::size_t i = 0; i < kDeadly.size(); ++i) {
    (void)sigaction(kDeadly[i], nullptr, &previous_actions[i]);
    // What somebody else catches or ignores stays so.
    if (previous_actions[i].sa_handler == SIG_DFL) (void)sigaction(kDeadly[i], &action, nullptr);
  }
}

void ForgetWayBack() {
  for (std::size_t i = 0; i < kDeadly.size(); ++i) {
    (void)sigaction(kDeadly[i], &previous_actions[i], nullptr);
  }
  way_back.is_needed = false;
}

// --- keys and colours ---

struct KeyName {
  wint_t code;
  Kind kind;
};

constexpr std::array kKeys = {KeyName{KEY_UP, Kind::kUp},
                              KeyName{KEY_DOWN, Kind::kDown},
                              KeyName{KEY_PPAGE, Kind::kPageUp},
                              KeyName{KEY_NPAGE, Kind::kPageDown},
                              KeyName{KEY_HOME, Kind::kHome},
                              KeyName{KEY_END, Kind::kEnd},
                              KeyName{KEY_BACKSPACE, Kind::kBackspace},
                              KeyName{KEY_ENTER, Kind::kEnter},
                              KeyName{KEY_RESIZE, Kind::kResize}};

constexpr wint_t kControlL = 0x0C;
constexpr wint_t kEscapeKey = 0x1B;
constexpr wint_t kDelete = 0x7F;

std::optional<KeyPress> NamedKey(wint_t code) {
  for (const KeyName& key : kKeys) {
    if (key.code == code) return KeyPress{key.kind, ""};
  }
  return std::nullopt;
}

std::optional<KeyPress> CharacterKey(wint_t code) {
  if (code == L'\r' || code == L'\n') return KeyPress{Kind::kEnter, ""};
  if (code == kEscapeKey) return KeyPress{Kind::kEscape, ""};
  if (code == kDelete || code == L'\b') return KeyPress{Kind::kBackspace, ""};
  if (code == kControlL) return KeyPress{Kind::kRedraw, ""};
  if (code < L' ') return std::nullopt;
  std::array<char, MB_LEN_MAX> bytes{};
  std::mbstate_t state{};
  const std::size_t size = std::wcrtomb(bytes.data(), static_cast<wchar_t>(code), &state);
  if (size == static_cast<std::size_t>(-1)) return std::nullopt;
  return KeyPress{Kind::kText, std::string(bytes.data(), size)};
}

constexpr short kAlarmColours = 1;

attr_t AttributesOf(LineStyle style, bool has_colour) {
  switch (style) {
    case LineStyle::kTitle:
      return A_BOLD;
    case LineStyle::kHeading:
      return A_REVERSE;
    case LineStyle::kAlarm:
      return A_BOLD | (has_colour ? static_cast<attr_t>(COLOR_PAIR(kAlarmColours)) : 0);
    case LineStyle::kFaint:
      return A_DIM;
    case LineStyle::kPlain:
      break;
  }
  return A_NORMAL;
}

// One at a time, as the library has it.
constinit SCREEN* terminal = nullptr;
constinit bool has_colours = false;

}  // namespace

bool Screen::IsPossible() {
  if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) return false;
  const char* name = std::getenv("TERM");
  int error = 0;
  if (name == nullptr || setupterm(nullptr, STDOUT_FILENO, &error) == ERR) return false;
  const bool can_move = Capability("cup") != nullptr;
  (void)del_curterm(cur_term);
  return can_move;
}

Charset Screen::LocaleCharset() {
  (void)std::setlocale(LC_CTYPE, "");
  return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0 ? Charset::kUnicode : Charset::kAscii;
}

Screen::Screen(bool with_colour) {
  (void)std::setlocale(LC_CTYPE, "");
  NoteModes();
  // A lone Escape is told from the sequence of a key by the time that passes.
  constexpr int escape_milliseconds = 25;
  (void)set_escdelay(escape_milliseconds);
  CatchDeadly();
  terminal = newterm(nullptr, stdout, stdin);
  if (terminal == nullptr) {
    ForgetWayBack();
    throw Failure(kExitInternal, "the terminal cannot be drawn on");
  }
  PrepareWayBack();
  (void)cbreak();
  (void)noecho();
  (void)keypad(stdscr, TRUE);
  (void)nodelay(stdscr, TRUE);
  (void)curs_set(0);
  has_colours = with_colour && has_colors() && start_color() == OK && use_default_colors() == OK &&
                init_pair(kAlarmColours, COLOR_RED, -1) == OK;
}

Screen::~Screen() {
  (void)endwin();
  ForgetWayBack();
  delscreen(terminal);
  terminal = nullptr;
}

std::size_t Screen::width() const { return static_cast<std::size_t>(getmaxx(stdscr)); }
std::size_t Screen::height() const { return static_cast<std::size_t>(getmaxy(stdscr)); }

void Screen::Show(const std::vector<ScreenLine>& lines) {
  (void)werase(stdscr);
  int row = 0;
  for (const ScreenLine& line : lines) {
    const attr_t attributes = AttributesOf(line.style, has_colours);
    (void)wattrset(stdscr, static_cast<int>(attributes));
    // In the last column of the last line this fails after it has drawn.
    (void)mvwaddstr(stdscr, row++, 0, line.text.c_str());
  }
  (void)wattrset(stdscr, A_NORMAL);
  (void)wrefresh(stdscr);
}

std::optional<KeyPress> Screen::Read() {
  if (TakeNewSize()) return KeyPress{Kind::kResize, ""};
  wint_t code = 0;
  const int told = wget_wch(stdscr, &code);
  if (told == ERR) return std::nullopt;
  if (told == KEY_CODE_YES) return NamedKey(code);
  std::optional<KeyPress> key = CharacterKey(code);
  if (key && key->kind == Kind::kRedraw) (void)clearok(stdscr, TRUE);
  return key;
}

int Screen::descriptor() { return STDIN_FILENO; }

// The size is asked for and not waited for: who starts a program decides whether it is told.
bool Screen::TakeNewSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    return false;
  }
  if (!is_term_resized(size.ws_row, size.ws_col)) return false;
  (void)resizeterm(size.ws_row, size.ws_col);
  return true;
}

}  // namespace vt::tools
