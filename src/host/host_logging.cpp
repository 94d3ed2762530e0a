#include "host_logging.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "utf8.h"

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

/// Whether a character may do to a terminal what its reader does not see: control characters, in
/// Unicode up to U+009F; those without a width, and those that turn the direction of writing.
bool IsTreacherous(uint32_t code) {
    constexpr std::pair<uint32_t, uint32_t> RANGES[] = {
        {0, 0x1F},        {0x7F, 0x9F},       {0xAD, 0xAD},
        {0x61C, 0x61C},   {0x180E, 0x180E},   {0x200B, 0x200F},
        {0x2028, 0x202E}, {0x2060, 0x206F},   {0xFEFF, 0xFEFF},
        {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}, {corvane::NOT_UTF8, corvane::NOT_UTF8}};
    return std::any_of(std::begin(RANGES), std::end(RANGES), [code](const auto& range) {
        return code >= range.first && code <= range.second;
    });
}

/// Kernel text in a record is other people's: what must not reach a terminal becomes a blank.
std::string Harmless(const std::string& record) {
    std::string text;
    for (size_t position = 0; position < record.size();) {
        const corvane::Utf8Character character = corvane::DecodeUtf8(record, position);
        if (IsTreacherous(character.code)) {
            text += ' ';
        } else {
            text.append(record, position, character.length);
        }
        position += character.length;
    }
    return text;
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
    const auto* const host_category = static_cast<const HostLogCategory*>(category);
    host_category->Logger().log(spdlog::level::info, "{} {}:{} {}: {}", LogPriorityName(priority),
                                file, line, function, Harmless(text.data()));
}
