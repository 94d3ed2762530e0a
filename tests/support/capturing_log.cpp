#include "capturing_log.h"

#include <cstdio>
#include <utility>

#include "monitor_physical_util.h"

namespace corvane_test {

std::vector<std::string> CapturingLog::TakeTexts() {
    std::vector<std::string> texts;
    for (const LogRecord& record : m_records) {
        const char* const prefix = record.priority == LOG_PRIORITY_ERROR   ? ""
                                   : record.priority == LOG_PRIORITY_WARN  ? "WARN "
                                   : record.priority == LOG_PRIORITY_DEBUG ? "DEBUG "
                                   : record.priority == LOG_PRIORITY_TRACE ? "TRACE "
                                                                           : "? ";
        texts.push_back(prefix + record.text);
    }
    m_records.clear();
    return texts;
}

DiskSizeAnswer& TheDiskSize() {
    static DiskSizeAnswer answer;
    return answer;
}

}  // namespace corvane_test

bool CategoryCanWrite(LogCategory* category, int32_t /*priority*/) {
    auto* const log = static_cast<corvane_test::CapturingLog*>(category);
    ++log->asked;
    return log->agrees;
}

void CategoryLogV(LogCategory* category, int32_t priority, const char* file, int32_t /*line*/,
                  const char* function, const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    static_cast<corvane_test::CapturingLog*>(category)->Append(
        {priority, std::move(text), file, function});
}

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path,
                    LogCategory* /*log_handle*/) {
    corvane_test::DiskSizeAnswer& answer = corvane_test::TheDiskSize();
    answer.asked_path = file_path;
    total = answer.total_mb;
    free = answer.free_mb;
    return answer.status;
}
