#include "FaultServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace pelora::testing {

struct FaultServer::Impl {
    int listener = -1;
    int port = 0;
    std::atomic<bool> stopping{false};
    mutable std::mutex mutex;
    std::condition_variable stopped;
    std::map<std::string, FaultResponse> routes;
    std::map<std::string, size_t> requests;
    std::map<std::string, uint64_t> bodyBytes;
    std::vector<int> connections;
    std::vector<std::thread> threads;
    std::thread acceptor;

    // Waits `seconds` of real time or until stop(); false once stopping.
    bool pause(double seconds) {
        std::unique_lock lock(mutex);
        return !stopped.wait_for(lock, std::chrono::duration<double>(seconds),
                                 [&] { return stopping.load(); });
    }

    // Writes everything or gives up (client gone, or stopping); counts body bytes.
    bool send(int fd, const std::string& bytes, const std::string& path, bool isBody) {
        size_t done = 0;
        while (done < bytes.size()) {
            if (stopping) return false;
            pollfd p{fd, POLLOUT, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
            if (isBody) {
                std::lock_guard lock(mutex);
                bodyBytes[path] += static_cast<uint64_t>(n);
            }
        }
        return true;
    }

    // The request's path, once its head has arrived; empty when the client went away.
    std::string readRequestPath(int fd) {
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos && head.size() < 64 * 1024) {
            if (stopping) return {};
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) return {};
            head.append(buffer, static_cast<size_t>(n));
        }
        const size_t start = head.find(' ');
        const size_t end = head.find_first_of(" ?", start + 1);
        if (start == std::string::npos || end == std::string::npos) return {};
        return head.substr(start + 1, end - start - 1);
    }

    // One connection: a request, its faulty answer, then the end of the connection.
    void serve(int fd) {
        answer(fd);
        ::shutdown(fd, SHUT_RDWR);  // closed by stop(), so a descriptor is never reused early
    }

    void answer(int fd) {
        const std::string path = readRequestPath(fd);
        if (path.empty()) return;
        const auto head = [](const std::string& status, const std::string& fields) {
            return "HTTP/1.1 " + status + "\r\nConnection: close\r\n" + fields + "\r\n";
        };
        const auto length = [](size_t n) {
            return "Content-Length: " + std::to_string(n) + "\r\n";
        };
        FaultResponse r;
        bool known = false;
        {
            std::lock_guard lock(mutex);
            ++requests[path];
            if (auto it = routes.find(path); it != routes.end()) {
                r = it->second;
                known = true;
            }
        }
        if (!known) {
            const std::string text = "not found";
            send(fd, head("404 Not Found", length(text.size())) + text, path, false);
            return;
        }
        switch (r.fault) {
            case Fault::ResetMidBody: {
                if (!send(fd, head("200 OK", length(r.body.size())), path, false)) return;
                if (!send(fd, r.body.substr(0, r.body.size() / 3), path, true)) return;
                linger hard{1, 0};  // close with a reset rather than an orderly end
                ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
                ::shutdown(fd, SHUT_RDWR);
                return;
            }
            case Fault::Drip: {
                if (!send(fd, head("200 OK", length(r.body.size())), path, false)) return;
                for (char c : r.body) {
                    if (!send(fd, std::string(1, c), path, true) || !pause(r.dripInterval)) return;
                }
                return;
            }
            case Fault::LengthLongerThanBody:
                send(fd, head("200 OK", length(r.body.size() * 2)) + r.body, path, false);
                return;
            case Fault::LengthShorterThanBody:
                send(fd, head("200 OK", length(r.body.size() / 2)) + r.body, path, false);
                return;
            case Fault::EndlessChunked: {
                if (!send(fd, head("200 OK", "Transfer-Encoding: chunked\r\n"), path, false))
                    return;
                const std::string chunk(64 * 1024, ' ');
                char size[32];
                std::snprintf(size, sizeof size, "%zx\r\n", chunk.size());
                while (send(fd, size, path, false) && send(fd, chunk, path, true) &&
                       send(fd, "\r\n", path, false)) {
                }
                return;
            }
            case Fault::CompressedBomb: {
                const std::string packed = gzipOfZeros(r.inflatedBytes);
                send(fd,
                     head("200 OK", "Content-Encoding: gzip\r\n" + length(packed.size())) + packed,
                     path, false);
                return;
            }
            case Fault::HeadersNeverEnd: {
                if (!send(fd, "HTTP/1.1 200 OK\r\nConnection: close\r\n", path, false)) return;
                for (uint64_t i = 0;; ++i) {
                    if (!send(
                            fd,
                            "X-Filler-" + std::to_string(i) + ": " + std::string(64, 'h') + "\r\n",
                            path, false))
                        return;
                }
            }
            case Fault::NeverAnswer:
                pause(3600);
                return;
            case Fault::Redirect:
                send(fd, head("302 Found", "Location: " + r.location + "\r\n" + length(0)), path,
                     false);
                return;
        }
    }

    void acceptLoop() {
        while (!stopping) {
            pollfd p{listener, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            const int fd = ::accept(listener, nullptr, nullptr);
            if (fd < 0) continue;
            std::lock_guard lock(mutex);
            connections.push_back(fd);
            threads.emplace_back([this, fd] { serve(fd); });
        }
    }
};

FaultServer::FaultServer() : impl_(std::make_unique<Impl>()) {
    impl_->listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (impl_->listener < 0 ||
        ::bind(impl_->listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(impl_->listener, 64) != 0 ||
        ::getsockname(impl_->listener, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        throw std::runtime_error("fault server: cannot listen on 127.0.0.1");
    }
    impl_->port = ntohs(addr.sin_port);
    impl_->acceptor = std::thread([this] { impl_->acceptLoop(); });
}

FaultServer::~FaultServer() {
    stop();
}

void FaultServer::on(const std::string& path, FaultResponse response) {
    std::lock_guard lock(impl_->mutex);
    impl_->routes[path] = std::move(response);
}

int FaultServer::port() const {
    return impl_->port;
}

std::string FaultServer::url(const std::string& pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(impl_->port) + pathAndQuery;
}

size_t FaultServer::requestCount(const std::string& path) const {
    std::lock_guard lock(impl_->mutex);
    auto it = impl_->requests.find(path);
    return it == impl_->requests.end() ? 0 : it->second;
}

uint64_t FaultServer::bodyBytesSent(const std::string& path) const {
    std::lock_guard lock(impl_->mutex);
    auto it = impl_->bodyBytes.find(path);
    return it == impl_->bodyBytes.end() ? 0 : it->second;
}

void FaultServer::stop() {
    if (impl_->stopping.exchange(true)) return;
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopped.notify_all();
    }
    if (impl_->acceptor.joinable()) impl_->acceptor.join();
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(impl_->mutex);
        threads.swap(impl_->threads);
    }
    for (auto& t : threads) t.join();
    for (int fd : impl_->connections) ::close(fd);
    ::close(impl_->listener);
}

std::string gzipOfZeros(size_t size) {
    z_stream z{};
    if (deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::runtime_error("gzip: cannot start");
    }
    const std::string zeros(64 * 1024, '\0');
    std::string out;
    char buffer[16 * 1024];
    size_t left = size;
    int flush = Z_NO_FLUSH;
    do {
        const size_t take = std::min(left, zeros.size());
        left -= take;
        flush = left == 0 ? Z_FINISH : Z_NO_FLUSH;
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
        z.avail_in = static_cast<uInt>(take);
        do {
            z.next_out = reinterpret_cast<Bytef*>(buffer);
            z.avail_out = sizeof buffer;
            deflate(&z, flush);
            out.append(buffer, sizeof buffer - z.avail_out);
        } while (z.avail_out == 0);
    } while (flush != Z_FINISH);
    deflateEnd(&z);
    return out;
}

}  // namespace pelora::testing
