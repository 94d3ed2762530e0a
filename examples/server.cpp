// A server that tells its load in its log and as metrics: server DIRECTORY ADDRESS:PORT SECONDS
#include <prometheus/exposer.h>

#include <atomic>
#include <future>
#include <iostream>
#include <thread>

#include "host_logging.h"
#include "monitor_service.h"
#include "report_json.h"
#include "report_metrics.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv, argv + argc);
    HostLogCategory log(LOG_PRIORITY_WARN);  // for the monitor's own records
    corvane::ServiceSettings settings;       // this process, all interfaces
    settings.directories = {arguments.at(1)};
    settings.report_interval = std::chrono::seconds(std::stoi(arguments.at(3)));
    settings.log = &log;
    settings.on_report = [](const std::shared_ptr<const corvane::Report>& report) {
        std::cout << corvane::ReportToJson(*report) << std::endl;
    };
    const corvane::MonitorService service(settings);
    const auto metrics = std::make_shared<corvane::ReportMetrics>(service);
    prometheus::Exposer exposer(arguments.at(2));
    exposer.RegisterCollectable(metrics);
    std::cout << "metrics on port " << exposer.GetListeningPorts().front() << std::endl;

    std::atomic<bool> running{true};
    const auto work = [&running](std::chrono::milliseconds pause) {
        while (running)
            std::this_thread::sleep_for(pause);
    };
    const auto busy = std::async(std::launch::async, work, std::chrono::milliseconds(0));
    const auto lazy = std::async(std::launch::async, work, std::chrono::milliseconds(10));
    std::cin.get();  // until its input ends
    running = false;
}
