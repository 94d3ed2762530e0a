#include "host.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <sstream>

namespace corvane_test {

namespace {

const char* Name(const char* name) {
    return name[0] == '\0' ? "-" : name;
}

std::string Text(const CorvaneCommon::NetworkInfoResult& r) {
    return Words(r.input_bytes_mb, r.output_bytes_mb, r.input_packets, r.output_packets,
                 Name(r.input_nic_name), Name(r.output_nic_name));
}

/// What operations find in the host's records: figures that no machine has.
const Records& Untouched() {
    static const Records records = [] {
        Records r;
        memset(static_cast<void*>(&r), '\a', sizeof(r));
        for (char* const name : {std::end(r.interface.input_nic_name), std::end(r.space.file_path),
                                 std::end(r.interface.output_nic_name), std::end(r.text)}) {
            name[-1] = '\0';
        }
        return r;
    }();
    return records;
}

}  // namespace

std::string StatusName(int32_t status) {
    return status == COMMON_ERR_INVALID_ARGUMENTS           ? "WRONG"
           : status == COMMON_ERR_LINUX_SYSTEM_CALL_FAIL    ? "FAILED"
           : status == COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE ? "NO SAMPLE"
           : status == COMMON_ERR_NO_BLOCK_DEVICE           ? "NO DEVICE"
                                                            : std::to_string(status);
}

void Host::Start() {
    inside = std::make_unique<Monitor>();
    m = &inside->monitor;
    m_seen = Kept();
}

Host::Figures Host::Kept() {
    Figures figures;
    const auto keep = [&](const std::string& name, int32_t status, const std::string& text) {
        figures.emplace_back(name, status == 0 ? text : " -");
    };
    CorvaneCommon::CPUInfoResult cpu;
    m->GetCPUMonitorInfo(&cpu, nullptr);
    keep("cpu", 0, Words(cpu.cpu_core_num, cpu.cpu_utilization));
    m->GetCPUMonitorInfoForTinyCycle(&cpu, nullptr);
    keep("tiny cpu", 0, Words(cpu.cpu_core_num, cpu.cpu_utilization));
    int32_t process = 0;
    int32_t thread = 0;
    const int32_t status = m->GetProcessCPUMonitorInfo(process, PID, nullptr);
    const bool has_thread = m->GetProcessMaxThreadCPUMonitorInfo(thread, PID, nullptr) == 0;
    keep("process", status, Words(process) + (has_thread ? Words(thread) : " -"));
    const int32_t tiny = m->GetProcessCPUMonitorInfoForTinyCycle(process, thread, PID, nullptr);
    keep("tiny process", tiny, Words(process, thread));
    CorvaneCommon::NetworkInfoResult network;
    m->GetNetworkMonitorInfo(&network, nullptr);
    keep("network", 0, Text(network));
    m->GetNetworkMonitorInfoForTinyCycle(&network, nullptr);
    keep("tiny network", 0, Text(network));
    m->GetProcessNetworkMonitorInfoForTinyCycle(&network, nullptr);
    keep("process network", 0, Text(network));
    for (const std::string& path : paths) {
        CorvaneCommon::DiskIOInfoResult disk;
        const int32_t found = m->GetDiskIOMonitorInfo(&disk, path.c_str(), nullptr);
        keep(path, found, Words(Name(disk.disk_name), disk.disk_io_rate, disk.disk_iops));
    }
    const auto names = std::make_unique<CorvaneCommon::DiskNameInfoResult>();
    CorvaneCommon::DiskNameInfoResult* target = names.get();
    m->GetDiskNameInfo(target, nullptr);
    std::string disks;
    for (uint32_t row = 0; row < names->disk_number; ++row) {
        disks += Words(Name(names->disk_name[row]));
    }
    keep("disks", 0, disks);
    std::string text;
    std::vector<CorvaneCommon::CPUCoreInfo> cores;
    const int32_t has_cores = m->GetCPUCoreInfo(cores, nullptr);
    for (const CorvaneCommon::CPUCoreInfo& core : cores) {
        text += Words(core.cpu_core_name, core.cpu_utilization);
    }
    keep("cores", has_cores, std::exchange(text, ""));
    std::vector<CorvaneCommon::NetworkInterfaceInfo> interfaces;
    const int32_t has_interfaces = m->GetNetworkInterfaceInfo(interfaces, nullptr);
    for (const CorvaneCommon::NetworkInterfaceInfo& i : interfaces) {
        text += Words(i.nic_name, i.input_bytes, i.output_bytes, i.input_packets, i.output_packets);
    }
    keep("interfaces", has_interfaces, text);
    return figures;
}

Host::Figures Host::Written() const {
    Figures figures;
    const auto show = [&](const char* name, const auto& record, const std::string& text) {
        const auto offset =
            reinterpret_cast<const char*>(&record) - reinterpret_cast<const char*>(&out);
        if (memcmp(&record, reinterpret_cast<const char*>(&Untouched()) + offset, sizeof(record)) !=
            0) {
            figures.emplace_back(name, text);
        }
    };
    show("core", out.core, Words(out.core.cpu_core_num, out.core.cpu_utilization));
    show("memory", out.memory, Words(out.memory.total_mb, out.memory.use_mb));
    show("process memory", out.process_memory,
         Words(out.process_memory.physical_memory_mb, out.process_memory.virtual_memory_mb));
    show("interface", out.interface, Text(out.interface));
    show("space", out.space, Words(out.space.file_path, out.space.total_mb, out.space.use_mb));
    show("percent", out.percent, Words(out.percent[0], out.percent[1]));
    show("text", out.text, Words(Name(out.text)));
    return figures;
}

std::string Host::See(const Call& call) {
    out = Untouched();
    records.Take();
    const int32_t status = call();
    std::vector<std::string> parts = records.Take();
    if (status != 0) {
        parts.insert(parts.begin(), StatusName(status));
    }
    if (kernel.CountOpen() != 0) {
        parts.emplace_back("LEFT OPEN");
    }
    Figures now = Kept();
    for (size_t i = 0; i < now.size(); ++i) {
        if (i >= m_seen.size() || now[i] != m_seen[i]) {
            parts.push_back(now[i].first + now[i].second);
        }
    }
    m_seen = std::move(now);
    for (const auto& [name, text] : Written()) {
        parts.push_back(name + text);
    }
    std::string line;
    for (const std::string& part : parts) {
        line += (line.empty() ? "" : "; ") + part;
    }
    return line;
}

void Host::Replay(const Call& call, const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        kernel.Write(step.files);
        EXPECT_EQ(See(call), step.seen) << "step " << &step - steps.data();
    }
}

}  // namespace corvane_test

bool CategoryCanWrite(LogCategory* category, int32_t /*priority*/) {
    auto* const log = static_cast<corvane_test::CapturingLog*>(category);
    ++log->asked;
    return log->agrees;
}

void CategoryLogV(LogCategory* category, int32_t priority, const char* file, int32_t /*line*/,
                  const char* function, const char* format, va_list arguments) {
    static char text[1 << 17];
    vsnprintf(text, sizeof(text), format, arguments);
    const char* const prefix = priority == LOG_PRIORITY_ERROR   ? ""
                               : priority == LOG_PRIORITY_WARN  ? "WARN "
                               : priority == LOG_PRIORITY_DEBUG ? "DEBUG "
                               : priority == LOG_PRIORITY_TRACE ? "TRACE "
                                                                : "? ";
    auto* const log = static_cast<corvane_test::CapturingLog*>(category);
    log->texts.push_back(std::string(prefix) + text);
    log->source = std::string(file) + " " + function;
}

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path, LogCategory* category) {
    if (category != nullptr) {
        static_cast<corvane_test::CapturingLog*>(category)->texts.push_back(
            std::string("asked for ") + file_path);
    }
    total = corvane_test::disk_size.total_mb;
    free = corvane_test::disk_size.free_mb;
    return corvane_test::disk_size.status;
}
