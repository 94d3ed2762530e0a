// Who may see the page: users and salted hashes from a file.
#pragma once

#include <array>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace corvane::program {

/// Lines USER:HASH, the hash as crypt(3) makes it; blank lines and those that begin with # do not
/// count.
class PasswordFile {
public:
    /// Throws std::runtime_error with the line that is wrong, or why the file cannot be read.
    explicit PasswordFile(const std::string& path);

    /// Takes as long as the hash is made to take, for unknown users too.
    bool Accepts(const std::string& user, const std::string& password) const;

private:
    std::vector<std::pair<std::string, std::string>> m_users;
};

/// Checks credentials on a thread of its own, since a good hash takes a core for milliseconds.
/// Credentials that were accepted once are known by a keyed digest from then on and cost nothing.
/// Refused ones take at most a tenth of a core, however many arrive.
class PasswordCheck {
public:
    enum class Verdict { Unknown, Accepted, Refused, Busy };

    explicit PasswordCheck(const std::string& path);
    PasswordCheck(const PasswordCheck&) = delete;
    PasswordCheck& operator=(const PasswordCheck&) = delete;
    /// Calls what still waits with Refused.
    ~PasswordCheck();

    /// Whether these credentials were accepted before.
    bool Knows(const std::string& user, const std::string& password);

    /// Calls `done`, which must not throw, with Accepted or Refused on the thread that checks. Does
    /// nothing and gives false when too many wait.
    bool Queue(const std::string& user, const std::string& password,
               std::function<void(Verdict)> done);

private:
    using Digest = std::array<unsigned char, 32>;
    struct Job {
        std::string user, password;
        Digest digest;
        std::function<void(Verdict)> done;
    };

    Digest DigestOf(const std::string& user, const std::string& password) const;
    bool IsKnown(const Digest& digest) const;
    void Run();

    PasswordFile m_file;
    Digest m_key = {};
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::deque<Job> m_jobs;
    std::vector<Digest> m_accepted;
    std::thread m_thread;
};

}  // namespace corvane::program
