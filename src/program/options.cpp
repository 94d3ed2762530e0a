#include "options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "host_logging.h"
#include "kernel_names.h"
#include "terminal_text.h"
#include "version.h"

namespace corvane::program {

namespace {

using CorvaneCommon::CMonitorPhysicalUtil;

constexpr uint64_t MAX_SECONDS = 86400;
constexpr uint64_t DEFAULT_SCRAPE_SECONDS = 15;  // what Prometheus servers are often set to
constexpr size_t MAX_CORES_BY_DEFAULT = 32;      // more are asked for with --cores
constexpr int USAGE_ERROR = 2;

std::string CheckLogLevel(const std::string& name) {
    int32_t priority = 0;
    return LogPriorityFromName(name, priority)
               ? ""
               : "not a log level: " + name +
                     " (off, fatal, alert, crit, error, warn, notice, info, debug, trace)";
}

std::string CheckDirectory(const std::string& path) {
    return CMonitorPhysicalUtil::IsFileExist(path.c_str()) ? "" : "does not exist: " + path;
}

std::string CheckAddress(const std::string& text) {
    return ParseListenAddress(text)
               ? ""
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

/// Each value once: what is watched twice would be measured against itself.
template <typename Value>
void DropRepeated(std::vector<Value>& values) {
    std::vector<Value> once;
    for (Value& value : values) {
        if (std::find(once.begin(), once.end(), value) == once.end()) {
            once.push_back(std::move(value));
        }
    }
    values.swap(once);
}

}  // namespace

CommandLine ParseCommandLine(int argc, const char* const* argv) {
    Options options;
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
    const CLI::Range seconds(uint64_t{1}, MAX_SECONDS);
    const auto* const interval_option =
        app.add_option("INTERVAL", interval, "a report every INTERVAL seconds")->check(seconds);
    const auto* const count_option = app.add_option("COUNT", count, "reports at most")
                                         ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
    app.add_option("--pid", options.loop.pids, "watch a process; repeatable (default: itself)")
        ->allow_extra_args(false)
        ->delimiter(',')
        ->check(CLI::Range(uint32_t{1}, UINT32_MAX));
    app.add_option("--dir", options.loop.directories,
                   "watch the disk behind a directory; repeatable (default: /)")
        ->allow_extra_args(false)
        ->check(CLI::Validator(CheckDirectory, "PATH"));
    app.add_option("--cycle", cycle, "seconds between measurements; peaks are over these")
        ->check(seconds)
        ->capture_default_str();
    app.add_option("--tiny-cycle", tiny_cycle, "seconds between measurements of what is 'now'")
        ->check(seconds)
        ->capture_default_str();
    auto* const cores_flag = app.add_flag("--cores", cores, "a figure per core (default up to 32)");
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
            ->check(CLI::Validator(CheckAddress, "ADDRESS:PORT"))
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
    app.add_option("--log-level", log_level, "log the monitor's records to standard error")
        ->check(CLI::Validator(CheckLogLevel, "LEVEL"))
        ->capture_default_str();
    app.set_version_flag("-V,--version", "corvane-monitor " CORVANE_VERSION);

    try {
        app.parse(argc, argv);
        if (interval_option->count() == 0) {
            interval = listen_option->count() > 0 ? DEFAULT_SCRAPE_SECONDS : 1;
        }
        if (cycle > interval || tiny_cycle > interval) {
            throw CLI::ValidationError("--cycle, --tiny-cycle", "longer than the INTERVAL");
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            const bool version = dynamic_cast<const CLI::CallForVersion*>(&error) != nullptr;
            return {{}, version ? std::string(error.what()) + "\n" : app.help(), 0};
        }
        return {{}, "corvane-monitor: " + OneLine(error.what()) + " (see --help)\n", USAGE_ERROR};
    }

    options.loop.report_interval = std::chrono::seconds(interval);
    options.loop.cycle = std::chrono::seconds(cycle);
    options.loop.tiny_cycle = std::chrono::seconds(tiny_cycle);
    if (count_option->count() > 0) {
        options.count = count;
    } else if (interval_option->count() == 0 && !options.watch && listen.empty()) {
        options.count = 1;
    }
    options.loop.cores = cores || (!no_cores && CoreNames(ReadWholeFile("/proc/stat")).size() <=
                                                    MAX_CORES_BY_DEFAULT);
    if (options.loop.pids.empty()) {
        options.loop.pids.push_back(static_cast<uint32_t>(getpid()));
    }
    if (options.loop.directories.empty()) {
        options.loop.directories.emplace_back(
            CMonitorPhysicalUtil::GetInstance()->GetDefaultDiskFilePath());
    }
    if (const auto address = ParseListenAddress(listen)) {
        web.address = *address;
        options.web = web;
    }
    DropRepeated(options.loop.pids);
    DropRepeated(options.loop.directories);
    options.format = format == "json" ? OutputFormat::Json : OutputFormat::Table;
    LogPriorityFromName(log_level, options.log_priority);
    return {options, "", 0};
}

}  // namespace corvane::program
