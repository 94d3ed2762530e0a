#include "host_logging.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <strings.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

/// Standard error, or whoever asked for the records.
class HostLogRedirection : public spdlog::sinks::base_sink<std::mutex> {
public:
    void SetTaker(std::function<void(const std::string&)> taker) {
        const std::lock_guard lock(mutex_);
        m_taker = std::move(taker);
    }

protected:
    void sink_it_(const spdlog::details::log_msg& record) override {
        if (!m_taker) {
            m_standard_error.log(record);
            return;
        }
        spdlog::memory_buf_t line;
        formatter_->format(record, line);
        m_taker(std::string(line.data(), line.size() - 1));  // without the line feed
    }
    void flush_() override { m_standard_error.flush(); }
    void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override {
        m_standard_error.set_formatter(formatter->clone());
        formatter_ = std::move(formatter);
    }

private:
    spdlog::sinks::stderr_sink_st m_standard_error;
    std::function<void(const std::string&)> m_taker;
};

namespace {

struct PriorityName {
    int32_t priority;
    const char* name;
};

constexpr PriorityName PRIORITY_NAMES[] = {
    {LOG_PRIORITY_FATAL, "FATAL"}, {LOG_PRIORITY_ALERT, "ALERT"}, {LOG_PRIORITY_CRIT, "CRIT"},
    {LOG_PRIORITY_ERROR, "ERROR"}, {LOG_PRIORITY_WARN, "WARN"},   {LOG_PRIORITY_NOTICE, "NOTICE"},
    {LOG_PRIORITY_INFO, "INFO"},   {LOG_PRIORITY_DEBUG, "DEBUG"}, {LOG_PRIORITY_TRACE, "TRACE"},
};

constexpr size_t RECORD_LENGTH = 1024;  // most records; a longer one takes a buffer of its own

std::shared_ptr<spdlog::logger> MakeLogger(spdlog::sink_ptr sink) {
    auto logger = std::make_shared<spdlog::logger>("corvane", std::move(sink));
    // The category decides what is written; the priority's name is part of the text, as spdlog has
    // fewer levels.
    logger->set_level(spdlog::level::trace);
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
    logger->flush_on(spdlog::level::trace);
    return logger;
}

/// Kernel text in a record is other people's: no control byte of it may reach a terminal, nor
/// U+0080 to U+009F, which some terminals take for commands, in UTF-8 or as single bytes. A byte
/// that UTF-8 does not know begins no character, so that a command behind it is found.
void ReplaceControlBytes(char* text) {
    bool inside = false;  // of a character of several bytes
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        const auto next = static_cast<unsigned char>(text[1]);
        const bool first_of_two = byte == 0xC2 && next >= 0x80 && next < 0xA0;
        if (byte < ' ' || byte == 0x7F || byte > 0xF4 || first_of_two ||
            (!inside && byte >= 0x80 && byte < 0xC0)) {
            *text = ' ';
        }
        inside = byte >= 0x80 && *text != ' ';
    }
}

}  // namespace

const char* LogPriorityName(int32_t priority) {
    for (const PriorityName& row : PRIORITY_NAMES) {
        if (priority <= row.priority) {
            return row.name;
        }
    }
    return std::prev(std::end(PRIORITY_NAMES))->name;
}

bool LogPriorityFromName(const std::string& name, int32_t& priority) {
    if (strcasecmp(name.c_str(), "off") == 0) {
        priority = -1;
        return true;
    }
    for (const PriorityName& row : PRIORITY_NAMES) {
        if (strcasecmp(name.c_str(), row.name) == 0) {
            priority = row.priority;
            return true;
        }
    }
    return false;
}

HostLogCategory::HostLogCategory(int32_t least_urgent, const std::string& file)
    : m_redirection(file.empty() ? std::make_shared<HostLogRedirection>() : nullptr) {
    if (m_redirection != nullptr) {
        m_logger = MakeLogger(m_redirection);
    } else {
        m_logger = MakeLogger(std::make_shared<spdlog::sinks::basic_file_sink_mt>(file));
    }
    SetPriority(least_urgent);
    piPriorityLow = &m_least_urgent;
    piPriorityHigh = &m_most_urgent;
}

HostLogCategory::~HostLogCategory() = default;

void HostLogCategory::Redirect(std::function<void(const std::string& line)> taker) {
    if (m_redirection != nullptr) {
        m_redirection->SetTaker(std::move(taker));
    }
}

void HostLogCategory::SetPriority(int32_t least_urgent) {
    m_least_urgent = least_urgent;
    // To the monitor, a least urgent priority of -1 is no threshold: the other one keeps all out.
    m_most_urgent = least_urgent < 0 ? INT32_MAX : INT32_MIN;
}

bool CategoryCanWrite(LogCategory* /*category*/, int32_t /*priority*/) {
    return true;  // the thresholds have decided
}

void CategoryLogV(LogCategory* category, int32_t priority, const char* file, int32_t line,
                  const char* function, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::vector<char> text(RECORD_LENGTH);
    const int length = vsnprintf(text.data(), text.size(), format, arguments);
    if (length >= static_cast<int>(text.size())) {
        text.resize(static_cast<size_t>(length) + 1);
        vsnprintf(text.data(), text.size(), format, again);
    }
    va_end(again);
    ReplaceControlBytes(text.data());
    const auto* const host_category = static_cast<const HostLogCategory*>(category);
    host_category->Logger().log(spdlog::level::info, "{} {}:{} {}: {}", LogPriorityName(priority),
                                file, line, function, text.data());
}
