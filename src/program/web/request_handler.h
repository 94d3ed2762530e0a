// Answers to requests: who may have them, and from what.
#pragma once

#include <microhttpd.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "web/connections.h"
#include "web/content.h"
#include "web/password.h"

namespace corvane::program {

/// What is known of a client's connection; null when there was no memory for it.
Connection* ConnectionOf(MHD_Connection* client);

/// Used by the thread that serves.
class RequestHandler {
public:
    /// @param password_file empty: everybody may read
    /// @param wake called on another thread when a suspended request can go on
    /// Throws std::runtime_error, see PasswordFile.
    RequestHandler(const std::string& password_file, std::function<void()> wake);

    /// A new report for the clients. Throws std::bad_alloc; the past then shows a gap.
    void Add(std::shared_ptr<const Report> report) { m_content.Add(std::move(report)); }

    /// As the library calls it: when the headers are there, for each part of a body, when all is
    /// there, and after a suspension. Throws std::bad_alloc.
    MHD_Result Handle(MHD_Connection* client, const char* path, std::string_view method,
                      size_t* body_size, void** seen);

    /// No request is suspended any more when it returns.
    void EndChecks() { m_passwords.reset(); }

private:
    using Verdict = PasswordCheck::Verdict;

    bool MayRead(MHD_Connection* client, Verdict& verdict);
    void QueueCheck(MHD_Connection* client, const std::string& user, const std::string& password);
    static Answer Denial(Verdict verdict);

    std::function<void()> m_wake;
    Content m_content;
    std::unique_ptr<PasswordCheck> m_passwords;
};

}  // namespace corvane::program
