#include "web/content.h"

#include <unistd.h>

#include <chrono>

#include "json_text.h"
#include "report_json.h"
#include "report_metrics.h"
#include "version.h"
#include "web/page_files.h"

namespace corvane::program {

namespace {

constexpr const char* JSON = "application/json";
constexpr const char* TEXT = "text/plain; charset=utf-8";
constexpr const char* PROMETHEUS_TEXT = "text/plain; version=0.0.4; charset=utf-8";
constexpr size_t SHORT_HISTORY = 60;  // reports: a client that was away for longer gets all of it

std::string HostName() {
    char name[256] = {};
    gethostname(name, sizeof(name) - 1);
    return name;
}

/// Figures are out of date at once.
Answer Fresh(const std::string& body, const char* type) {
    Answer answer{MHD_HTTP_OK, MakeResponse(body, type)};
    AddHeader(answer.response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    return answer;
}

ResponsePtr Packed(const std::string& body, const char* type, bool gzip) {
    ResponsePtr response = MakeResponse(gzip ? Gzip(body) : body, type);
    AddHeader(response, MHD_HTTP_HEADER_VARY, "Accept-Encoding");
    if (gzip) {
        AddHeader(response, MHD_HTTP_HEADER_CONTENT_ENCODING, "gzip");
    }
    return response;
}

}  // namespace

Answer Refusal(unsigned status, const std::string& text) {
    Answer answer = Fresh(text + "\n", TEXT);
    answer.status = status;
    return answer;
}

void Content::Add(std::shared_ptr<const Report> report) {
    m_report = std::move(report);
    m_report_response.reset();
    m_history_responses = {};
    m_history.Append(*m_report);
}

Answer Content::Get(const Request& request) {
    if (request.path == "/metrics") {
        return Fresh(ToPrometheusText(m_report.get(), std::chrono::steady_clock::now()),
                     PROMETHEUS_TEXT);
    }
    if (request.path == "/report.json") {
        return GetReport();
    }
    if (request.path == "/history.json") {
        return GetHistory(request);
    }
    if (request.path == "/-/healthy") {
        return Fresh("OK\n", TEXT);
    }
    return GetFile(request);
}

Answer Content::GetReport() {
    if (m_report == nullptr) {
        Answer answer = Refusal(MHD_HTTP_SERVICE_UNAVAILABLE, "There is no report yet.");
        AddHeader(answer.response, MHD_HTTP_HEADER_RETRY_AFTER, "1");
        return answer;
    }
    if (m_report_response == nullptr) {
        m_report_response = Fresh(ReportToJson(*m_report), JSON).response;
    }
    return {MHD_HTTP_OK, m_report_response};
}

std::string Content::HistoryJson(std::time_t since) const {
    const std::string host = JsonText(HostName()).Text();
    const std::string interval = m_report ? std::to_string(m_report->interval_seconds) : "null";
    return R"({"host":)" + host + R"(,"version":")" CORVANE_VERSION R"(","interval_seconds":)" +
           interval + "," + m_history.Json(since) + "}";
}

Answer Content::GetHistory(const Request& request) {
    if (request.since > 0 && m_history.CountSince(request.since) <= SHORT_HISTORY) {
        return Fresh(HistoryJson(request.since), JSON);
    }
    ResponsePtr& response = m_history_responses.at(request.takes_gzip ? 1 : 0);
    if (response == nullptr) {
        response = Packed(HistoryJson(0), JSON, request.takes_gzip);
        AddHeader(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    }
    return {MHD_HTTP_OK, response};
}

Answer Content::GetFile(const Request& request) {
    const PageFile* const file = FindPageFile(request.path == "/" ? "/index.html" : request.path);
    if (file == nullptr) {
        return Refusal(MHD_HTTP_NOT_FOUND,
                       "Not found. There are / /metrics /report.json /history.json /-/healthy");
    }
    const bool known = request.known_tag == file->tag;
    ResponsePtr& response = m_files[file->path].at(request.takes_gzip ? 1 : 0);
    if (response == nullptr) {
        const std::string body(reinterpret_cast<const char*>(file->data), file->size);
        response = Packed(body, file->type, request.takes_gzip);
        AddHeader(response, MHD_HTTP_HEADER_CACHE_CONTROL,
                  "no-cache");  // but ask whether it is new
        AddHeader(response, MHD_HTTP_HEADER_ETAG, file->tag);
    }
    if (!known) {
        return {MHD_HTTP_OK, response};
    }
    Answer answer{MHD_HTTP_NOT_MODIFIED, MakeResponse("", file->type)};
    AddHeader(answer.response, MHD_HTTP_HEADER_ETAG, file->tag);
    return answer;
}

}  // namespace corvane::program
