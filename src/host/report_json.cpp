#include "report_json.h"

#include <algorithm>
#include <ctime>

#include "json_text.h"

namespace corvane {

namespace {

using Json = JsonText;

constexpr uint64_t PERCENT = 100;

template <typename Value>
Json Figure(const FamilyStatus& status, const Value& value) {
    return status.HasFigures() ? Json(value) : Json();
}

template <typename Value>
Json Optional(const FamilyStatus& status, const std::optional<Value>& value) {
    return status.HasFigures() && value ? Json(*value) : Json();
}

Json Name(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

std::string UtcTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc = {};
    gmtime_r(&seconds, &utc);
    char text[32] = {};
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

template <typename Row>
Json Rows(const std::vector<Row>& rows, Json (*to_json)(const Row&)) {
    std::vector<Json> all(rows.size());
    std::transform(rows.begin(), rows.end(), all.begin(), to_json);
    return Json::Array(all);
}

Json CoreJson(const CoreFigures& core) {
    return Json::Object({{"name", core.name}, {"percent", core.percent}});
}

Json CpuJson(const CpuFigures& cpu) {
    return Json::Object({{"core_number", cpu.core_number},
                         {"limit_percent", PERCENT * cpu.core_number},
                         {"peak_percent", Figure(cpu.status, cpu.peak_percent)},
                         {"latest_percent", Optional(cpu.status, cpu.latest_percent)},
                         {"cores", Rows(cpu.cores, CoreJson)}});
}

Json MemoryJson(const MemoryFigures& memory) {
    return Json::Object({{"used_mib", Figure(memory.status, memory.used_mib)},
                         {"total_mib", Figure(memory.status, memory.total_mib)}});
}

Json PeakJson(const FamilyStatus& status, const TrafficPeak& peak) {
    return Json::Object({{"peak_bytes_per_second", Figure(status, peak.bytes_per_second)},
                         {"interface", status.HasFigures() ? Name(peak.interface) : Json()}});
}

Json InterfaceJson(const InterfaceFigures& row) {
    return Json::Object({{"name", row.name},
                         {"receive_bytes_per_second", row.receive_bytes_per_second},
                         {"transmit_bytes_per_second", row.transmit_bytes_per_second},
                         {"receive_packets_per_second", row.receive_packets_per_second},
                         {"transmit_packets_per_second", row.transmit_packets_per_second}});
}

Json NetworkJson(const NetworkFigures& network) {
    return Json::Object({{"receive", PeakJson(network.status, network.receive)},
                         {"transmit", PeakJson(network.status, network.transmit)},
                         {"interfaces", Rows(network.interfaces, InterfaceJson)}});
}

Json DirectoryJson(const DirectoryFigures& row) {
    return Json::Object({{"directory", row.directory},
                         {"disk", Name(row.disk)},
                         {"busy_percent", Figure(row.io, row.busy_percent)},
                         {"operations_per_second", Figure(row.io, row.operations_per_second)},
                         {"used_bytes", Figure(row.space, row.used_bytes)},
                         {"available_bytes", Figure(row.space, row.available_bytes)},
                         {"total_bytes", Figure(row.space, row.total_bytes)}});
}

Json ProcessJson(const ProcessFigures& row) {
    return Json::Object(
        {{"process", row.target},
         {"running", row.running},
         {"pid", row.pid == 0 ? Json() : Json(row.pid)},
         {"command", Name(row.command)},
         {"cpu_peak_percent", Figure(row.cpu, row.cpu_peak_percent)},
         {"busiest_thread_peak_percent", Optional(row.cpu, row.thread_peak_percent)},
         {"resident_mib", Figure(row.memory, row.resident_mib)},
         {"virtual_mib", Figure(row.memory, row.virtual_mib)}});
}

Json NamesOf(const std::vector<Family>& families, FigureState state) {
    std::vector<Json> names;
    for (const Family& family : families) {
        if (family.status.state == state) {
            names.emplace_back(family.name);
        }
    }
    return Json::Array(names);
}

Json Reasons(const std::vector<Family>& families) {
    std::vector<Json::Member> reasons;
    for (const Family& family : families) {
        if (!family.status.reason.empty()) {
            reasons.emplace_back(family.name, family.status.reason);
        }
    }
    return Json::Object(reasons);
}

}  // namespace

std::string ReportToJson(const Report& report) {
    const std::vector<Family> families = Families(report);
    return Json::Object({{"time", UtcTime(report.time)},
                         {"interval_seconds", report.interval_seconds},
                         {"cpu", CpuJson(report.cpu)},
                         {"memory", MemoryJson(report.memory)},
                         {"network", NetworkJson(report.network)},
                         {"directories", Rows(report.directories, DirectoryJson)},
                         {"processes", Rows(report.processes, ProcessJson)},
                         {"stale", NamesOf(families, FigureState::Stale)},
                         {"failed", NamesOf(families, FigureState::Failed)},
                         {"reasons", Reasons(families)},
                         {"notes", Json::Array({report.notes.begin(), report.notes.end()})}})
        .Text();
}

}  // namespace corvane
