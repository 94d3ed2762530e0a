// The monitor's log writer. Internal: not installed.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "log_category.h"

namespace CorvaneCommon {

// Stands for a %s argument that is null by design; a host's formatter need not know null.
constexpr const char* LOG_NULL_TEXT = "(null)";

inline bool IsLogged(LogCategory* category, int32_t priority) {
    if (category == nullptr) {
        return false;
    }
    const int32_t* const low = category->piPriorityLow;
    if (low != nullptr && *low != -1 && *low < priority) {
        return false;
    }
    const int32_t* const high = category->piPriorityHigh;
    if (high != nullptr && *high > priority) {
        return false;
    }
    return CategoryCanWrite(category, priority);
}

[[gnu::format(printf, 6, 7)]] inline void WriteLog(LogCategory* category, int32_t priority,
                                                   const char* file, int32_t line,
                                                   const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CategoryLogV(category, priority, file, line, function, format, arguments);
    va_end(arguments);
}

}  // namespace CorvaneCommon

// A macro for the source location, and so that the arguments of a record that nobody wants are
// never computed.
#define MONITOR_LOG(category, priority, ...)                                              \
    do {                                                                                  \
        if (CorvaneCommon::IsLogged((category), (priority))) {                            \
            CorvaneCommon::WriteLog((category), (priority), __FILE__, __LINE__, __func__, \
                                    __VA_ARGS__);                                         \
        }                                                                                 \
    } while (false)
