#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace pelora::testing {

// The ways FaultServer misbehaves. Each connection reads one request and answers it with the
// fault registered for the request's path (saying "Connection: close") and ends.
enum class Fault {
    // Announces the body's length, sends a third of it, then resets the connection.
    ResetMidBody,
    // Announces the body's length and sends it one byte per `dripInterval`.
    Drip,
    // Announces more bytes than it sends, then closes the connection.
    LengthLongerThanBody,
    // Announces fewer bytes than it sends (the rest is garbage on the connection).
    LengthShorterThanBody,
    // A chunked body that never ends, for as long as the client reads.
    EndlessChunked,
    // A small gzip body that inflates to `inflatedBytes` of zeros.
    CompressedBomb,
    // A status line followed by header lines that never end.
    HeadersNeverEnd,
    // Accepts and reads the request, then never writes a byte.
    NeverAnswer,
    // Redirects to `location` (a path of this server redirecting to itself makes a loop).
    Redirect,
};

struct FaultResponse {
    Fault fault = Fault::NeverAnswer;
    std::string body = std::string(4096, 'x');  // what the body-carrying faults send
    std::string location;                       // Redirect
    size_t inflatedBytes = 0;                   // CompressedBomb
    double dripInterval = 0.05;                 // Drip, real seconds (the server's pace)
};

// A raw TCP server on 127.0.0.1 (ephemeral port) that answers requests with faults no
// well-behaved HTTP library would produce: it writes the bytes of the answer itself. Every
// wait of its threads is bounded by stop(), which the destructor calls; it releases stalled
// answers and closes every connection.
class FaultServer {
  public:
    FaultServer();
    ~FaultServer();
    FaultServer(const FaultServer&) = delete;
    FaultServer& operator=(const FaultServer&) = delete;

    // Registers the fault for an exact path (query ignored); other paths answer 404.
    void on(const std::string& path, FaultResponse response);

    int port() const;
    std::string url(const std::string& pathAndQuery) const;  // "http://127.0.0.1:PORT/..."

    // Requests received for `path` so far, and the body bytes written in answer to them.
    size_t requestCount(const std::string& path) const;
    uint64_t bodyBytesSent(const std::string& path) const;

    void stop();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// `size` zero bytes, gzip-compressed (a few bytes per kilobyte).
std::string gzipOfZeros(size_t size);

}  // namespace pelora::testing
