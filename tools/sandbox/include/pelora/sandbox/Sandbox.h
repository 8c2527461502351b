#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace pelora::sandbox {

struct SandboxOptions {
    // Loopback by default: the sandbox is a developer tool and never meant to be reachable
    // from another machine unless someone asks for it explicitly.
    std::string host = "127.0.0.1";
    int port = 0;  // 0 picks a free ephemeral port; port() reports it
    // Empty paths fall back to the shipped inventory and creatives (defaultInventoryPath()).
    std::string inventoryPath;
    std::string creativesDir;
    // The inspector page's files; empty falls back to the shipped ones (defaultWebDir()).
    std::string webDir;
};

// One request the sandbox received on a tracking path ("/track/<slot>/<adId>/<trackType>").
struct TrackingRecord {
    int64_t timeMs = 0;  // wall clock, milliseconds since 1970
    std::string method;
    std::string url;    // full URL as received, macros already substituted by the client
    std::string path;   // without the query
    std::string query;  // raw query text, without "?"
    std::map<std::string, std::string> params;  // decoded query parameters
    std::string contentType;
    std::string body;
    std::string slot;
    std::string adId;
    int64_t trackType = 0;
};

// One ad fetch the sandbox answered (or held, for slots that never answer).
struct FetchRecord {
    int64_t timeMs = 0;
    std::string url;
    std::string query;
    std::map<std::string, std::string> params;
    std::string contentType;
    std::string body;    // the request body exactly as received
    std::string slotId;  // from the body's "slot.slotId", empty when unreadable
    int status = 0;      // HTTP status answered (0 when no answer was given)
    std::string answer;  // the answer's body as sent
};

// An in-process ad server for local development and tests. All methods are thread-safe.
class Sandbox {
  public:
    Sandbox();
    ~Sandbox();  // stops the server
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Loads the inventory and starts serving on a background thread. False (with a reason
    // in *error) when the inventory is unreadable or the address cannot be bound.
    bool start(const SandboxOptions& options, std::string* error = nullptr);
    // Releases held connections, stops listening and joins the server thread. Idempotent.
    void stop();
    bool running() const;

    int port() const;
    std::string baseUrl() const;       // "http://127.0.0.1:PORT"
    std::string fetchUrl() const;      // baseUrl() + "/api/v1/advert/fetch"
    std::string inspectorUrl() const;  // baseUrl() + "/inspector/", the page for a browser

    std::vector<TrackingRecord> trackingRecords() const;
    std::vector<FetchRecord> fetchRecords() const;
    void clearRecords();
    // Blocks until at least `count` tracking records exist or the timeout passes.
    bool waitForTrackingRecords(size_t count, std::chrono::milliseconds timeout) const;
    bool waitForFetchRecords(size_t count, std::chrono::milliseconds timeout) const;
    // Called on a server thread for every new tracking record, outside the sandbox's lock.
    void setTrackingObserver(std::function<void(const TrackingRecord&)> observer);

    // The records as served at "/sandbox/records" (JSON text).
    std::string trackingRecordsJson() const;

    // The inventory and creatives shipped with the sandbox: next to the running program
    // ("<exe dir>/sandbox/..."), else in the source tree this was built from.
    static std::string defaultInventoryPath();
    static std::string defaultCreativesDir();
    static std::string defaultWebDir();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace pelora::sandbox
