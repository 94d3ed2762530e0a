#include "web_server.h"

#include <microhttpd.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "web/connections.h"
#include "web/descriptor.h"
#include "web/listener.h"
#include "web/request_handler.h"
#include "web/tls.h"

namespace corvane::program {

namespace {

using namespace std::chrono_literals;

constexpr size_t MAX_CONNECTIONS = 2000;
constexpr size_t KEPT_DESCRIPTORS = 8;  // for what measures: it opens one or two files at a time
constexpr size_t CONNECTION_MEMORY = size_t{16} * 1024;  // a request's line and headers fit
constexpr auto SWEEP_PERIOD = 1s;
constexpr auto FULL_PAUSE = 1ms;      // until a slot may be free
constexpr auto FAILED_PAUSE = 100ms;  // when the system has no descriptors or memory

void Require(bool works, const char* what) {
    if (!works) {
        throw std::runtime_error(std::string("cannot serve: ") + what + ": " +
                                 std::strerror(errno));
    }
}

}  // namespace

/// The library's daemon runs in this thread's turns; connections are accepted here, so that there
/// are never more than there may be.
class WebServer::Service {
public:
    explicit Service(const WebSettings& settings);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service();

    const WebSettings& Settings() const { return m_settings; }
    const ListenAddress& Address() const { return m_listener.address; }
    size_t MaxConnections() const { return m_max_connections; }
    void Store(std::shared_ptr<const Report> report);

private:
    using Reports = std::vector<std::shared_ptr<const Report>>;

    void Wake() const { eventfd_write(m_wake.Get(), 1); }
    void StartDaemon();
    void Watch(int descriptor) const;
    void WatchListener(bool watched) const;
    void Run();
    int Timeout() const;
    void TakeReports();
    void AcceptOne();
    void Pause(Clock::duration time);

    static MHD_Result OnRequest(void* self, MHD_Connection* client, const char* path,
                                const char* method, const char* version, const char* body,
                                size_t* body_size, void** seen);
    static void OnConnection(void* self, MHD_Connection* client, void** context,
                             MHD_ConnectionNotificationCode what);
    static void* OnRequestLine(void* self, const char* uri, MHD_Connection* client);
    static void OnRequestEnd(void* self, MHD_Connection* client, void** seen,
                             MHD_RequestTerminationCode code);

    WebSettings m_settings;
    Listener m_listener;
    TlsFiles m_tls;
    std::string m_tls_versions = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
    Descriptor m_poll;
    Descriptor m_wake;
    MHD_Daemon* m_daemon = nullptr;
    size_t m_max_connections = 0;
    Clock::time_point m_accept_again = Clock::time_point::max();  // max: accepting
    Connections m_connections;
    std::unique_ptr<RequestHandler> m_handler;
    std::mutex m_mutex;
    Reports m_reports;  // stored, not taken yet
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

WebServer::Service::Service(const WebSettings& settings)
    : m_settings(settings), m_listener(Listen(settings.address)) {
    RaiseDescriptorLimit();
    if (!settings.tls_certificate.empty()) {
        m_tls = ReadTlsFiles(settings.tls_certificate, settings.tls_key);
    }
    m_poll = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    m_wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    Require(m_poll.Get() >= 0 && m_wake.Get() >= 0, "waiting for clients");
    m_handler = std::make_unique<RequestHandler>(settings.password_file, [this] { Wake(); });
    StartDaemon();
    try {
        Watch(m_listener.socket.Get());
        Watch(m_wake.Get());
        Watch(MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
        const size_t left = DescriptorsLeft();
        m_max_connections = std::min(MAX_CONNECTIONS, left - std::min(left, KEPT_DESCRIPTORS));
        errno = EMFILE;
        Require(m_max_connections > 0, "descriptors are kept back for what measures");
        m_thread = std::thread([this] { Run(); });
    } catch (...) {
        MHD_stop_daemon(m_daemon);
        throw;
    }
}

WebServer::Service::~Service() {
    m_stop = true;
    Wake();
    m_thread.join();
    m_handler->EndChecks();
    MHD_stop_daemon(m_daemon);
}

void WebServer::Service::StartDaemon() {
    unsigned flags = MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME;
    std::vector<MHD_OptionItem> options = {
        {MHD_OPTION_CONNECTION_LIMIT, MAX_CONNECTIONS + 1, nullptr},
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, CONNECTION_MEMORY, nullptr},
    };
    if (!m_tls.key.empty()) {
        flags |= MHD_USE_TLS;
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, m_tls.certificate.data()});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, m_tls.key.data()});
        options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, m_tls_versions.data()});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    m_daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &OnRequest, this, MHD_OPTION_ARRAY,
                                options.data(), MHD_OPTION_NOTIFY_CONNECTION, &OnConnection, this,
                                MHD_OPTION_NOTIFY_COMPLETED, &OnRequestEnd, this,
                                MHD_OPTION_URI_LOG_CALLBACK, &OnRequestLine, this, MHD_OPTION_END);
    Require(m_daemon != nullptr, "the web server's library");
}

void WebServer::Service::Watch(int descriptor) const {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    Require(epoll_ctl(m_poll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0, "epoll_ctl");
}

void WebServer::Service::WatchListener(bool watched) const {
    epoll_event event = {};
    event.events = watched ? uint32_t{EPOLLIN} : 0;
    event.data.fd = m_listener.socket.Get();
    epoll_ctl(m_poll.Get(), EPOLL_CTL_MOD, m_listener.socket.Get(), &event);
}

void WebServer::Service::Store(std::shared_ptr<const Report> report) {
    {
        const std::lock_guard lock(m_mutex);
        m_reports.push_back(std::move(report));
    }
    Wake();
}

void WebServer::Service::Run() {
    Clock::time_point swept = Clock::now();
    while (!m_stop) {
        epoll_event events[3] = {};
        const int ready = epoll_wait(m_poll.Get(), events, 3, Timeout());
        if (ready < 0 && errno != EINTR) {
            std::this_thread::sleep_for(FAILED_PAUSE);
        }
        for (int i = 0; i < ready; ++i) {
            if (events[i].data.fd == m_wake.Get()) {
                TakeReports();
            } else if (events[i].data.fd == m_listener.socket.Get()) {
                AcceptOne();
            }
        }
        MHD_run(m_daemon);
        const Clock::time_point now = Clock::now();
        if (now >= m_accept_again) {
            m_accept_again = Clock::time_point::max();
            WatchListener(true);
        }
        if (now - swept >= SWEEP_PERIOD) {
            swept = now;
            m_connections.EndOverdue(now);
        }
    }
}

/// In milliseconds; -1: until something happens.
int WebServer::Service::Timeout() const {
    MHD_UNSIGNED_LONG_LONG asked = 0;
    Clock::duration timeout = m_connections.Size() == 0 ? Clock::duration::max() : SWEEP_PERIOD;
    if (MHD_get_timeout(m_daemon, &asked) == MHD_YES) {
        timeout = std::min<Clock::duration>(timeout, std::chrono::milliseconds(asked));
    }
    if (m_accept_again != Clock::time_point::max()) {
        timeout = std::min(timeout, std::max(m_accept_again - Clock::now(), Clock::duration(1ms)));
    }
    return timeout == Clock::duration::max()
               ? -1
               : static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(timeout).count());
}

void WebServer::Service::TakeReports() {
    eventfd_t count = 0;
    eventfd_read(m_wake.Get(), &count);
    Reports reports;
    {
        const std::lock_guard lock(m_mutex);
        reports.swap(m_reports);
    }
    for (std::shared_ptr<const Report>& report : reports) {
        try {
            m_handler->Add(std::move(report));
        } catch (const std::bad_alloc&) {
            // The page shows a gap.
        }
    }
}

void WebServer::Service::AcceptOne() {
    if (m_connections.Size() >= m_max_connections) {
        MHD_run(m_daemon);  // whoever has its answer is idle now
        m_connections.EndOne(Clock::now());
        MHD_run(m_daemon);
        if (m_connections.Size() >= m_max_connections) {
            Pause(FULL_PAUSE);
            return;
        }
    }
    sockaddr_storage address = {};
    socklen_t length = sizeof(address);
    auto* const peer = reinterpret_cast<sockaddr*>(&address);
    const int client =
        accept4(m_listener.socket.Get(), peer, &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (client >= 0) {
        MHD_add_connection(m_daemon, client, peer,
                           length);  // owns it, closes it also when it fails
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        m_connections.EndOne(Clock::now());
        Pause(FAILED_PAUSE);
    }
}

/// Leaves clients in the system's queue for a while.
void WebServer::Service::Pause(Clock::duration time) {
    m_accept_again = Clock::now() + time;
    WatchListener(false);
}

void WebServer::Service::OnConnection(void* self, MHD_Connection* client, void** context,
                                      MHD_ConnectionNotificationCode what) {
    auto* const service = static_cast<Service*>(self);
    if (what == MHD_CONNECTION_NOTIFY_CLOSED) {
        service->m_connections.Remove(static_cast<Connection*>(*context));
        return;
    }
    const int socket =
        MHD_get_connection_info(client, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    try {
        *context = service->m_connections.Add(socket);
    } catch (const std::bad_alloc&) {
        shutdown(socket, SHUT_RDWR);
    }
}

void* WebServer::Service::OnRequestLine(void* /*self*/, const char* /*uri*/,
                                        MHD_Connection* client) {
    if (Connection* const connection = ConnectionOf(client)) {
        Connections::BeginRequest(*connection);
    }
    return nullptr;
}

void WebServer::Service::OnRequestEnd(void* /*self*/, MHD_Connection* client, void** /*seen*/,
                                      MHD_RequestTerminationCode /*code*/) {
    if (Connection* const connection = ConnectionOf(client)) {
        Connections::EndRequest(*connection);
    }
}

MHD_Result WebServer::Service::OnRequest(void* self, MHD_Connection* client, const char* path,
                                         const char* method, const char* /*version*/,
                                         const char* /*body*/, size_t* body_size, void** seen) {
    try {
        return static_cast<Service*>(self)->m_handler->Handle(client, path, method, body_size,
                                                              seen);
    } catch (const std::exception&) {
        return MHD_NO;  // no memory: costs this request and its connection
    }
}

WebServer::WebServer(const WebSettings& settings)
    : m_service(std::make_unique<Service>(settings)) {}

WebServer::~WebServer() = default;

std::string WebServer::Address() const {
    return m_service->Address().Text();
}

std::string WebServer::Url() const {
    return (m_service->Settings().tls_certificate.empty() ? "http://" : "https://") + Address();
}

std::vector<std::string> WebServer::Notes() const {
    std::vector<std::string> notes;
    const WebSettings& settings = m_service->Settings();
    if (!settings.password_file.empty() && settings.tls_certificate.empty() &&
        !settings.address.IsLoopback()) {
        notes.emplace_back(
            "without --tls-cert and --tls-key the password can be read on its way to " + Address());
    }
    if (m_service->MaxConnections() < 16) {
        notes.push_back("at most " + std::to_string(m_service->MaxConnections()) +
                        " clients at once: the limit of open files is low");
    }
    return notes;
}

void WebServer::Store(std::shared_ptr<const Report> report) {
    m_service->Store(std::move(report));
}

}  // namespace corvane::program
