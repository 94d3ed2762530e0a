#include "terminal_type.h"

#include <ncurses.h>
#include <term.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace corvane::program {

namespace {

/// What the terminal takes for a capability, without pauses; empty: it has none.
std::string Capability(const char* name) {
    const char* const found = tigetstr(name);
    if (found == nullptr || reinterpret_cast<intptr_t>(found) == -1) {
        return "";
    }
    std::string text = found;
    for (size_t pause = text.find("$<"); pause != std::string::npos; pause = text.find("$<")) {
        text.erase(pause, text.find('>', pause) - pause + 1);
    }
    return text;
}

}  // namespace

std::string TerminalTypeRestoreText() {
    const char* const name = getenv("TERM");
    if (name == nullptr || *name == '\0') {
        throw std::runtime_error("--watch: the terminal's type is not set (TERM)");
    }
    int error = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
        throw std::runtime_error(std::string("--watch: no terminal type is known by the name of ") +
                                 name + " (TERM)");
    }
    const bool usable = !Capability("cup").empty() && !Capability("clear").empty();
    const std::string screen = Capability("rmcup");
    std::string restore = Capability("sgr0") + Capability("rmkx") + Capability("cnorm") +
                          (screen.empty() ? "\r\n" : screen);
    del_curterm(cur_term);
    if (!usable) {
        throw std::runtime_error(std::string("--watch: a terminal of type ") + name +
                                 " cannot place text (TERM)");
    }
    return restore;
}

}  // namespace corvane::program
