#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>

namespace pelora::testing {

std::multimap<std::string, std::string> parseQuery(const std::string& query) {
    std::multimap<std::string, std::string> params;
    size_t start = 0;
    while (start < query.size()) {
        size_t end = query.find('&', start);
        if (end == std::string::npos) end = query.size();
        std::string pair = query.substr(start, end - start);
        if (!pair.empty()) {
            size_t eq = pair.find('=');
            params.emplace(httplib::detail::decode_url(pair.substr(0, eq), true),
                           eq == std::string::npos
                               ? std::string()
                               : httplib::detail::decode_url(pair.substr(eq + 1), true));
        }
        start = end + 1;
    }
    return params;
}

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    }
    return std::nullopt;
}

std::optional<std::string> RecordedRequest::param(const std::string& name) const {
    auto it = params.find(name);
    if (it == params.end()) return std::nullopt;
    return it->second;
}

LoopbackResponse LoopbackResponse::text(std::string body, int status) {
    LoopbackResponse r;
    r.status = status;
    r.body = std::move(body);
    return r;
}

LoopbackResponse LoopbackResponse::json(std::string body, int status) {
    LoopbackResponse r = text(std::move(body), status);
    r.contentType = "application/json";
    return r;
}

LoopbackResponse LoopbackResponse::redirect(std::string location, int status) {
    LoopbackResponse r;
    r.status = status;
    r.headers.emplace_back("Location", std::move(location));
    return r;
}

LoopbackResponse LoopbackResponse::hang() {
    LoopbackResponse r;
    r.neverAnswer = true;
    return r;
}

struct LoopbackServer::Impl {
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::map<std::string, LoopbackHandler> routes;
    std::vector<RecordedRequest> requests;
    std::set<std::pair<std::string, int>> connections;
    size_t nextIndex = 0;
    bool stopping = false;
    bool stopped = false;

    void handle(const httplib::Request& req, httplib::Response& res) {
        RecordedRequest rec;
        rec.method = req.method;
        rec.path = req.path;
        rec.target = req.target;
        if (auto q = req.target.find('?'); q != std::string::npos) {
            rec.query = req.target.substr(q + 1);
        }
        rec.params = parseQuery(rec.query);
        for (const auto& [k, v] : req.headers) rec.headers.emplace_back(k, v);
        rec.body = req.body;
        rec.remoteAddress = req.remote_addr;
        rec.remotePort = req.remote_port;

        LoopbackHandler handler;
        {
            std::lock_guard lock(mutex);
            rec.index = nextIndex++;
            requests.push_back(rec);
            connections.emplace(rec.remoteAddress, rec.remotePort);
            if (auto it = routes.find(rec.path); it != routes.end()) handler = it->second;
        }
        changed.notify_all();

        LoopbackResponse answer = handler ? handler(rec) : LoopbackResponse::text("not found", 404);
        if (answer.neverAnswer || answer.delaySeconds > 0) {
            std::unique_lock lock(mutex);
            if (answer.neverAnswer) {
                changed.wait(lock, [&] { return stopping; });
            } else {
                changed.wait_for(lock, std::chrono::duration<double>(answer.delaySeconds),
                                 [&] { return stopping; });
            }
            if (stopping && answer.neverAnswer) {
                res.status = 503;
                return;
            }
        }
        res.status = answer.status;
        for (const auto& [k, v] : answer.headers) res.set_header(k, v);
        if (answer.chunked) {
            auto body = std::make_shared<std::string>(std::move(answer.body));
            res.set_chunked_content_provider(
                answer.contentType, [body](size_t offset, httplib::DataSink& sink) {
                    if (offset >= body->size()) {
                        sink.done();
                        return true;
                    }
                    size_t n = std::min<size_t>(4096, body->size() - offset);
                    return sink.write(body->data() + offset, n);
                });
        } else if (!answer.body.empty() || !answer.contentType.empty()) {
            res.set_content(answer.body, answer.contentType.c_str());
        }
    }
};

LoopbackServer::LoopbackServer() : LoopbackServer(Options{}) {}

LoopbackServer::LoopbackServer(Options options)
    : impl_(std::make_unique<Impl>()), tls_(!options.tlsCertificateFile.empty()) {
    if (tls_) {
        impl_->server = std::make_unique<httplib::SSLServer>(options.tlsCertificateFile.c_str(),
                                                             options.tlsKeyFile.c_str());
    } else {
        impl_->server = std::make_unique<httplib::Server>();
    }
    auto& svr = *impl_->server;
    svr.set_keep_alive_timeout(options.keepAliveSeconds);
    svr.set_tcp_nodelay(true);
    auto handler = [impl = impl_.get()](const httplib::Request& req, httplib::Response& res) {
        impl->handle(req, res);
    };
    svr.Get(".*", handler);
    svr.Post(".*", handler);
    svr.Put(".*", handler);
    svr.Patch(".*", handler);
    svr.Delete(".*", handler);
    svr.Options(".*", handler);
    port_ = svr.bind_to_any_port("127.0.0.1");
    impl_->thread = std::thread([impl = impl_.get()] { impl->server->listen_after_bind(); });
    // Connections queued before the accept loop runs are served, so the port is usable at
    // once; but stop() only works on a running server, so wait (bounded) until it runs.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!svr.is_running() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
}

LoopbackServer::~LoopbackServer() {
    stop();
}

void LoopbackServer::stop() {
    {
        std::lock_guard lock(impl_->mutex);
        if (impl_->stopped) return;
        impl_->stopped = true;
        impl_->stopping = true;
    }
    impl_->changed.notify_all();
    impl_->server->stop();
    closeAcceptedConnections();
    if (impl_->thread.joinable()) impl_->thread.join();
}

void LoopbackServer::closeAcceptedConnections() {
    // The server keeps idle client connections open for the keep-alive time and offers no way
    // to end them, so stopping would wait for that time whenever a client (say a process-wide
    // session) still holds one. Shutting down the sockets accepted on our port ends them now.
    std::error_code ec;
    for (std::filesystem::directory_iterator it("/proc/self/fd", ec), end; !ec && it != end;
         it.increment(ec)) {
        int fd = -1;
        try {
            fd = std::stoi(it->path().filename().string());
        } catch (...) {
            continue;
        }
        sockaddr_in local{}, peer{};
        socklen_t localLen = sizeof local, peerLen = sizeof peer;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLen) != 0) continue;
        if (local.sin_family != AF_INET || ntohs(local.sin_port) != port_) continue;
        if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLen) != 0) continue;
        ::shutdown(fd, SHUT_RDWR);
    }
}

void LoopbackServer::on(const std::string& path, LoopbackHandler handler) {
    std::lock_guard lock(impl_->mutex);
    impl_->routes[path] = std::move(handler);
}

void LoopbackServer::on(const std::string& path, LoopbackResponse fixed) {
    on(path, [fixed](const RecordedRequest&) { return fixed; });
}

std::string LoopbackServer::baseUrl() const {
    return (tls_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_);
}

std::string LoopbackServer::url(const std::string& pathAndQuery) const {
    return baseUrl() + pathAndQuery;
}

std::vector<RecordedRequest> LoopbackServer::requests() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->requests;
}

size_t LoopbackServer::requestCount() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->requests.size();
}

std::vector<RecordedRequest> LoopbackServer::requestsTo(const std::string& path) const {
    std::vector<RecordedRequest> out;
    for (auto& r : requests()) {
        if (r.path == path) out.push_back(std::move(r));
    }
    return out;
}

bool LoopbackServer::waitForRequests(size_t count, double deadlineSeconds) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, std::chrono::duration<double>(deadlineSeconds),
                                   [&] { return impl_->requests.size() >= count; });
}

void LoopbackServer::clearRequests() {
    std::lock_guard lock(impl_->mutex);
    impl_->requests.clear();
    impl_->connections.clear();
}

size_t LoopbackServer::connectionCount() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->connections.size();
}

int LoopbackServer::unusedPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return 9;  // discard port; nothing listens there on a test machine
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    int port = 9;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
        port = ntohs(addr.sin_port);
    }
    // Released at once: the kernel hands out ephemeral ports in sequence, so nothing else
    // takes this one during a test, and connecting to it is refused.
    ::close(fd);
    return port;
}

std::string TestTls::authorityFile() {
    return std::string(PELORA_SOURCE_DIR) + "/tests/data/tls/ca.pem";
}
std::string TestTls::certificateFile() {
    return std::string(PELORA_SOURCE_DIR) + "/tests/data/tls/server.pem";
}
std::string TestTls::expiredCertificateFile() {
    return std::string(PELORA_SOURCE_DIR) + "/tests/data/tls/expired.pem";
}
std::string TestTls::keyFile() {
    return std::string(PELORA_SOURCE_DIR) + "/tests/data/tls/server-key.pem";
}

}  // namespace pelora::testing
