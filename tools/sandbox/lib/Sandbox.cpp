#include "pelora/sandbox/Sandbox.h"

#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "Inspector.h"
#include "Inventory.h"

namespace pelora::sandbox {

using nlohmann::json;
namespace fs = std::filesystem;

namespace {

constexpr const char* kFetchPath = "/api/v1/advert/fetch";
constexpr const char* kInspectorPath = "/inspector/";
// Each open inspector page holds one worker for its event stream; a bound on pages and a pool
// larger than that bound keep ad fetches, creatives and beacons answered while pages are open.
constexpr int kMaxInspectorStreams = 4;
constexpr size_t kWorkerThreads = 16;
// How long an idle event stream waits before a keep-alive comment, which is also how a closed
// page is noticed and its worker freed.
constexpr auto kStreamIdle = std::chrono::seconds(5);
// Events kept for pages that fall behind; older ones are replaced by a fresh snapshot.
constexpr size_t kMaxEvents = 20000;

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::optional<std::string> readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream out;
    out << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return out.str();
}

std::string executableDir() {
    std::error_code ec;
    auto exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return {};
    return exe.parent_path().string();
}

// The first directory holding the shipped sandbox data: an explicit override, a copy next
// to the program, the installed copy, then the source tree this binary was built from.
std::string sandboxDataDir() {
    std::vector<std::string> candidates;
    if (const char* env = std::getenv("PELORA_SANDBOX_DIR"); env && *env) candidates.push_back(env);
    if (auto dir = executableDir(); !dir.empty()) candidates.push_back(dir + "/sandbox");
#ifdef PELORA_INSTALL_DATA_DIR
    candidates.push_back(std::string(PELORA_INSTALL_DATA_DIR) + "/sandbox");
#endif
#ifdef PELORA_SOURCE_DIR
    candidates.push_back(std::string(PELORA_SOURCE_DIR) + "/tools/sandbox");
#endif
    for (const auto& dir : candidates) {
        std::error_code ec;
        if (fs::exists(dir + "/inventory/default.json", ec)) return dir;
    }
    return candidates.empty() ? std::string(".") : candidates.back();
}

// Creative names are one or more plain path segments; anything that could climb out of the
// creatives folder is refused before the file system sees it.
bool safeCreativeName(const std::string& name) {
    if (name.empty() || name.front() == '/' || name.size() > 255) return false;
    for (char c : name) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '.' || c == '_' || c == '-' || c == '/' || c == '@';
        if (!ok) return false;
    }
    std::stringstream segments(name);
    std::string segment;
    while (std::getline(segments, segment, '/')) {
        if (segment.empty() || segment == "." || segment == "..") return false;
    }
    return name.back() != '/';
}

std::string mimeTypeFor(const std::string& name) {
    auto ext = fs::path(name).extension().string();
    for (auto& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext == ".png") return "image/png";
    if (ext == ".jpg" || ext == ".jpeg") return "image/jpeg";
    if (ext == ".gif") return "image/gif";
    if (ext == ".mp4") return "video/mp4";
    if (ext == ".webm") return "video/webm";
    if (ext == ".json") return "application/json";
    if (ext == ".html") return "text/html; charset=utf-8";
    if (ext == ".css") return "text/css; charset=utf-8";
    if (ext == ".js") return "text/javascript; charset=utf-8";
    if (ext == ".svg") return "image/svg+xml";
    if (ext == ".txt") return "text/plain; charset=utf-8";
    return "application/octet-stream";
}

std::map<std::string, std::string> firstParams(const httplib::Params& params) {
    std::map<std::string, std::string> out;
    for (const auto& [key, value] : params) out.emplace(key, value);
    return out;
}

std::string rawQuery(const std::string& target) {
    auto q = target.find('?');
    return q == std::string::npos ? std::string() : target.substr(q + 1);
}

// Received bytes are not always UTF-8 (a percent-escaped query, a binary body); they are shown
// with replacement characters instead of failing the answer.
std::string dumpText(const json& value, int indent = -1) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

// One server-sent event; the data is a single line of JSON.
std::string sseEvent(uint64_t id, const std::string& type, const json& data) {
    return "id: " + std::to_string(id) + "\nevent: " + type + "\ndata: " + dumpText(data) + "\n\n";
}

json errorJson(const std::string& message) {
    return json{{"error", message}};
}

json fetchToJson(const FetchRecord& r) {
    return json{{"timeMs", r.timeMs},
                {"url", r.url},
                {"query", r.query},
                {"params", r.params},
                {"contentType", r.contentType},
                {"body", r.body},
                {"slotId", r.slotId},
                {"status", r.status},
                {"answer", r.answer}};
}

}  // namespace

struct Sandbox::Impl {
    Inventory inventory;
    std::map<std::string, Simulation> inventorySimulations;  // as read, for a reset
    std::string creativesDir;
    std::string webDir;
    std::string host;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    std::atomic<int> port{0};

    mutable std::mutex mutex;
    mutable std::condition_variable changed;  // new records, or stopping
    bool stopping = false;
    bool running = false;
    std::vector<TrackingRecord> tracking;
    std::vector<FetchRecord> fetches;
    std::function<void(const TrackingRecord&)> observer;
    Inspector inspector;
    // What the inspector pages are told, in order: (sequence number, event text).
    std::deque<std::pair<uint64_t, std::string>> events;
    uint64_t lastEvent = 0;
    int streams = 0;

    // Under `mutex`.
    void publish(const std::string& type, const json& data) {
        ++lastEvent;
        events.emplace_back(lastEvent, sseEvent(lastEvent, type, data));
        while (events.size() > kMaxEvents) events.pop_front();
        changed.notify_all();
    }

    // Under `mutex`.
    json slotsJson() const {
        json out = json::object();
        for (const auto& [id, slot] : inventory.slots) {
            json entry = simulationToJson(slot.simulate);
            entry["description"] = slot.description;
            entry["ads"] = slot.ads.size();
            auto original = inventorySimulations.find(id);
            entry["changed"] =
                original != inventorySimulations.end() &&
                simulationToJson(original->second) != simulationToJson(slot.simulate);
            out[id] = entry;
        }
        return out;
    }

    // Under `mutex`.
    json snapshot() const {
        json out = inspector.exportJson();
        out["slots"] = slotsJson();
        out["baseUrl"] = base();
        return out;
    }

    std::string base() const { return "http://" + host + ":" + std::to_string(port.load()); }

    // Waits up to `ms` unless the server stops first; true when it was interrupted.
    bool holdFor(int64_t ms) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(ms), [&] { return stopping; });
    }

    void routes() {
        server->Post(kFetchPath, [this](const httplib::Request& req, httplib::Response& res) {
            onFetch(req, res);
        });
        server->Get(kFetchPath, [](const httplib::Request&, httplib::Response& res) {
            res.status = 405;
            res.set_content("{\"error\":\"use POST\"}", "application/json");
        });
        server->Get(R"(/creatives/(.+))", [this](const httplib::Request& req,
                                                 httplib::Response& res) { onCreative(req, res); });
        auto track = [this](const httplib::Request& req, httplib::Response& res) {
            onTrack(req, res);
        };
        server->Get(R"(/track/.*)", track);
        server->Post(R"(/track/.*)", track);
        server->Put(R"(/track/.*)", track);
        // Landing pages of the shipped ads, so a click never leaves the machine.
        server->Get(R"(/landing/.*)", [](const httplib::Request& req, httplib::Response& res) {
            std::string page =
                "<!doctype html><title>Pelora sandbox</title><h1>Landing page</h1>"
                "<p>You reached the sandbox landing page for <code>";
            for (char c : req.path) {
                if (c == '<' || c == '>' || c == '&' || c == '"') continue;
                page += c;
            }
            page += "</code>.</p>";
            res.set_content(page, "text/html");
        });
        server->Get("/sandbox/records", [this](const httplib::Request&, httplib::Response& res) {
            res.set_content(recordsJson(), "application/json");
        });
        server->Get("/sandbox/fetches", [this](const httplib::Request&, httplib::Response& res) {
            json out = {{"fetches", json::array()}};
            std::lock_guard lock(mutex);
            for (const auto& f : fetches) out["fetches"].push_back(fetchToJson(f));
            res.set_content(dumpText(out, 2), "application/json");
        });
        auto clear = [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            clearLocked();
            res.status = 204;
        };
        server->Delete("/sandbox/records", clear);
        server->Post("/sandbox/records/clear", clear);
        server->Get("/sandbox/slots", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            res.set_content(dumpText(slotsJson(), 2), "application/json");
        });
        server->Put(R"(/sandbox/slots/([^/]+)/simulate)",
                    [this](const httplib::Request& req, httplib::Response& res) {
                        onSetSimulation(req, res);
                    });
        server->Delete(R"(/sandbox/slots/([^/]+)/simulate)",
                       [this](const httplib::Request& req, httplib::Response& res) {
                           onResetSimulation(req, res);
                       });
        server->Get("/sandbox/inspector/export",
                    [this](const httplib::Request&, httplib::Response& res) {
                        json out;
                        {
                            std::lock_guard lock(mutex);
                            out = snapshot();
                        }
                        out["exportedAtMs"] = nowMs();
                        res.set_header("Content-Disposition",
                                       "attachment; filename=\"pelora-sandbox-record.json\"");
                        res.set_content(dumpText(out, 2), "application/json");
                    });
        server->Get("/sandbox/inspector/events",
                    [this](const httplib::Request&, httplib::Response& res) { onEvents(res); });
        server->Get("/inspector", [](const httplib::Request&, httplib::Response& res) {
            res.set_redirect(kInspectorPath);
        });
        server->Get(R"(/inspector/(.*))", [this](const httplib::Request& req,
                                                 httplib::Response& res) { onPageFile(req, res); });
    }

    void onPageFile(const httplib::Request& req, httplib::Response& res) {
        std::string name = req.matches.size() > 1 ? req.matches[1].str() : std::string();
        if (name.empty()) name = "index.html";
        if (!safeCreativeName(name)) {
            res.status = 400;
            return;
        }
        auto bytes = readWholeFile(webDir + "/" + name);
        if (!bytes) {
            res.status = 404;
            res.set_content("not found", "text/plain");
            return;
        }
        res.set_header("Cache-Control", "no-store");
        res.set_content(*bytes, mimeTypeFor(name));
    }

    // The live feed of a page: a snapshot of everything so far, then each new event. The
    // stream ends when the page goes away or the server stops.
    void onEvents(httplib::Response& res) {
        {
            std::lock_guard lock(mutex);
            if (streams >= kMaxInspectorStreams || stopping) {
                res.status = 503;
                res.set_content(dumpText(errorJson("too many inspector pages are open")),
                                "application/json");
                return;
            }
            ++streams;
        }
        res.set_header("Cache-Control", "no-store");
        auto sent = std::make_shared<std::optional<uint64_t>>();
        res.set_chunked_content_provider(
            "text/event-stream",
            [this, sent](size_t, httplib::DataSink& sink) {
                std::string out;
                {
                    std::unique_lock lock(mutex);
                    auto behind = [&] {
                        return !events.empty() && **sent + 1 < events.front().first;
                    };
                    if (*sent && !behind()) {
                        changed.wait_for(lock, kStreamIdle,
                                         [&] { return stopping || lastEvent > **sent; });
                    }
                    if (stopping) {
                        lock.unlock();
                        sink.done();
                        return true;
                    }
                    if (!*sent || behind()) {
                        out = sseEvent(lastEvent, "snapshot", snapshot());
                    } else {
                        for (const auto& [id, text] : events)
                            if (id > **sent) out += text;
                    }
                    *sent = lastEvent;
                }
                if (out.empty()) out = ": idle\n\n";
                if (!sink.is_writable() || !sink.write(out.data(), out.size())) return false;
                return true;
            },
            [this](bool) {
                std::lock_guard lock(mutex);
                --streams;
                changed.notify_all();  // stop() waits for the feeds to end cleanly
            });
    }

    void onSetSimulation(const httplib::Request& req, httplib::Response& res) {
        const std::string id = req.matches[1].str();
        auto fail = [&](int status, const std::string& message) {
            res.status = status;
            res.set_content(dumpText(errorJson(message)), "application/json");
        };
        json body = json::parse(req.body, nullptr, /*allow_exceptions=*/false);
        if (body.is_discarded() || !body.is_object())
            return fail(400, "the body must be a JSON object such as {\"status\": 500}");
        // Keys left out take their defaults: the body describes the whole simulation.
        Simulation sim;
        std::string error;
        if (!parseSimulation(body, sim, "slot \"" + id + "\"", &error, /*strict=*/true))
            return fail(400, error);
        json answer;
        {
            std::lock_guard lock(mutex);
            auto it = inventory.slots.find(id);
            if (it == inventory.slots.end()) return fail(404, "no slot \"" + id + "\"");
            it->second.simulate = sim;
            publish("slots", slotsJson());
            answer = slotsJson()[id];
        }
        res.set_content(dumpText(answer, 2), "application/json");
    }

    void onResetSimulation(const httplib::Request& req, httplib::Response& res) {
        const std::string id = req.matches[1].str();
        json answer;
        {
            std::lock_guard lock(mutex);
            auto it = inventory.slots.find(id);
            if (it == inventory.slots.end()) {
                res.status = 404;
                res.set_content(dumpText(errorJson("no slot \"" + id + "\"")), "application/json");
                return;
            }
            it->second.simulate = inventorySimulations[id];
            publish("slots", slotsJson());
            answer = slotsJson()[id];
        }
        res.set_content(dumpText(answer, 2), "application/json");
    }

    // Under `mutex`.
    void clearLocked() {
        tracking.clear();
        fetches.clear();
        inspector.clear();
        events.clear();
        publish("reset", json::object());
    }

    std::string recordsJson() const {
        json out = {{"records", json::array()}};
        std::lock_guard lock(mutex);
        for (const auto& r : tracking) out["records"].push_back(trackingRecordToJson(r));
        return dumpText(out, 2);
    }

    std::string fullUrl(const httplib::Request& req) const {
        auto hostHeader = req.get_header_value("Host");
        return "http://" +
               (hostHeader.empty() ? host + ":" + std::to_string(port.load()) : hostHeader) +
               req.target;
    }

    void onFetch(const httplib::Request& req, httplib::Response& res) {
        FetchRecord record;
        record.timeMs = nowMs();
        record.url = fullUrl(req);
        record.query = rawQuery(req.target);
        record.params = firstParams(req.params);
        record.contentType = req.get_header_value("Content-Type");
        record.body = req.body;
        json body = json::parse(req.body, nullptr, /*allow_exceptions=*/false);
        if (body.is_object() && body.contains("slot") && body["slot"].is_object() &&
            body["slot"].contains("slotId") && body["slot"]["slotId"].is_string()) {
            record.slotId = body["slot"]["slotId"].get<std::string>();
        }

        const SlotEntry* slot = nullptr;
        if (auto it = inventory.slots.find(record.slotId); it != inventory.slots.end())
            slot = &it->second;
        // The inspector's control panel may change a slot's simulation at any time.
        Simulation sim;
        {
            std::lock_guard lock(mutex);
            sim = slot ? slot->simulate : inventory.unknownSlot;
        }

        if (sim.noAnswer) {
            // Recorded before holding, so a test can see the request arrived while its
            // client is still waiting for an answer that never comes.
            size_t index = appendFetch(record);
            holdFor(sim.holdMs);
            res.status = 503;
            setFetchStatus(index, 0);
            return;
        }
        if (sim.delayMs > 0 && holdFor(sim.delayMs)) {
            res.status = 503;
            record.status = 503;
            appendFetch(record);
            return;
        }

        res.status = sim.status;
        record.status = sim.status;
        json envelope;
        std::string reqId = req.has_param("reqId") ? req.get_param_value("reqId") : std::string();
        switch (sim.body) {
            case BodyMode::Empty:
                // httplib would otherwise write an error page for statuses >= 400.
                res.set_content("", sim.contentType);
                break;
            case BodyMode::Malformed:
                res.set_content("{\"code\":0,\"data\":{\"ads\":[{\"adId\":", sim.contentType);
                break;
            case BodyMode::Raw:
                res.set_content(sim.rawBody, sim.contentType);
                break;
            case BodyMode::NoData:
                envelope = {{"code", sim.code}, {"msg", "no data (simulated)"}};
                res.set_content(dumpText(envelope), sim.contentType);
                break;
            case BodyMode::NoAds:
            case BodyMode::Ads: {
                json ads = json::array();
                if (sim.body == BodyMode::Ads && slot)
                    ads = expandAds(slot->ads, base(), record.slotId);
                envelope = {
                    {"code", sim.code},
                    {"data", {{"reqId", reqId}, {"provider", inventory.provider}, {"ads", ads}}}};
                res.set_content(dumpText(envelope), sim.contentType);
                break;
            }
        }
        record.answer = res.body;
        appendFetch(record);
    }

    size_t appendFetch(const FetchRecord& record) {
        std::lock_guard lock(mutex);
        fetches.push_back(record);
        json entry = inspector.addFetch(record);
        publish("fetch", entry);
        for (const auto& id : Inspector::servingsOf(entry)) publish("ad", inspector.serving(id));
        return fetches.size() - 1;
    }

    void setFetchStatus(size_t index, int status) {
        std::lock_guard lock(mutex);
        if (index < fetches.size()) fetches[index].status = status;
    }

    void onCreative(const httplib::Request& req, httplib::Response& res) {
        const std::string name = req.matches.size() > 1 ? req.matches[1].str() : std::string();
        if (!safeCreativeName(name)) {
            res.status = 400;
            return;
        }
        auto bytes = readWholeFile(creativesDir + "/" + name);
        if (!bytes) {
            res.status = 404;
            res.set_content("", "text/plain");
            return;
        }
        res.set_content(*bytes, mimeTypeFor(name));
    }

    void onTrack(const httplib::Request& req, httplib::Response& res) {
        TrackingRecord record;
        record.timeMs = nowMs();
        record.method = req.method;
        record.url = fullUrl(req);
        record.path = req.path;
        record.query = rawQuery(req.target);
        record.params = firstParams(req.params);
        record.contentType = req.get_header_value("Content-Type");
        record.body = req.body;
        // "/track/<slot>/<adId>/<trackType>"; anything else is still recorded as sent.
        std::vector<std::string> parts;
        std::stringstream segments(req.path);
        for (std::string part; std::getline(segments, part, '/');) parts.push_back(part);
        if (parts.size() >= 5) {
            record.slot = parts[2];
            record.adId = parts[3];
            try {
                record.trackType = std::stoll(parts[4]);
            } catch (...) {
                record.trackType = 0;
            }
        }
        std::function<void(const TrackingRecord&)> notify;
        {
            std::lock_guard lock(mutex);
            tracking.push_back(record);
            notify = observer;
            json entry = inspector.addBeacon(record);
            publish("beacon", entry);
            if (auto id = Inspector::servingOf(entry); !id.empty())
                publish("ad", inspector.serving(id));
        }
        if (notify) notify(record);
        res.status = 204;
    }
};

Sandbox::Sandbox() : impl_(std::make_unique<Impl>()) {}

Sandbox::~Sandbox() {
    stop();
}

bool Sandbox::start(const SandboxOptions& options, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        return false;
    };
    if (running()) return fail("already running");

    const std::string inventoryPath =
        options.inventoryPath.empty() ? defaultInventoryPath() : options.inventoryPath;
    auto text = readWholeFile(inventoryPath);
    if (!text) return fail("cannot read inventory " + inventoryPath);
    std::string parseError;
    auto inventory = parseInventory(*text, &parseError);
    if (!inventory) return fail(inventoryPath + ": " + parseError);

    impl_->inventory = std::move(*inventory);
    impl_->creativesDir =
        options.creativesDir.empty() ? defaultCreativesDir() : options.creativesDir;
    impl_->webDir = options.webDir.empty() ? defaultWebDir() : options.webDir;
    impl_->inventorySimulations.clear();
    for (const auto& [id, slot] : impl_->inventory.slots)
        impl_->inventorySimulations[id] = slot.simulate;
    impl_->host = options.host;
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = false;
        impl_->clearLocked();
    }

    impl_->server = std::make_unique<httplib::Server>();
    impl_->server->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
    // One request per connection: an idle keep-alive connection would otherwise pin a worker
    // and make stop() wait for the keep-alive time-out.
    impl_->server->set_keep_alive_max_count(1);
    impl_->server->set_read_timeout(5, 0);
    // Address reuse lets a restarted sandbox take its port back at once, but unlike the
    // library's default no port sharing: a second server on a busy port must fail loudly.
    impl_->server->set_socket_options([](int sock) {
        int yes = 1;
        ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    impl_->routes();

    int port = options.port == 0
                   ? impl_->server->bind_to_any_port(options.host)
                   : (impl_->server->bind_to_port(options.host, options.port) ? options.port : -1);
    if (port <= 0) {
        impl_->server.reset();
        return fail("cannot listen on " + options.host + ":" + std::to_string(options.port));
    }
    impl_->port = port;
    impl_->thread = std::thread([server = impl_->server.get()] { server->listen_after_bind(); });
    // stop() only takes effect once the listener runs, so wait for it here (bounded).
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!impl_->server->is_running() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    {
        std::lock_guard lock(impl_->mutex);
        impl_->running = true;
    }
    return true;
}

void Sandbox::stop() {
    {
        std::unique_lock lock(impl_->mutex);
        if (!impl_->running && !impl_->thread.joinable()) return;
        impl_->stopping = true;
        impl_->running = false;
        impl_->changed.notify_all();  // releases held and delayed answers, ends the feeds
        // The inspector pages' feeds end with their last chunk before the sockets close, so a
        // page sees the end of its stream rather than a broken connection (bounded: a page
        // that stopped reading does not hold the server).
        impl_->changed.wait_for(lock, std::chrono::seconds(2), [&] { return impl_->streams == 0; });
    }
    if (impl_->server) impl_->server->stop();
    if (impl_->thread.joinable()) impl_->thread.join();
    impl_->server.reset();
}

bool Sandbox::running() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->running;
}

int Sandbox::port() const {
    return impl_->port.load();
}

std::string Sandbox::baseUrl() const {
    return impl_->base();
}

std::string Sandbox::fetchUrl() const {
    return baseUrl() + kFetchPath;
}

std::string Sandbox::inspectorUrl() const {
    return baseUrl() + kInspectorPath;
}

std::vector<TrackingRecord> Sandbox::trackingRecords() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->tracking;
}

std::vector<FetchRecord> Sandbox::fetchRecords() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->fetches;
}

void Sandbox::clearRecords() {
    std::lock_guard lock(impl_->mutex);
    impl_->clearLocked();
}

bool Sandbox::waitForTrackingRecords(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout, [&] { return impl_->tracking.size() >= count; });
}

bool Sandbox::waitForFetchRecords(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout, [&] { return impl_->fetches.size() >= count; });
}

void Sandbox::setTrackingObserver(std::function<void(const TrackingRecord&)> observer) {
    std::lock_guard lock(impl_->mutex);
    impl_->observer = std::move(observer);
}

std::string Sandbox::trackingRecordsJson() const {
    return impl_->recordsJson();
}

std::string Sandbox::defaultInventoryPath() {
    return sandboxDataDir() + "/inventory/default.json";
}

std::string Sandbox::defaultCreativesDir() {
    return sandboxDataDir() + "/creatives";
}

std::string Sandbox::defaultWebDir() {
    return sandboxDataDir() + "/web";
}

}  // namespace pelora::sandbox
