#include "web/password.h"

#include <crypt.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace corvane::program {

namespace {

constexpr size_t MAX_WAITING = 32;
constexpr size_t MAX_KNOWN = 64;
constexpr int REST_PER_REFUSAL = 9;  // times what the check took: a tenth of a core

/// What crypt(3) makes of a password with the settings of a hash; empty when it cannot.
std::string Crypt(const std::string& password, const std::string& hash) {
    const auto data = std::make_unique<crypt_data>();
    const char* const made = crypt_r(password.c_str(), hash.c_str(), data.get());
    return made == nullptr || *made == '*' ? "" : made;
}

bool Same(const std::string& a, const std::string& b) {
    return a.size() == b.size() && gnutls_memcmp(a.data(), b.data(), a.size()) == 0;
}

/// The reason why a line is none; null when it is one.
const char* LineFault(const std::string& user, const std::string& hash) {
    if (user.empty() || hash.empty()) {
        return "not USER:HASH";
    }
    const int salt = crypt_checksalt(hash.c_str());
    if (salt != CRYPT_SALT_OK && salt != CRYPT_SALT_TOO_CHEAP) {
        return "not a salted hash of crypt(3), such as $y$... or $6$...";
    }
    return Crypt("", hash).size() == hash.size() ? nullptr : "the hash is not complete";
}

}  // namespace

PasswordFile::PasswordFile(const std::string& path) {
    const std::string where = "the password file " + path;
    std::ifstream file(path);
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const size_t colon = std::min(line.find(':'), line.size());
        const std::string user = line.substr(0, colon);
        const std::string hash = line.substr(std::min(colon + 1, line.size()));
        if (const char* const fault = LineFault(user, hash)) {
            throw std::runtime_error(where + ", line " + std::to_string(number) + ": " + fault);
        }
        m_users.emplace_back(user, hash);
    }
    if (!file.eof()) {
        throw std::runtime_error("cannot read " + where + ": " + std::strerror(errno));
    }
    if (m_users.empty()) {
        throw std::runtime_error(where + " names no user");
    }
}

bool PasswordFile::Accepts(const std::string& user, const std::string& password) const {
    const std::string* hash = &m_users.front().second;
    bool known = false;
    for (const auto& [name, its_hash] : m_users) {
        if (Same(name, user)) {
            known = true;
            hash = &its_hash;
        }
    }
    return Same(Crypt(password, *hash), *hash) && known;
}

PasswordCheck::PasswordCheck(const std::string& path) : m_file(path) {
    if (gnutls_rnd(GNUTLS_RND_KEY, m_key.data(), m_key.size()) != 0) {
        throw std::runtime_error("no random numbers for the password check");
    }
    m_thread = std::thread([this] { Run(); });
}

PasswordCheck::~PasswordCheck() {
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    for (const Job& job : m_jobs) {
        job.done(Verdict::Refused);
    }
}

PasswordCheck::Digest PasswordCheck::DigestOf(const std::string& user,
                                              const std::string& password) const {
    const std::string text = user + ':' + password;
    Digest digest = {};
    if (gnutls_hmac_fast(GNUTLS_MAC_SHA256, m_key.data(), m_key.size(), text.data(), text.size(),
                         digest.data()) != 0) {
        throw std::bad_alloc();
    }
    return digest;
}

bool PasswordCheck::IsKnown(const Digest& digest) const {
    return std::any_of(m_accepted.begin(), m_accepted.end(), [&](const Digest& accepted) {
        return gnutls_memcmp(accepted.data(), digest.data(), digest.size()) == 0;
    });
}

bool PasswordCheck::Knows(const std::string& user, const std::string& password) {
    const Digest digest = DigestOf(user, password);
    const std::lock_guard lock(m_mutex);
    return IsKnown(digest);
}

bool PasswordCheck::Queue(const std::string& user, const std::string& password,
                          std::function<void(Verdict)> done) {
    const Digest digest = DigestOf(user, password);
    const std::lock_guard lock(m_mutex);
    if (m_jobs.size() >= MAX_WAITING) {
        return false;
    }
    m_jobs.push_back({user, password, digest, std::move(done)});
    m_wake.notify_all();
    return true;
}

void PasswordCheck::Run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stop || !m_jobs.empty(); });
        if (m_stop) {
            return;
        }
        const Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        if (IsKnown(job.digest)) {  // two requests of one browser
            job.done(Verdict::Accepted);
            continue;
        }
        lock.unlock();
        const auto begin = std::chrono::steady_clock::now();
        bool accepted = false;
        try {
            accepted = m_file.Accepts(job.user, job.password);
        } catch (const std::bad_alloc&) {
            // Not accepted.
        }
        const auto took = std::chrono::steady_clock::now() - begin;
        lock.lock();
        if (accepted && m_accepted.size() < MAX_KNOWN) {
            m_accepted.reserve(MAX_KNOWN);
            m_accepted.push_back(job.digest);
        }
        job.done(accepted ? Verdict::Accepted : Verdict::Refused);
        if (!accepted) {
            m_wake.wait_for(lock, took * REST_PER_REFUSAL, [this] { return m_stop; });
        }
    }
}

}  // namespace corvane::program
