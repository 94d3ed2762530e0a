#include "report.h"

namespace corvane {

std::vector<Family> Families(const Report& report) {
    std::vector<Family> families = {{"cpu", report.cpu.status},
                                    {"memory", report.memory.status},
                                    {"network", report.network.status}};
    for (const DirectoryFigures& directory : report.directories) {
        families.push_back({"disk_io:" + directory.directory, directory.io});
        families.push_back({"disk_space:" + directory.directory, directory.space});
    }
    for (const ProcessFigures& process : report.processes) {
        families.push_back({"process_cpu:" + process.target, process.cpu});
        families.push_back({"process_memory:" + process.target, process.memory});
    }
    return families;
}

}  // namespace corvane
