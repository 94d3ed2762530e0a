#include "web/request_handler.h"

#include <charconv>
#include <utility>

namespace corvane::program {

namespace {

constexpr size_t MAX_BODY = size_t{1024} * 1024;  // read before a request is refused

/// A C string from the library, or an empty one.
std::string_view View(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

std::string_view HeaderOf(MHD_Connection* client, const char* name) {
    return View(MHD_lookup_connection_value(client, MHD_HEADER_KIND, name));
}

std::time_t SinceOf(MHD_Connection* client) {
    const std::string_view text =
        View(MHD_lookup_connection_value(client, MHD_GET_ARGUMENT_KIND, "since"));
    std::time_t since = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), since);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() ? since : 0;
}

bool TakesGzip(MHD_Connection* client) {
    const std::string_view accepted = HeaderOf(client, MHD_HTTP_HEADER_ACCEPT_ENCODING);
    return accepted.find("gzip") != std::string_view::npos &&
           accepted.find("gzip;q=0") == std::string_view::npos;
}

}  // namespace

Connection* ConnectionOf(MHD_Connection* client) {
    const auto* const info = MHD_get_connection_info(client, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return static_cast<Connection*>(info->socket_context);
}

RequestHandler::RequestHandler(const std::string& password_file, std::function<void()> wake)
    : m_wake(std::move(wake)) {
    if (!password_file.empty()) {
        m_passwords = std::make_unique<PasswordCheck>(password_file);
    }
}

MHD_Result RequestHandler::Handle(MHD_Connection* client, const char* path, std::string_view method,
                                  size_t* body_size, void** seen) {
    Connection* const connection = ConnectionOf(client);
    if (connection == nullptr) {
        return MHD_NO;
    }
    if (*seen == nullptr) {
        *seen = connection;
        return MHD_YES;
    }
    if (*body_size > 0) {
        connection->discarded_bytes += *body_size;
        *body_size = 0;
        return connection->discarded_bytes <= MAX_BODY ? MHD_YES : MHD_NO;
    }
    Answer answer;
    Verdict verdict = Verdict::Accepted;
    if (path != std::string_view("/-/healthy") && !MayRead(client, verdict)) {
        if (verdict == Verdict::Unknown) {
            return MHD_YES;  // called again when the password is checked
        }
        answer = Denial(verdict);
    } else if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        answer = Refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "Only GET and HEAD are allowed.");
        AddHeader(answer.response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    } else {
        answer = m_content.Get({path, TakesGzip(client),
                                HeaderOf(client, MHD_HTTP_HEADER_IF_NONE_MATCH), SinceOf(client)});
    }
    return MHD_queue_response(client, answer.status, answer.response.get());
}

/// False with the verdict; Unknown: the request is suspended until there is one.
bool RequestHandler::MayRead(MHD_Connection* client, Verdict& verdict) {
    verdict = ConnectionOf(client)->verdict;
    if (verdict != Verdict::Unknown) {
        return verdict == Verdict::Accepted;
    }
    if (m_passwords == nullptr) {
        return true;
    }
    char* given_password = nullptr;
    char* const given_user = MHD_basic_auth_get_username_password(client, &given_password);
    const std::unique_ptr<char, void (*)(void*)> user_owner(given_user, MHD_free);
    const std::unique_ptr<char, void (*)(void*)> password_owner(given_password, MHD_free);
    if (given_user == nullptr || given_password == nullptr) {
        verdict = Verdict::Refused;
        return false;
    }
    const std::string user(given_user);
    const std::string password(given_password);
    if (m_passwords->Knows(user, password)) {
        return true;
    }
    QueueCheck(client, user, password);
    return false;
}

void RequestHandler::QueueCheck(MHD_Connection* client, const std::string& user,
                                const std::string& password) {
    Connection* const connection = ConnectionOf(client);
    const auto done = [this, client, connection](Verdict found) {
        connection->verdict = found;
        MHD_resume_connection(client);
        m_wake();
    };
    MHD_suspend_connection(client);
    bool queued = false;
    try {
        queued = m_passwords->Queue(user, password, done);
    } catch (const std::bad_alloc&) {
        // As if too many waited.
    }
    if (!queued) {
        done(Verdict::Busy);
    }
}

Answer RequestHandler::Denial(Verdict verdict) {
    if (verdict == Verdict::Busy) {
        Answer answer = Refusal(MHD_HTTP_TOO_MANY_REQUESTS, "Too many passwords to check.");
        AddHeader(answer.response, MHD_HTTP_HEADER_RETRY_AFTER, "1");
        return answer;
    }
    Answer answer = Refusal(MHD_HTTP_UNAUTHORIZED, "A user and a password are needed.");
    AddHeader(answer.response, MHD_HTTP_HEADER_WWW_AUTHENTICATE,
              R"(Basic realm="corvane-monitor", charset="UTF-8")");
    return answer;
}

}  // namespace corvane::program
