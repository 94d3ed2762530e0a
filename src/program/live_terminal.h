// A terminal for lines of styled text, drawn with ncurses.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "live_cells.h"

namespace corvane::program {

enum class Key {
    Quit,
    Help,
    Pause,
    Cores,
    Up,
    Down,
    PageUp,
    PageDown,
    Home,
    End,
    NextPart,
    Resized,
    Other
};

/// Owns the terminal while it lives; the destructor restores it, and so does the end of the process
/// by a signal that can be handled. One at a time.
class LiveTerminal {
public:
    /// @throws std::runtime_error standard input or output is no terminal, or its type (TERM) is
    ///         not known or cannot place text; the terminal is untouched then
    LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;
    ~LiveTerminal();

    /// Follows a change of size.
    void UpdateSize();
    size_t Rows() const;
    size_t Columns() const;

    /// Draws what changed since the last time. Lines beyond the size are left out. Nothing happens
    /// while the terminal takes no output, or is left to others.
    void Draw(const std::vector<Line>& screen);

    /// What was typed, without waiting; empty: nothing more.
    std::optional<Key> Read();

private:
    Charset m_charset = Charset::Ascii;
    bool m_colour = false;
};

/// For an end of the process without the destructor, from any thread or signal handler: restores
/// the terminal as far as that goes without waiting. Without a LiveTerminal it does nothing.
void RestoreTerminalAtOnce();

}  // namespace corvane::program
