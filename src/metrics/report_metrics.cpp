#include "report_metrics.h"

#include <prometheus/client_metric.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <functional>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "utf8.h"
#include "version.h"

namespace corvane {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

using Labels = std::vector<std::pair<std::string, std::string>>;

struct Sample {
    Labels labels;
    double value;
};

constexpr double PERCENT = 100.0;
constexpr double BYTES_PER_MIB = 1024.0 * 1024.0;

double Ratio(uint64_t percent) {
    return static_cast<double>(percent) / PERCENT;
}

double Bytes(uint64_t mib) {
    return static_cast<double>(mib) * BYTES_PER_MIB;
}

/// One gauge of the exporter: what it is called, what it means, where its samples come from.
struct Gauge {
    const char* name;
    const char* help;
    std::function<std::vector<Sample>(const Report&)> samples;
};

/// A sample without labels, or none.
std::vector<Sample> One(bool measured, double value) {
    return measured ? std::vector<Sample>{{{}, value}} : std::vector<Sample>();
}

/// The samples of the rows that a predicate lets through, each labelled.
template <typename Row, typename Status, typename Label, typename Value>
std::vector<Sample> Each(const std::vector<Row>& rows, Status status, Label label, Value value) {
    std::vector<Sample> samples;
    for (const Row& row : rows) {
        if ((row.*status).HasFigures()) {
            samples.push_back({label(row), value(row)});
        }
    }
    return samples;
}

Labels OfDirectory(const DirectoryFigures& row) {
    return {{"directory", ValidUtf8(row.directory)}};
}

Labels OfDisk(const DirectoryFigures& row) {
    return {{"directory", ValidUtf8(row.directory)}, {"device", ValidUtf8(row.disk)}};
}

/// Without the pid: a process that is started anew goes on with its series.
Labels OfProcess(const ProcessFigures& row) {
    return {{"process", ValidUtf8(row.target)}, {"command", ValidUtf8(row.command)}};
}

std::vector<Sample> PidsOfProcesses(const Report& report) {
    std::vector<Sample> samples;
    for (const ProcessFigures& row : report.processes) {
        if (row.running) {
            Labels labels = OfProcess(row);
            labels.emplace_back("pid", std::to_string(row.pid));
            samples.push_back({std::move(labels), 1.0});
        }
    }
    return samples;
}

/// Without those that cannot be told: hidden ones, or with a pid file that cannot be read.
std::vector<Sample> RunningProcesses(const Report& report) {
    std::vector<Sample> samples;
    for (const ProcessFigures& row : report.processes) {
        if (row.running || row.cpu.state == FigureState::Absent) {
            samples.push_back({{{"process", ValidUtf8(row.target)}}, row.running ? 1.0 : 0.0});
        }
    }
    return samples;
}

double BusiestThread(const ProcessFigures& row) {
    return static_cast<double>(row.thread_peak_percent.value_or(0)) / PERCENT;
}

std::vector<Sample> EachInterface(const Report& report, uint64_t InterfaceFigures::*rate) {
    std::vector<Sample> samples;
    for (const InterfaceFigures& row : report.network.interfaces) {
        samples.push_back({{{"interface", ValidUtf8(row.name)}}, static_cast<double>(row.*rate)});
    }
    return samples;
}

const std::vector<Gauge>& Gauges() {
    static const std::vector<Gauge> gauges = {
        {"corvane_cpu_cores", "Cores whose utilisation is measured.",
         [](const Report& r) { return One(r.cpu.status.HasFigures(), r.cpu.core_number); }},
        {"corvane_cpu_busy_peak_cores",
         "Busy cores in the busiest cycle of the report interval, summed over the cores.",
         [](const Report& r) { return One(r.cpu.status.HasFigures(), Ratio(r.cpu.peak_percent)); }},
        {"corvane_cpu_busy_cores", "Busy cores in the latest tiny cycle, summed over the cores.",
         [](const Report& r) {
             return One(r.cpu.latest_percent.has_value(), Ratio(r.cpu.latest_percent.value_or(0)));
         }},
        {"corvane_cpu_core_busy_ratio", "Busy share of one core in the latest cycle, 0 to 1.",
         [](const Report& r) {
             std::vector<Sample> samples;
             for (const CoreFigures& core : r.cpu.cores) {
                 samples.push_back({{{"cpu", ValidUtf8(core.name)}}, Ratio(core.percent)});
             }
             return samples;
         }},
        {"corvane_memory_total_bytes", "Memory of the machine.",
         [](const Report& r) {
             return One(r.memory.status.HasFigures(), Bytes(r.memory.total_mib));
         }},
        {"corvane_memory_used_bytes",
         "Memory in use: neither free nor buffers nor cache; shared memory is in use.",
         [](const Report& r) {
             return One(r.memory.status.HasFigures(), Bytes(r.memory.used_mib));
         }},
        {"corvane_network_receive_peak_bytes_per_second",
         "Highest receive rate of one interface in a cycle of the report interval.",
         [](const Report& r) {
             return One(r.network.status.HasFigures(),
                        static_cast<double>(r.network.receive.bytes_per_second));
         }},
        {"corvane_network_transmit_peak_bytes_per_second",
         "Highest transmit rate of one interface in a cycle of the report interval.",
         [](const Report& r) {
             return One(r.network.status.HasFigures(),
                        static_cast<double>(r.network.transmit.bytes_per_second));
         }},
        {"corvane_network_receive_bytes_per_second",
         "Receive rate of one interface in the latest cycle.",
         [](const Report& r) {
             return EachInterface(r, &InterfaceFigures::receive_bytes_per_second);
         }},
        {"corvane_network_transmit_bytes_per_second",
         "Transmit rate of one interface in the latest cycle.",
         [](const Report& r) {
             return EachInterface(r, &InterfaceFigures::transmit_bytes_per_second);
         }},
        {"corvane_network_receive_packets_per_second",
         "Packets that one interface received per second in the latest cycle.",
         [](const Report& r) {
             return EachInterface(r, &InterfaceFigures::receive_packets_per_second);
         }},
        {"corvane_network_transmit_packets_per_second",
         "Packets that one interface transmitted per second in the latest cycle.",
         [](const Report& r) {
             return EachInterface(r, &InterfaceFigures::transmit_packets_per_second);
         }},
        {"corvane_directory_busy_ratio",
         "Share of the latest cycle in which the directory's disk had I/O in flight, 0 to 1.",
         [](const Report& r) {
             return Each(r.directories, &DirectoryFigures::io, OfDisk,
                         [](const auto& row) { return Ratio(row.busy_percent); });
         }},
        {"corvane_directory_operations_per_second",
         "Reads and writes that the directory's disk completed per second in the latest cycle.",
         [](const Report& r) {
             return Each(r.directories, &DirectoryFigures::io, OfDisk,
                         [](const auto& row) -> double { return row.operations_per_second; });
         }},
        {"corvane_directory_size_bytes", "Size of the file system that holds the directory.",
         [](const Report& r) {
             return Each(r.directories, &DirectoryFigures::space, OfDirectory,
                         [](const auto& row) { return static_cast<double>(row.total_bytes); });
         }},
        {"corvane_directory_used_bytes",
         "Used space of the file system that holds the directory, as df counts it.",
         [](const Report& r) {
             return Each(r.directories, &DirectoryFigures::space, OfDirectory,
                         [](const auto& row) { return static_cast<double>(row.used_bytes); });
         }},
        {"corvane_directory_available_bytes",
         "Space of the file system that an ordinary user can still take.",
         [](const Report& r) {
             return Each(r.directories, &DirectoryFigures::space, OfDirectory,
                         [](const auto& row) { return static_cast<double>(row.available_bytes); });
         }},
        {"corvane_watched_process_running", "1 when the process runs, 0 when it does not.",
         RunningProcesses},
        {"corvane_watched_process_info", "1; the label names the process's number.",
         PidsOfProcesses},
        {"corvane_watched_process_busy_peak_cores",
         "Busy cores of the process in its busiest cycle of the report interval.",
         [](const Report& r) {
             return Each(r.processes, &ProcessFigures::cpu, OfProcess, [](const auto& row) {
                 return static_cast<double>(row.cpu_peak_percent) / PERCENT;
             });
         }},
        {"corvane_watched_process_thread_busy_peak_ratio",
         "Busy share of one core of the process's busiest thread, 0 to 1, likewise.",
         [](const Report& r) {
             std::vector<Sample> samples;
             for (const ProcessFigures& row : r.processes) {
                 if (row.cpu.HasFigures() && row.thread_peak_percent) {
                     samples.push_back({OfProcess(row), BusiestThread(row)});
                 }
             }
             return samples;
         }},
        {"corvane_watched_process_resident_bytes", "Resident memory of the process.",
         [](const Report& r) {
             return Each(r.processes, &ProcessFigures::memory, OfProcess,
                         [](const auto& row) { return Bytes(row.resident_mib); });
         }},
        {"corvane_watched_process_virtual_bytes", "Virtual memory of the process.",
         [](const Report& r) {
             return Each(r.processes, &ProcessFigures::memory, OfProcess,
                         [](const auto& row) { return Bytes(row.virtual_mib); });
         }},
        {"corvane_collector_success",
         "1 when the collector measured in the latest cycle, 0 when its figures are absent or old.",
         [](const Report& r) {
             std::vector<Sample> samples;
             for (const Family& family : Families(r)) {
                 if (family.status.state != FigureState::Absent) {
                     samples.push_back({{{"collector", ValidUtf8(family.name)}},
                                        family.status.state == FigureState::Fresh ? 1.0 : 0.0});
                 }
             }
             return samples;
         }},
        {"corvane_report_interval_seconds", "Length of the interval that the peaks span.",
         [](const Report& r) { return One(true, static_cast<double>(r.interval_seconds)); }},
    };
    return gauges;
}

MetricFamily ToFamily(const char* name, const char* help, const std::vector<Sample>& samples) {
    MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = MetricType::Gauge;
    std::set<Labels> seen;  // names that differ only in bytes that are not UTF-8 become the same
    for (const Sample& sample : samples) {
        if (!seen.insert(sample.labels).second) {
            continue;
        }
        ClientMetric metric;
        for (const auto& [label, value] : sample.labels) {
            metric.label.push_back({label, value});
        }
        metric.gauge.value = sample.value;
        family.metric.push_back(std::move(metric));
    }
    return family;
}

}  // namespace

std::vector<MetricFamily> ToMetrics(const Report* report,
                                    std::chrono::steady_clock::time_point now) {
    std::vector<MetricFamily> families = {
        ToFamily("corvane_build_info", "1; the label names the version.",
                 {{{{"version", CORVANE_VERSION}}, 1.0}}),
        ToFamily("corvane_up", "1 when a report has been stored.",
                 {{{}, report == nullptr ? 0.0 : 1.0}})};
    if (report == nullptr) {
        return families;
    }
    const std::chrono::duration<double> age = now - report->measured_at;
    families.push_back(ToFamily("corvane_last_cycle_age_seconds",
                                "Time since the figures were measured.", {{{}, age.count()}}));
    for (const Gauge& gauge : Gauges()) {
        const std::vector<Sample> samples = gauge.samples(*report);
        if (!samples.empty()) {
            families.push_back(ToFamily(gauge.name, gauge.help, samples));
        }
    }
    return families;
}

void ReportMetrics::Store(std::shared_ptr<const Report> report) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_report.swap(report);
}

std::shared_ptr<const Report> ReportMetrics::Newest() const {
    if (m_latest) {
        return m_latest();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_report;
}

std::vector<MetricFamily> ReportMetrics::Collect() const {
    try {
        return ToMetrics(Newest().get(), std::chrono::steady_clock::now());
    } catch (const std::bad_alloc&) {
        return {};  // an exposer's thread lets nothing pass
    }
}

std::string ToPrometheusText(const Report* report, std::chrono::steady_clock::time_point now) {
    return prometheus::TextSerializer().Serialize(ToMetrics(report, now));
}

}  // namespace corvane
