// A host's logging library that remembers: the texts of records are part of the interface.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "log_category.h"

namespace corvane_test {

struct LogRecord {
    int32_t priority = 0;
    std::string text;
    std::string file;
    std::string function;
};

class CapturingLog : public LogCategory {
public:
    /// Accepts records of the priority and of all that are more urgent.
    explicit CapturingLog(int32_t least_urgent = LOG_PRIORITY_ERROR)
        : m_least_urgent(least_urgent) {
        piPriorityLow = &m_least_urgent;
    }
    CapturingLog(const CapturingLog&) = delete;
    CapturingLog& operator=(const CapturingLog&) = delete;
    ~CapturingLog() = default;

    /// The texts since the last call, oldest first, behind their priority unless it is ERROR.
    std::vector<std::string> TakeTexts();
    /// The records since the last take.
    const std::vector<LogRecord>& Records() const { return m_records; }

    bool agrees = true;  ///< what CategoryCanWrite answers
    int asked = 0;       ///< how often it was asked

    void Append(LogRecord record) { m_records.push_back(std::move(record)); }

private:
    int32_t m_least_urgent;
    std::vector<LogRecord> m_records;
};

/// What the test's GetDiskSize gives.
struct DiskSizeAnswer {
    int32_t status = 0;
    uint64_t total_mb = 0;
    uint64_t free_mb = 0;
    std::string asked_path;
};
DiskSizeAnswer& TheDiskSize();

}  // namespace corvane_test
