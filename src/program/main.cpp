// corvane-monitor: shows how busy this machine and its processes are.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

#include "host_logging.h"
#include "live_view.h"
#include "monitor_loop.h"
#include "options.h"
#include "report_json.h"
#include "stop_signal.h"
#include "table_output.h"
#include "terminal_text.h"
#include "web_server.h"

namespace {

using namespace corvane;
using namespace corvane::program;

/// Where reports go: a screen, a web server, or lines on standard output.
class Outputs {
public:
    explicit Outputs(const Options& options)
        : m_format(options.format),
          m_colour(isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr) {
        if (options.web) {
            m_server = std::make_unique<WebServer>(*options.web);
            PrintNotes(m_server->Notes());
            fprintf(stderr, "corvane-monitor: page on %s/, metrics on %s/metrics\n",
                    m_server->Url().c_str(), m_server->Url().c_str());
        } else if (options.watch) {
            m_view = std::make_unique<LiveView>();
        }
    }

    bool TakesInput() const { return m_view != nullptr; }
    bool HandleInput() { return m_view->HandleInput(); }

    /// False when standard output is gone.
    bool Put(const Report& report) {
        if (m_view != nullptr) {
            m_view->Show(report);
            return true;
        }
        PrintNotes(report.notes);
        if (m_server != nullptr) {
            m_server->Store(std::make_shared<const Report>(report));
            return true;
        }
        const bool first = m_first;
        m_first = false;
        std::string text = ReportToJson(report) + "\n";
        if (m_format == OutputFormat::Table) {
            text = (first ? "" : "\n") + FormatTable(report, m_colour);
        }
        return fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0;
    }

    static void PrintNotes(const std::vector<std::string>& notes) {
        for (const std::string& note : notes) {
            fprintf(stderr, "corvane-monitor: %s\n", Printable(note).c_str());
        }
    }

private:
    OutputFormat m_format;
    bool m_colour;
    bool m_first = true;
    std::unique_ptr<WebServer> m_server;
    std::unique_ptr<LiveView> m_view;
};

int Run(const Options& options) {
    StopSignal stop_signal;
    HostLogCategory log(options.log_priority);
    MonitorLoop loop(*CorvaneCommon::CMonitorPhysicalUtil::GetInstance(), options.loop, &log,
                     Clock::now());
    Outputs::PrintNotes(loop.TakeNotes());
    Outputs outputs(options);
    uint64_t reports = 0;
    while (!options.count || reports < *options.count) {
        const Wake wake = stop_signal.Wait(loop.NextDue(), outputs.TakesInput());
        if (wake == Wake::Stop) {
            break;
        }
        if (wake == Wake::Input && !outputs.HandleInput()) {
            break;
        }
        if (const auto report = loop.RunDue(Clock::now())) {
            ++reports;
            if (!outputs.Put(*report)) {
                return EXIT_FAILURE;
            }
        }
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const CommandLine command_line = ParseCommandLine(argc, argv);
        if (!command_line.options) {
            fputs(command_line.text.c_str(), command_line.exit_status == 0 ? stdout : stderr);
            return command_line.exit_status;
        }
        signal(SIGPIPE, SIG_IGN);
        return Run(*command_line.options);
    } catch (const std::exception& error) {
        fprintf(stderr, "corvane-monitor: %s\n", Printable(error.what()).c_str());
        return EXIT_FAILURE;
    }
}
