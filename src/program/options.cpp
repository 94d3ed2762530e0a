#include "options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <limits>

#include "host_logging.h"
#include "path_probe.h"
#include "terminal_text.h"
#include "version.h"

namespace corvane::program {

namespace {

constexpr uint64_t MAX_SECONDS = 86400;
constexpr uint64_t MAX_COUNT = std::numeric_limits<uint64_t>::max();
constexpr uint64_t MAX_PID = std::numeric_limits<pid_t>::max();
constexpr uint64_t DEFAULT_SCRAPE_SECONDS = 15;  // what Prometheus servers are often set to
constexpr long MAX_CORES_BY_DEFAULT = 32;        // more are asked for with --cores
constexpr size_t MAX_INTERFACE_NAME = 15;        // the kernel's IFNAMSIZ without the NUL
constexpr std::chrono::seconds TIME_TO_ANSWER{1};
constexpr int USAGE_ERROR = 2;

bool IsNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// Refuses what is no whole number from 1 to `most`; always decimal, also behind zeros.
std::string CheckNumber(std::string& text, uint64_t most) {
    uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const bool fits = IsNumber(text) && std::from_chars(text.data(), end, value).ec == std::errc();
    if (!fits || value < 1 || value > most) {
        const std::string range =
            most == MAX_COUNT ? " from 1 on: " : " from 1 to " + std::to_string(most) + ": ";
        return "not a whole number" + range + text;
    }
    text = std::to_string(value);
    return "";
}

CLI::Validator UpTo(uint64_t most) {
    return {[most](std::string& text) { return CheckNumber(text, most); }, ""};
}

std::string CheckLogLevel(const std::string& name) {
    int32_t priority = 0;
    return LogPriorityFromName(name, priority)
               ? ""
               : "not a log level: " + name +
                     " (off, fatal, alert, crit, error, warn, notice, info, debug, trace)";
}

std::string CheckPid(std::string& text) {
    std::string error = CheckNumber(text, MAX_PID);
    if (!error.empty()) {
        return error;
    }
    const bool is_gone = kill(static_cast<pid_t>(std::stol(text)), 0) != 0 && errno == ESRCH;
    return is_gone ? "process " + text + " does not exist" : "";
}

/// Whether a path is there. One that does not answer in time passes: the service tells that, and
/// watches the rest.
std::string CheckDirectory(const std::string& path) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // signals are not for a thread that may hang
    PathProbe probe(AskSpace, path);
    probe.Ask(Clock::now());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    const auto answer = probe.Take(Clock::now() + TIME_TO_ANSWER);
    if (!answer || answer->trouble.text.empty()) {
        return "";
    }
    return answer->trouble.error_number == ENOENT ? "does not exist: " + path
                                                  : answer->trouble.text;
}

std::string CheckInterface(const std::string& name) {
    return !name.empty() && name.size() <= MAX_INTERFACE_NAME ? ""
                                                              : "not an interface's name: " + name;
}

std::string CheckNotEmpty(const std::string& text) {
    return text.empty() ? "an empty name" : "";
}

std::string CheckAddress(const std::string& text) {
    return ParseListenAddress(text) ? ""
                                    : "not one address to listen on: " + text +
                                          " (ADDRESS:PORT, [IPV6]:PORT, :PORT or PORT; no names)";
}

std::string CheckFormat(const std::string& name) {
    return name == "table" || name == "json" ? "" : "not a format: " + name + " (table, json)";
}

/// Text on one line, for an error.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return Printable(text);
}

/// "--pid 1 1149": whether a number stands alone where a second process may be meant.
bool IsAmbiguous(int argc, const char* const* argv) {
    for (int i = 1; i + 2 < argc; ++i) {
        if (std::string(argv[i]) == "--pid" && IsNumber(argv[i + 2])) {
            return true;
        }
    }
    return false;
}

}  // namespace

CommandLine ParseCommandLine(int argc, const char* const* argv) {
    Options options;
    ServiceSettings& service = options.service;
    uint64_t interval = 0;
    uint64_t count = 0;
    uint64_t cycle = 1;
    uint64_t tiny_cycle = 1;
    bool cores = false;
    bool no_cores = false;
    std::string listen;
    WebSettings web;
    std::string log_level = "off";
    std::string format = "table";

    CLI::App app(
        "Shows how busy this machine and its processes are: CPU, memory, network, disks.\n"
        "Without arguments one report after one second.",
        "corvane-monitor");
    const auto* const interval_option =
        app.add_option("INTERVAL", interval, "seconds between reports, 1 to 86400")
            ->check(UpTo(MAX_SECONDS))
            ->option_text(" ");
    const auto* const count_option =
        app.add_option("COUNT", count, "end after so many reports, 1 or more")
            ->check(UpTo(MAX_COUNT))
            ->option_text(" ");
    const auto add_process = [&](const char* name, ProcessTarget::Kind kind, const char* help) {
        const auto add = [&service, kind](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
                service.processes.push_back({kind, text});
            }
        };
        return app.add_option_function<std::vector<std::string>>(name, add, help)
            ->allow_extra_args(false);
    };
    add_process("--pid", ProcessTarget::Kind::Pid,
                "watch a process, or several: A,B; repeatable (default: itself)")
        ->delimiter(',')
        ->check(CLI::Validator(CheckPid, ""))
        ->option_text("PID[,PID]...");
    add_process("--pid-file", ProcessTarget::Kind::PidFile,
                "watch the process whose number stands in a file, also after a\n"
                "restart; repeatable")
        ->check(CLI::Validator(CheckNotEmpty, ""))
        ->option_text("PATH");
    add_process("--unit", ProcessTarget::Kind::Unit,
                "watch the main process of a systemd unit, also after a restart;\n"
                "repeatable")
        ->check(CLI::Validator(CheckNotEmpty, ""))
        ->option_text("NAME");
    app.add_option("--dir", service.directories,
                   "watch the disk and space behind a directory; repeatable (default: /)")
        ->allow_extra_args(false)
        ->check(CLI::Validator(CheckDirectory, ""))
        ->option_text("PATH");
    auto* const interface_option =
        app.add_option("--interface", service.interfaces,
                       "measure a network interface; repeatable (default: all but the\n"
                       "loopback)")
            ->allow_extra_args(false)
            ->check(CLI::Validator(CheckInterface, ""))
            ->option_text("NAME");
    app.add_flag("--compatible", service.compatible,
                 "read the kernel's files as the library does by default, with its\n"
                 "limits (see the guide)")
        ->excludes(interface_option);
    app.add_option("--cycle", cycle, "between measurements, 1 to 86400; peaks are over these (1)")
        ->check(UpTo(MAX_SECONDS))
        ->option_text("SECONDS");
    app.add_option("--tiny-cycle", tiny_cycle,
                   "between measurements of what is 'now', 1 to 86400 (1)")
        ->check(UpTo(MAX_SECONDS))
        ->option_text("SECONDS");
    auto* const cores_flag =
        app.add_flag("--cores", cores, "a figure per core (default up to 32 cores)");
    app.add_flag("--no-cores", no_cores, "no figure per core")->excludes(cores_flag);
    auto* const format_option =
        app.add_option("--format", format, "table, or json: one object a line")
            ->check(CLI::Validator(CheckFormat, "table|json"))
            ->option_text("table|json");
    auto* const watch_flag =
        app.add_flag("--watch", options.watch, "full-screen view with graphs; q quits")
            ->excludes(format_option);
    auto* const listen_option =
        app.add_option("--listen", listen,
                       "a page, and metrics for a Prometheus server, on ADDRESS:PORT;\n"
                       "nothing printed; without an address on the loopback only")
            ->check(CLI::Validator(CheckAddress, ""))
            ->option_text("ADDRESS:PORT")
            ->excludes(watch_flag)
            ->excludes(format_option);
    auto* const certificate_option =
        app.add_option("--tls-cert", web.tls_certificate, "the server's certificate, PEM")
            ->needs(listen_option)
            ->option_text("FILE");
    auto* const key_option = app.add_option("--tls-key", web.tls_key, "its key, PEM")
                                 ->needs(certificate_option)
                                 ->option_text("FILE");
    certificate_option->needs(key_option);
    app.add_option("--web-password-file", web.password_file,
                   "who may read: lines USER:HASH, as 'openssl passwd -6' makes it")
        ->needs(listen_option)
        ->option_text("FILE");
    auto* const log_level_option =
        app.add_option(
               "--log-level", log_level,
               "write the monitor's records: off, fatal, alert, crit, error, warn, notice,\n"
               "info, debug or trace (off)")
            ->check(CLI::Validator(CheckLogLevel, ""))
            ->option_text("LEVEL");
    app.add_option("--log-file", options.log_file,
                   "append them to a file (default: standard error)")
        ->check(CLI::Validator(CheckNotEmpty, ""))
        ->needs(log_level_option)
        ->option_text("PATH");
    app.set_version_flag("-V,--version", "corvane-monitor " CORVANE_VERSION);

    try {
        app.parse(argc, argv);
        if (count_option->count() == 0 && IsAmbiguous(argc, argv)) {
            throw CLI::ValidationError("--pid",
                                       "is the number after it the INTERVAL, or a process? Write "
                                       "the INTERVAL first, or processes as A,B");
        }
        if (interval_option->count() == 0) {
            interval = listen_option->count() > 0 ? DEFAULT_SCRAPE_SECONDS : 1;
        }
        if (cycle > interval || tiny_cycle > interval) {
            throw CLI::ValidationError("--cycle, --tiny-cycle", "longer than the INTERVAL");
        }
        LogPriorityFromName(log_level, options.log_priority);
        if (options.watch && options.log_priority >= 0 && options.log_file.empty() &&
            isatty(STDERR_FILENO) != 0) {
            throw CLI::ValidationError("--log-level", "with --watch it needs a --log-file");
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            const bool version = dynamic_cast<const CLI::CallForVersion*>(&error) != nullptr;
            return {{}, version ? std::string(error.what()) + "\n" : app.help(), 0};
        }
        return {{}, "corvane-monitor: " + OneLine(error.what()) + " (see --help)\n", USAGE_ERROR};
    }

    service.report_interval = std::chrono::seconds(interval);
    service.cycle = std::chrono::seconds(cycle);
    service.tiny_cycle = std::chrono::seconds(tiny_cycle);
    if (count_option->count() > 0) {
        options.count = count;
    } else if (interval_option->count() == 0 && !options.watch && listen.empty()) {
        options.count = 1;
    }
    service.cores = cores || (!no_cores && sysconf(_SC_NPROCESSORS_ONLN) <= MAX_CORES_BY_DEFAULT);
    if (service.directories.empty()) {
        service.directories.emplace_back("/");
    }
    if (const auto address = ParseListenAddress(listen)) {
        web.address = *address;
        options.web = web;
    }
    options.format = format == "json" ? OutputFormat::Json : OutputFormat::Table;
    return {options, "", 0};
}

}  // namespace corvane::program
