// What stands at each path of the web server: the page, the latest report in its forms, the past
// hour. One thread uses it, the one that serves.
#pragma once

#include <array>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "report.h"
#include "web/history.h"
#include "web/response.h"

namespace corvane::program {

struct Request {
    std::string_view path;
    bool takes_gzip = false;
    std::string_view known_tag = {};  ///< the ETag of what the client has
    std::time_t since = 0;            ///< of the history, only what is later
};

struct Answer {
    unsigned status = MHD_HTTP_OK;
    ResponsePtr response;
};

class Content {
public:
    /// Adds to the history, too. Throws std::bad_alloc, and then the history lacks figures.
    void Add(std::shared_ptr<const Report> report);

    /// Throws std::bad_alloc.
    Answer Get(const Request& request);

private:
    Answer GetFile(const Request& request);
    Answer GetReport();
    Answer GetHistory(const Request& request);
    std::string HistoryJson(std::time_t since) const;

    std::shared_ptr<const Report> m_report;
    History m_history;
    // Made when first asked for; those who read slowly share them.
    ResponsePtr m_report_response;
    std::array<ResponsePtr, 2> m_history_responses;  // plain and compressed
    std::map<std::string_view, std::array<ResponsePtr, 2>> m_files;
};

/// A line of text that says what went wrong, as a response.
Answer Refusal(unsigned status, const std::string& text);

}  // namespace corvane::program
