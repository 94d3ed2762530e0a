#include "report.h"

namespace corvane_host {

std::vector<FamilyState> FamilyStates(const Report& report) {
    std::vector<FamilyState> families = {{"cpu", report.cpu.state},
                                         {"memory", report.memory.state},
                                         {"network", report.network.state}};
    for (const DirectoryFigures& directory : report.directories) {
        families.push_back({"disk_io:" + directory.directory, directory.io_state});
        families.push_back({"disk_space:" + directory.directory, directory.space_state});
    }
    for (const ProcessFigures& process : report.processes) {
        const std::string pid = std::to_string(process.pid);
        families.push_back({"process_cpu:" + pid, process.cpu_state});
        families.push_back({"process_memory:" + pid, process.memory_state});
    }
    return families;
}

}  // namespace corvane_host
