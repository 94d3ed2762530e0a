#include "json_output.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "text_safety.h"

namespace corvane_host {

namespace {

using Json = nlohmann::ordered_json;

constexpr uint64_t PERCENT = 100;

template <typename Value>
Json Figure(FigureState state, const Value& value) {
    return state == FigureState::Failed ? Json() : Json(value);
}

std::string UtcTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc = {};
    gmtime_r(&seconds, &utc);
    char text[32] = {};
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

Json CpuJson(const CpuFigures& cpu) {
    Json cores = Json::array();
    for (const CoreFigures& core : cpu.cores) {
        cores.push_back({{"name", ValidUtf8(core.name)}, {"percent", core.percent}});
    }
    return {{"core_number", cpu.core_number},
            {"limit_percent", PERCENT * cpu.core_number},
            {"peak_percent", Figure(cpu.state, cpu.peak_percent)},
            {"latest_percent", cpu.latest_percent ? Json(*cpu.latest_percent) : Json()},
            {"cores", cores}};
}

Json PeakJson(FigureState state, const NetworkPeak& peak) {
    return {{"peak_megabits_per_second", Figure(state, peak.megabits_per_second)},
            {"interface", state == FigureState::Failed || peak.interface.empty()
                              ? Json()
                              : Json(ValidUtf8(peak.interface))}};
}

Json NetworkJson(const NetworkFigures& network) {
    Json eth1;
    if (network.eth1) {
        eth1 = {{"receive_megabits_per_second", network.eth1->receive_megabits_per_second},
                {"transmit_megabits_per_second", network.eth1->transmit_megabits_per_second},
                {"receive_packets_per_second", network.eth1->receive_packets_per_second},
                {"transmit_packets_per_second", network.eth1->transmit_packets_per_second}};
    }
    return {{"receive", PeakJson(network.state, network.receive)},
            {"transmit", PeakJson(network.state, network.transmit)},
            {"eth1", eth1}};
}

Json DirectoryJson(const DirectoryFigures& row) {
    return {{"directory", ValidUtf8(row.directory)},
            {"disk", row.disk.empty() ? Json() : Json(ValidUtf8(row.disk))},
            {"busy_percent", Figure(row.io_state, row.busy_percent)},
            {"operations_per_second", Figure(row.io_state, row.operations_per_second)},
            {"used_mib", Figure(row.space_state, row.used_mib)},
            {"total_mib", Figure(row.space_state, row.total_mib)}};
}

Json ProcessJson(const ProcessFigures& row) {
    return {{"pid", row.pid},
            {"command", ValidUtf8(row.command)},
            {"gone", row.gone},
            {"cpu_peak_percent", Figure(row.cpu_state, row.cpu_peak_percent)},
            {"busiest_thread_peak_percent", Figure(row.cpu_state, row.thread_peak_percent)},
            {"resident_mib", Figure(row.memory_state, row.resident_mib)},
            {"virtual_mib", Figure(row.memory_state, row.virtual_mib)}};
}

template <typename Row>
Json Rows(const std::vector<Row>& rows, Json (*to_json)(const Row&)) {
    Json all = Json::array();
    for (const Row& row : rows) {
        all.push_back(to_json(row));
    }
    return all;
}

Json NamesOf(const Report& report, FigureState state) {
    Json names = Json::array();
    for (const FamilyState& family : FamilyStates(report)) {
        if (family.state == state) {
            names.push_back(ValidUtf8(family.name));
        }
    }
    return names;
}

}  // namespace

std::string FormatJson(const Report& report) {
    const Json json = {{"time", UtcTime(report.time)},
                       {"interval_seconds", report.interval_seconds},
                       {"cpu", CpuJson(report.cpu)},
                       {"memory",
                        {{"used_mib", Figure(report.memory.state, report.memory.used_mib)},
                         {"total_mib", Figure(report.memory.state, report.memory.total_mib)}}},
                       {"network", NetworkJson(report.network)},
                       {"directories", Rows(report.directories, DirectoryJson)},
                       {"processes", Rows(report.processes, ProcessJson)},
                       {"stale", NamesOf(report, FigureState::Stale)},
                       {"failed", NamesOf(report, FigureState::Failed)}};
    // In ASCII: JSON need not escape U+0080 to U+009F, which a terminal may take for commands.
    return json.dump(-1, ' ', true) + "\n";
}

}  // namespace corvane_host
