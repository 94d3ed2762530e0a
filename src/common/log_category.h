// What the monitor needs of the host's logging library.
//
// A host that has a logging library of its own defines the two functions below; one that has none
// links corvane_host, which defines them on spdlog.
#pragma once

#include <cstdarg>
#include <cstdint>

// Priorities, from the most urgent down. A smaller number is more urgent.
constexpr int32_t LOG_PRIORITY_FATAL = 0;
constexpr int32_t LOG_PRIORITY_ALERT = 100;
constexpr int32_t LOG_PRIORITY_CRIT = 200;
constexpr int32_t LOG_PRIORITY_ERROR = 300;
constexpr int32_t LOG_PRIORITY_WARN = 400;
constexpr int32_t LOG_PRIORITY_NOTICE = 500;
constexpr int32_t LOG_PRIORITY_INFO = 600;
constexpr int32_t LOG_PRIORITY_DEBUG = 700;
constexpr int32_t LOG_PRIORITY_TRACE = 800;

/// One log category of the host. A host carries its own data by deriving from it; the monitor
/// reads the two thresholds, hands the pointer on and never owns it. A null category logs nothing.
struct LogCategory {
    const int32_t* piPriorityLow = nullptr;   ///< least urgent priority written; null or -1: no
                                              ///< threshold
    const int32_t* piPriorityHigh = nullptr;  ///< most urgent priority written; null: no threshold
};

/// Defined by the host: whether the category wants a record of this priority. Asked only for a
/// record that passes both thresholds.
bool CategoryCanWrite(LogCategory* category, int32_t priority);

/// Defined by the host: writes one record. Called only after CategoryCanWrite agreed.
/// @param file      source path relative to the repository root; lives as long as the program
/// @param line      line in that file
/// @param function  name of the function that logs; lives as long as the program
/// @param format    printf-style message, without a final newline
/// @param arguments the message's arguments; valid during the call only
void CategoryLogV(LogCategory* category, int32_t priority, const char* file, int32_t line,
                  const char* function, const char* format, va_list arguments);
