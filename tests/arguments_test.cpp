// What operations refuse, each argument alone: status and text, no file read, nothing changed.
#include <cctype>
#include <type_traits>

#include "host.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

class Arguments : public HostTest {
protected:
    struct Argument {
        void* at;
        size_t size;
        bool is_pointer;
        bool is_text;

        const char* Value() const {
            const char* value = nullptr;  // or a number of up to as many bytes
            memcpy(&value, at, size);
            return value;
        }
        std::string Shown() const {
            char text[32];
            is_pointer ? snprintf(text, sizeof(text), "%p", static_cast<const void*>(Value()))
                       : snprintf(text, sizeof(text), "%lu", reinterpret_cast<uintptr_t>(Value()));
            return text;
        }
    };

    /// Expects a text for a null, 0 or "" in each argument's place.
    template <typename RefusedCall, typename... Good>
    void Refuses(const char* text, const RefusedCall& call, Good... good) {
        Try(text, [&] { return call(good..., 0, 0); },
            {{&good, sizeof(good), std::is_pointer_v<Good>, std::is_same_v<Good, const char*>}...});
    }
    void Try(const char* text, const Call& call, const std::vector<Argument>& arguments) {
        for (const Argument& argument : arguments) {
            const char* const kept = argument.Value();
            for (const char* const refused : {static_cast<const char*>(nullptr), ""}) {
                if (refused == nullptr || argument.is_text) {
                    memcpy(argument.at, &refused, argument.size);
                    const std::string expected = Spelled(text, arguments);
                    EXPECT_EQ(See(call), expected);
                }
            }
            memcpy(argument.at, &kept, argument.size);
        }
    }
    /// "name!" is short for "name is NULL", "name?" for "name is NULL or name's length is 0", and
    /// "name#" for "name: " with the value of the next argument.
    static std::string Spelled(const std::string& text, const std::vector<Argument>& arguments) {
        std::string full = text.rfind("FAILED", 0) == 0 ? "" : "WRONG; ";
        std::string name;
        auto next = arguments.begin();
        for (const char c : text) {
            full += c == '!'   ? " is NULL"
                    : c == '?' ? " is NULL or " + name + "'s length is 0"
                    : c == '#' ? ": " + (next++)->Shown()
                               : std::string(1, c);
            name = isalpha(c) != 0 || c == '_' ? name + c : "";
        }
        return full;
    }
};

// The call with its arguments as a, b and c, and values for them that are not refused.
#define REFUSES(text, call, ...)                                                                  \
    Refuses(                                                                                      \
        text,                                                                                     \
        [&]([[maybe_unused]] auto a, [[maybe_unused]] auto b, [[maybe_unused]] auto c, auto...) { \
            return call;                                                                          \
        },                                                                                        \
        __VA_ARGS__)

TEST_F(Arguments, RefusedOneByOne) {
    Boot(Stat("cpu0 1 1"),
         KernelFiles{{"/proc/0/stat", ""}, {"/proc/1/stat", ""}, {"/data/x", ""}});
    CPUInfo cpu;
    ProcessCPUInfo process;
    NetworkInfo nic;
    DiskIOInfo disk;
    DiskIOInfoResult load;
    auto* no_names = static_cast<DiskNameInfoResult*>(nullptr);
    const char* const dir = "/data";
    const char* dirs[] = {dir};
    constexpr uint64_t SECONDS = 5;
    uint32_t rate = 7;
    int32_t* const percent = out.percent;
    char* const text = out.text;
    kernel.ResetCounts();
    REFUSES(
        "FAILED; file_content! or 0 >= file_content_length or file_path!, file_content#, "
        "file_content_length#, file_path#.",
        inside->ReadFromFile(a, b, c, log), text, 4U, dir);
    REFUSES(
        "real_file_path! or real_file_path_length <=0 or file_path!, real_file_path#, file path#, "
        "real_file_path_length#.",
        inside->GetRealFilePath(a, c, b, log), text, text, 9U);
    REFUSES("raw_cpu_info! or raw_cpu_info_length is 0, raw_cpu_info#, raw_cpu_info_length#.",
            inside->GetRawCPUInfo(a, b, log), text, 7U);
    REFUSES("cpu_core_name? or now_cpu_info!, cpu_core_name#, now_cpu_info#.",
            inside->GetCPUInfo(b, a, log), dir, &cpu);
    REFUSES("now_cpu_info! or cpu_core_name?, cpu_core_name#, now_cpu_info#.",
            inside->CalcCPUInfo(rate, a, inside->old_cpu_info, b, true, true, log), dir, &cpu);
    REFUSES("cpu_info_result!.", m->GetCPUMonitorInfo(a, log), &out.core);
    REFUSES("cpu_info_result!.", m->GetCPUMonitorInfoForTinyCycle(a, log), &out.core);
    REFUSES("cpu_core_name? or cpu_info_result!, cpu_core_name#, cpu_info_result#.",
            m->GetCPUMonitorInfo(b, a, true, log), dir, &out.core);
    REFUSES("now_process_cpu_info! or 0 >= pid, now_cpu_info#, pid#.",
            inside->GetProcessCPUInfo(a, b, true, log), &process, PID);
    REFUSES(
        "now_cpu_info! or now_process_cpu_info! or 0>= pid, now_cpu_info#, now_process_cpu_info#, "
        "pid#.; percent 0 0",
        m->CalcProcessCPUInfoForTinyCycle(percent[0], percent[1], a, b, c, true, log), &cpu,
        &process, PID);
    REFUSES("0 >= pid or pid not exist pid#.", m->CalcProcessCPUMonitorInfo(a, log, true), PID);
    REFUSES("0 >= pid or pid not exist pid#.",
            m->CalcProcessNetworkMonitorInfoForTinyCycle(a, 0, true, log), PID);
    REFUSES("memory_info!.", m->GetMemoryMonitorInfo(a, log), &out.memory);
    REFUSES("memory_info!.", inside->GetMemoryInfo(a, log), &out.memory);
    REFUSES("process_memory_info! or 0>= pid, process_memory_info#, pid#.",
            inside->GetProcessMemoryInfo(a, b, log), &out.process_memory, PID);
    REFUSES("process_memory_info! or 0>= pid or pid not exist, process_memory_info#, pid#.",
            m->GetProcessMemoryMonitorInfo(a, b, log), &out.process_memory, PID);
    REFUSES(
        "raw_network_info! or raw_network_info_length is 0, raw_network_info#, "
        "raw_network_info_length#.",
        inside->GetRawNetworkInfo(a, b, log), text, 7U);
    REFUSES(
        "raw_network_info! or raw_network_info_length is 0, raw_network_info#, "
        "raw_network_info_length#.",
        m->GetProcessRawNetworkInfo(a, b, PID, log), text, 7U);
    REFUSES("illegal pid <= 0, pid#.", m->GetProcessRawNetworkInfo(nullptr, 0, a, log), PID);
    REFUSES("nic_name? or network_info!, nic_name#, network_info#.",
            inside->GetNetworkInfo(b, a, log), dir, &nic);
    REFUSES(
        "now_network_info! or network_info_result! or 0>=time interval, now_network_info#, "
        "network_info_result#, time interval#.",
        m->CalcNetworkInfoForTinyCycle(b, a, "eth1", c, true, log), &nic, &out.interface, SECONDS);
    REFUSES("0>=time interval, time interval#.", m->CalcNetworkMonitorInfo(a, true, log), SECONDS);
    REFUSES("0>=time interval, time interval#.",
            m->CalcNetworkMonitorInfoForTinyCycle(a, true, log), SECONDS);
    REFUSES("0>=time interval, time interval#.",
            m->CalcProcessNetworkMonitorInfoForTinyCycle(PID, a, true, log), SECONDS);
    REFUSES("network_info_result!, network_info_result#.", m->GetNetworkMonitorInfo(a, log),
            &out.interface);
    REFUSES("network_info_result!, network_info_result#.",
            m->GetProcessNetworkMonitorInfoForTinyCycle(a, log), &out.interface);
    REFUSES(
        "nic_name? or network_info_result! or 0>=time interval, nic_name#, network_info_result#, "
        "time interval#.",
        m->GetNetworkMonitorInfo(b, a, c, true, log), dir, &out.interface, SECONDS);
    REFUSES("file_path! or 0>= file_path_num, file_path#, file_path_num#.",
            m->SetDiskInfo(a, b, log), dirs, 1U);
    REFUSES("disk_name_info_result!.", m->GetDiskNameInfo(a, log), no_names);
    REFUSES(
        "disk_name! or file_path? or 0>=disk_name_length, disk_name#, file path#, "
        "disk_name_length#.",
        m->GetDiskNameByFileName(a, c, b, log), text, dir, 9U);
    REFUSES(
        "raw_disk_io_info! or raw_disk_io_info_length is 0, raw_disk_io_info#, "
        "raw_disk_io_info_length#.",
        inside->GetRawDiskIOInfo(a, b, log), text, 7U);
    REFUSES("disk_name? or proc_diskstats?, disk_name#, proc_diskstats#.",
            inside->SetDiskIOStatInfo(b, a, log), dir, dir);
    REFUSES("disk_name? or disk_io_info!, disk_io_info#, disk_name#.",
            inside->GetDiskIOInfoImpl(a, b, log), &disk, dir);
    REFUSES("disk_io_info! or file_path?, disk_io_info#, file path#.",
            inside->GetDiskIOInfo(a, b, log), &disk, dir);
    REFUSES("now_disk_io_info! or 0>= time_interval, now_disk_io_info#, time_interval#.",
            inside->CalcDiskIOInfo(rate, rate, a, b, true, log), &disk, SECONDS);
    REFUSES("0>=time_interval or file_path?, file_path#, time_interval#.",
            m->CalcDiskIOMonitorInfo(a, b, true, log), dir, SECONDS);
    REFUSES("time_interval#.", m->CalcDiskIOMonitorInfo(std::vector{dir}, a, true, log), SECONDS);
    REFUSES("disk_io_info_result! or file_path?, disk_io_info_result#, file_path#.",
            m->GetDiskIOMonitorInfo(a, b, log), &load, dir);
    REFUSES("disk_info_result! or file_path?, disk_info_result#, file path#.",
            m->GetDiskMonitorInfo(a, b, log), &out.space, dir);
    // A process that does not exist.
    EXPECT_EQ(See([&] { return m->CalcProcessCPUMonitorInfoForTinyCycle(UINT32_MAX, log); }),
              "WRONG; 0 >= pid or pid not exist pid: -1.");
    EXPECT_EQ(See([&] { return m->CalcProcessNetworkMonitorInfoForTinyCycle(18, 1, true, log); }),
              "WRONG; 0 >= pid or pid not exist pid: 18.");
    EXPECT_NE(See([&] { return m->GetProcessMemoryMonitorInfo(&out.process_memory, 18, log); }),
              "");
    EXPECT_EQ(kernel.Count(KernelCall::Open), 0);
    EXPECT_EQ(rate, 0U);
}

}  // namespace
}  // namespace corvane_test
