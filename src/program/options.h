// The program's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "monitor_service.h"
#include "web_server.h"

namespace corvane::program {

enum class OutputFormat { Table, Json };

struct Options {
    ServiceSettings service;        ///< without log and callback
    std::optional<uint64_t> count;  ///< reports at most; empty: until stopped
    OutputFormat format = OutputFormat::Table;
    bool watch = false;
    std::optional<WebSettings> web;  ///< empty: no web server
    int32_t log_priority = -1;       ///< least urgent priority logged; -1: none
    std::string log_file;            ///< empty: standard error
};

/// What to do with a command line: run with the options, or print a text and end.
struct CommandLine {
    std::optional<Options> options;
    std::string text;     ///< help or version for standard output, or one line of error
    int exit_status = 0;  ///< 0, or 2 for a bad argument
};

/// Checks what can be checked at once; a directory that does not answer is left to the service.
CommandLine ParseCommandLine(int argc, const char* const* argv);

}  // namespace corvane::program
