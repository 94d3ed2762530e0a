// corvane-monitor: shows how busy this machine and its processes are.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "host_logging.h"
#include "inbox.h"
#include "live_terminal.h"
#include "live_view.h"
#include "monitor_service.h"
#include "options.h"
#include "report_json.h"
#include "stop_signal.h"
#include "table_output.h"
#include "terminal_text.h"
#include "web_server.h"

namespace {

using namespace corvane;
using namespace corvane::program;

constexpr std::chrono::seconds LONG_WAIT{10};  // a user who sees nothing that long wonders

void PrintOut(const std::string& text) {
    if (fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
    }
}

void PrintNote(const std::string& note) {
    try {
        fprintf(stderr, "corvane-monitor: %s\n", Printable(note).c_str());
    } catch (const std::bad_alloc&) {
        fputs("corvane-monitor: not enough memory\n", stderr);
    }
}

/// Prints each note when it begins to hold.
class Notes {
public:
    void Print(const std::vector<std::string>& notes) {
        for (const std::string& note : notes) {
            if (std::find(m_held.begin(), m_held.end(), note) == m_held.end()) {
                PrintNote(note);
            }
        }
        m_held = notes;
    }

private:
    std::vector<std::string> m_held;
};

/// Where reports go: a screen, a web server, or lines on standard output.
class Outputs {
public:
    Outputs(const Options& options, HostLogCategory& log)
        : m_log(log),
          m_format(options.format),
          m_colour(isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr) {
        if (options.web) {
            m_server = std::make_unique<WebServer>(*options.web);
            m_notes.Print(m_server->Notes());
            PrintNote("page on " + m_server->Url() + "/, metrics on " + m_server->Url() +
                      "/metrics");
        } else if (options.watch) {
            m_view = std::make_unique<LiveView>();
            m_log.Redirect([this](const std::string& line) { m_view->AddLogLine(line); });
        } else if (isatty(STDERR_FILENO) != 0 && options.service.report_interval >= LONG_WAIT) {
            PrintNote("the first report comes in " +
                      std::to_string(options.service.report_interval.count()) + " s");
        }
    }

    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;
    ~Outputs() { m_log.Redirect({}); }

    bool TakesInput() const { return m_view != nullptr; }
    bool HandleInput() { return m_view->HandleInput(); }

    /// Says what the user should know, beside the reports.
    void Tell(const std::string& text) {
        if (m_view != nullptr) {
            m_view->AddLogLine(text);
        } else {
            PrintNote(text);
        }
    }

    /// To be called about once a second.
    void Tick() {
        if (m_view != nullptr) {
            m_view->Tick();
        }
    }

    /// @throws std::system_error standard output cannot be written to
    void Put(const std::shared_ptr<const Report>& report) {
        if (m_view != nullptr) {
            m_view->Show(report);
            return;
        }
        m_notes.Print(report->notes);
        if (m_server != nullptr) {
            m_server->Store(report);
            return;
        }
        if (m_format == OutputFormat::Json) {
            PrintOut(ReportToJson(*report) + "\n");
            return;
        }
        PrintOut((m_first ? "" : "\n") + FormatTable(*report, m_colour));
        m_first = false;
    }

private:
    HostLogCategory& m_log;
    OutputFormat m_format;
    bool m_colour;
    bool m_first = true;
    Notes m_notes;
    std::unique_ptr<WebServer> m_server;
    std::unique_ptr<LiveView> m_view;
};

/// Shows what waits in the inbox. False: the user, or the number of reports, asks for the end.
bool PutReports(Inbox& inbox, Outputs& outputs, const std::optional<uint64_t>& count,
                uint64_t& reports) {
    if (const uint64_t dropped = inbox.TakeDropped()) {
        outputs.Tell(std::to_string(dropped) + " reports are lost: the output was held up");
    }
    while (!inbox.IsStopped()) {
        const auto report = inbox.Take();
        if (report == nullptr) {
            return true;
        }
        ++reports;
        outputs.Put(report);
        if (reports == count) {
            return false;
        }
    }
    return false;
}

/// Until the end that the user asks for.
void ShowReports(Inbox& inbox, Outputs& outputs, const std::optional<uint64_t>& count) {
    uint64_t reports = 0;
    for (bool go_on = true; go_on;) {
        const Inbox::Wake wake = inbox.Wait(outputs.TakesInput());
        try {
            if (wake == Inbox::Wake::Tick) {
                outputs.Tick();
            }
            go_on = wake != Inbox::Wake::TerminalGone &&
                    (wake != Inbox::Wake::Input || outputs.HandleInput()) &&
                    PutReports(inbox, outputs, count, reports);
        } catch (const std::bad_alloc&) {
            if (!outputs.TakesInput()) {  // not over the view
                fputs("corvane-monitor: a report is lost: not enough memory\n", stderr);
            }
            go_on = reports != count;
        }
    }
}

void Run(const Options& options) {
    const auto inbox = std::make_shared<Inbox>();
    OnStopSignal([inbox] { inbox->Stop(); }, RestoreTerminalAtOnce);
    // A thread that a file holds up at the end may still log.
    static auto* const log = new HostLogCategory(options.log_priority, options.log_file);
    Outputs outputs(options, *log);
    ServiceSettings settings = options.service;
    settings.log = log;
    settings.on_report = [inbox](const std::shared_ptr<const Report>& report) {
        inbox->Put(report);
    };
    const MonitorService service(std::move(settings));
    ShowReports(*inbox, outputs, options.count);
}

/// Where an allocation fails that nothing can catch: before main(), as libraries allocate when they
/// are loaded.
void OnTerminate() {
    try {
        if (const std::exception_ptr error = std::current_exception()) {
            std::rethrow_exception(error);
        }
    } catch (const std::bad_alloc&) {
        fputs("corvane-monitor: not enough memory\n", stderr);
        _exit(EXIT_FAILURE);
    } catch (...) {  // a fault of the program, which leaves a core
    }
    abort();
}

[[gnu::constructor(101)]] void HandleTerminate() {  // the first of all
    std::set_terminate(OnTerminate);
}

/// What is opened later must not become standard output by taking its number.
void OccupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            (void)open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        OccupyStandardDescriptors();
        signal(SIGPIPE, SIG_IGN);
        const CommandLine command_line = ParseCommandLine(argc, argv);
        if (command_line.options) {
            Run(*command_line.options);
        } else if (command_line.exit_status == EXIT_SUCCESS) {
            PrintOut(command_line.text);
        } else {
            fputs(command_line.text.c_str(), stderr);
        }
        return command_line.exit_status;
    } catch (const std::bad_alloc&) {
        fputs("corvane-monitor: not enough memory\n", stderr);
        return EXIT_FAILURE;
    } catch (const std::exception& error) {
        PrintNote(error.what());
        return EXIT_FAILURE;
    }
}
