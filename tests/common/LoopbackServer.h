#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace pelora::testing {

// One request as the loopback server received it.
struct RecordedRequest {
    size_t index = 0;  // arrival order, from 0
    std::string method;
    std::string path;    // without the query
    std::string query;   // raw query text after '?', as sent (still percent-encoded)
    std::string target;  // path and query as on the request line
    std::multimap<std::string, std::string> params;  // decoded query parameters
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string remoteAddress;
    int remotePort = 0;

    // Case-insensitive header lookup.
    std::optional<std::string> header(const std::string& name) const;
    std::optional<std::string> param(const std::string& name) const;
};

// What a route answers.
struct LoopbackResponse {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string contentType = "text/plain";
    // Hold the answer this many real seconds (interrupted by stop()).
    double delaySeconds = 0;
    // Never answer; the handler is released only by stop().
    bool neverAnswer = false;
    // Send the body in chunks without a Content-Length (a body of unknown length).
    bool chunked = false;

    static LoopbackResponse text(std::string body, int status = 200);
    static LoopbackResponse json(std::string body, int status = 200);
    static LoopbackResponse redirect(std::string location, int status = 302);
    static LoopbackResponse hang();
};

using LoopbackHandler = std::function<LoopbackResponse(const RecordedRequest&)>;

// An HTTP server on 127.0.0.1 with an ephemeral port, on its own threads, started by the
// constructor and stopped by stop() or the destructor. It records every request in arrival
// order. Unregistered paths answer 404.
// stop() also ends connections that clients keep open, so a client (or a process-wide
// session) outliving the server does not delay it.
class LoopbackServer {
  public:
    struct Options {
        // Seconds an idle kept-alive connection stays open.
        int keepAliveSeconds = 2;
        // Serve HTTPS with this certificate chain and key (PEM files) instead of plain HTTP.
        std::string tlsCertificateFile;
        std::string tlsKeyFile;
    };

    LoopbackServer();
    explicit LoopbackServer(Options options);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Routes by exact path (any method). Registering a path again replaces its handler.
    void on(const std::string& path, LoopbackHandler handler);
    void on(const std::string& path, LoopbackResponse fixed);

    int port() const { return port_; }
    std::string baseUrl() const;  // "http://127.0.0.1:PORT" ("https://" when serving TLS)
    std::string url(const std::string& pathAndQuery) const;

    std::vector<RecordedRequest> requests() const;
    size_t requestCount() const;
    std::vector<RecordedRequest> requestsTo(const std::string& path) const;
    // Bounded wait (real time) until at least `count` requests arrived.
    bool waitForRequests(size_t count, double deadlineSeconds) const;
    void clearRequests();

    // Distinct TCP connections that carried requests so far.
    size_t connectionCount() const;

    // Releases delayed and hanging handlers, then shuts the server down. Idempotent.
    void stop();

    // A loopback port with nothing listening on it (connections are refused).
    static int unusedPort();

  private:
    void closeAcceptedConnections();
    struct Impl;
    std::unique_ptr<Impl> impl_;
    int port_ = 0;
    bool tls_ = false;
};

// The test TLS material in tests/data/tls (scripts/make_test_certs.sh): a test authority, a
// server certificate it signed for 127.0.0.1 only, and one for the same address and key that
// expired in 2020.
struct TestTls {
    static std::string authorityFile();
    static std::string certificateFile();
    static std::string expiredCertificateFile();
    static std::string keyFile();
};

// A query's parameters, percent-decoded ('+' is a space), in order; a key without '=' has an
// empty value.
std::multimap<std::string, std::string> parseQuery(const std::string& query);

}  // namespace pelora::testing
