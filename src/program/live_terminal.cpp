#include "live_terminal.h"

#include <langinfo.h>
#include <ncurses.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "terminal_type.h"

namespace corvane::program {

namespace {

constexpr int ESCAPE_MILLISECONDS = 25;  // that the rest of a key's sequence may take

enum Pair : short { GRAPH_PAIR = 1, HIGH_PAIR, NOTE_PAIR };

// What an end without the destructor needs to leave a usable terminal: prepared while all is well,
// as the handler of a signal may neither allocate nor call ncurses.
constexpr std::array FATAL_SIGNALS = {SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGABRT,
                                      SIGSYS,  SIGALRM, SIGUSR1, SIGUSR2, SIGVTALRM,
                                      SIGPROF, SIGXCPU, SIGTRAP};
constexpr size_t RESTORE_LENGTH = 128;
termios original_modes = {};
std::array<char, RESTORE_LENGTH> restore_text = {};
size_t restore_length = 0;
std::atomic<bool> is_open = false;

/// A job that was stopped and goes on in the background has left the terminal to others.
bool InBackground() {
    const pid_t foreground = tcgetpgrp(STDOUT_FILENO);  // -1: not the terminal that controls it
    return foreground > 0 && foreground != getpgrp();
}

void RestoreAndDie(int signal) {
    RestoreTerminalAtOnce();
    raise(signal);  // the handler is gone: now it ends the process
}

/// Handles the signals that nobody else does; `handler` SIG_DFL takes that back.
void HandleFatalSignals(void (*from)(int), void (*handler)(int)) {
    for (const int signal : FATAL_SIGNALS) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == from) {
            action = {};
            action.sa_handler = handler;
            action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
            sigaction(signal, &action, nullptr);
        }
    }
}

/// Terminals send these whatever they say they are.
void DefineCommonKeys() {
    const struct {
        const char* sequence;
        int key;
    } keys[] = {
        {"\033[A", KEY_UP},     {"\033[B", KEY_DOWN},   {"\033OA", KEY_UP},    {"\033OB", KEY_DOWN},
        {"\033[5~", KEY_PPAGE}, {"\033[6~", KEY_NPAGE}, {"\033[1~", KEY_HOME}, {"\033[4~", KEY_END},
        {"\033[H", KEY_HOME},   {"\033[F", KEY_END},    {"\033OH", KEY_HOME},  {"\033OF", KEY_END},
    };
    for (const auto& key : keys) {
        define_key(key.sequence, key.key);
    }
}

Charset TerminalCharset() {
    if (strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        return Charset::Ascii;
    }
    const char* const name = getenv("TERM");
    const bool console = name != nullptr && strncmp(name, "linux", strlen("linux")) == 0;
    return console ? Charset::Halves : Charset::Eighths;
}

bool WantsColour() {
    const char* const refused = getenv("NO_COLOR");
    return has_colors() && (refused == nullptr || *refused == '\0');
}

/// Each style shows by an attribute, where it matters; colour comes on top.
attr_t AttributesOf(Style style) {
    switch (style) {
        case Style::Title:
            return A_BOLD;
        case Style::Heading:
            return A_BOLD | A_UNDERLINE;
        case Style::Alarm:
            return A_BOLD | A_REVERSE;
        case Style::HighGraph:
        case Style::Note:
            return A_BOLD;
        default:
            return A_NORMAL;
    }
}

short ColourOf(Style style) {
    switch (style) {
        case Style::Graph:
            return GRAPH_PAIR;
        case Style::HighGraph:
        case Style::Alarm:
            return HIGH_PAIR;
        case Style::Note:
            return NOTE_PAIR;
        default:
            return 0;
    }
}

Key KeyOf(int code) {
    switch (code) {
        case 'q':
        case 'Q':
            return Key::Quit;
        case '?':
        case 'h':
            return Key::Help;
        case 'p':
            return Key::Pause;
        case 'c':
            return Key::Cores;
        case KEY_UP:
        case 'k':
            return Key::Up;
        case KEY_DOWN:
        case 'j':
            return Key::Down;
        case KEY_PPAGE:
        case 'b':
            return Key::PageUp;
        case KEY_NPAGE:
        case ' ':
            return Key::PageDown;
        case KEY_HOME:
        case KEY_FIND:
        case 'g':
            return Key::Home;
        case KEY_END:
        case KEY_SELECT:
        case 'G':
            return Key::End;
        case '\t':
            return Key::NextPart;
        case KEY_RESIZE:
            return Key::Resized;
        default:
            return Key::Other;
    }
}

}  // namespace

void RestoreTerminalAtOnce() {
    if (!is_open || InBackground()) {
        return;
    }
    tcsetattr(STDOUT_FILENO, TCSANOW, &original_modes);
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) == 1 && write(STDOUT_FILENO, restore_text.data(), restore_length) < 0) {
        // Nothing is left to be done about it.
    }
}

LiveTerminal::LiveTerminal() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw std::runtime_error("--watch needs a terminal");
    }
    restore_length = TerminalTypeRestoreText().copy(restore_text.data(), restore_text.size());
    setlocale(LC_CTYPE, "");
    m_charset = TerminalCharset();
    tcgetattr(STDOUT_FILENO, &original_modes);
    if (newterm(nullptr, stdout, stdin) == nullptr) {
        throw std::runtime_error("--watch: the terminal cannot be set up");
    }
    is_open = true;
    signal(SIGTTOU, SIG_IGN);  // would stop a stopped job once more that was asked to end
    HandleFatalSignals(SIG_DFL, RestoreAndDie);
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    set_escdelay(ESCAPE_MILLISECONDS);
    curs_set(0);
    DefineCommonKeys();
    // Ctrl-S would hold up the program in the middle of drawing.
    termios modes = {};
    tcgetattr(STDIN_FILENO, &modes);
    modes.c_iflag &= ~static_cast<tcflag_t>(IXON);
    tcsetattr(STDIN_FILENO, TCSANOW, &modes);
    def_prog_mode();
    m_colour = WantsColour();
    if (m_colour) {
        start_color();
        use_default_colors();
        init_pair(GRAPH_PAIR, COLOR_CYAN, -1);
        init_pair(HIGH_PAIR, COLOR_RED, -1);
        init_pair(NOTE_PAIR, COLOR_YELLOW, -1);
    }
}

LiveTerminal::~LiveTerminal() {
    endwin();
    is_open = false;
    signal(SIGTTOU, SIG_DFL);
    HandleFatalSignals(RestoreAndDie, SIG_DFL);
}

void LiveTerminal::UpdateSize() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0 &&
        is_term_resized(size.ws_row, size.ws_col)) {
        resizeterm(size.ws_row, size.ws_col);
        clearok(curscr, TRUE);  // terminals wrap or drop lines as they like
    }
}

size_t LiveTerminal::Rows() const {
    return static_cast<size_t>(std::max(0, LINES));
}

size_t LiveTerminal::Columns() const {
    return static_cast<size_t>(std::max(0, COLS));
}

void LiveTerminal::Draw(const std::vector<Line>& screen) {
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || InBackground()) {
        return;
    }
    erase();
    for (size_t row = 0; row < std::min(screen.size(), Rows()); ++row) {
        size_t column = 0;
        for (const Span& span : screen[row]) {
            if (column >= Columns()) {
                break;
            }
            attr_set(AttributesOf(span.style), m_colour ? ColourOf(span.style) : 0, nullptr);
            mvaddstr(static_cast<int>(row), static_cast<int>(column),
                     Rendered(span.text, m_charset).c_str());
            column += span.columns;
        }
    }
    attr_set(A_NORMAL, 0, nullptr);
    refresh();
}

std::optional<Key> LiveTerminal::Read() {
    const int code = getch();
    if (code == ERR) {
        return std::nullopt;
    }
    return KeyOf(code);
}

}  // namespace corvane::program
