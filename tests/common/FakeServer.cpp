#include "FakeServer.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace pelora::testing {

using Response = FakeHttpSessionFactory::Response;

struct FakeServer::Routes {
    std::mutex mutex;
    std::map<std::string, LoopbackHandler> handlers;
    std::vector<RecordedRequest> requests;
    std::optional<int64_t> failure;
};

namespace {

RecordedRequest record(const platform::HttpRequest& request, const std::string& origin,
                       size_t index) {
    RecordedRequest r;
    r.index = index;
    r.method = request.method;
    std::string target = request.url.substr(origin.size());
    if (target.empty()) target = "/";
    r.target = target;
    auto q = target.find('?');
    r.path = target.substr(0, q);
    if (q != std::string::npos) r.query = target.substr(q + 1);
    r.params = parseQuery(r.query);
    r.headers = request.headers;
    r.body = request.body;
    r.remoteAddress = "127.0.0.1";
    return r;
}

}  // namespace

FakeServer::FakeServer(TestPlatform& platform, std::string origin)
    : platform_(platform), origin_(std::move(origin)), routes_(std::make_shared<Routes>()) {
    std::weak_ptr<Routes> weak = routes_;
    const std::string prefix = origin_;
    platform_.fake->setResponder(
        [weak, prefix](const platform::HttpRequest& request) -> std::optional<Response> {
            auto routes = weak.lock();
            if (!routes || request.url.rfind(prefix, 0) != 0) return std::nullopt;
            LoopbackHandler handler;
            RecordedRequest recorded;
            {
                std::lock_guard lock(routes->mutex);
                recorded = record(request, prefix, routes->requests.size());
                routes->requests.push_back(recorded);
                if (routes->failure) return Response::failure(*routes->failure);
                auto it = routes->handlers.find(recorded.path);
                if (it != routes->handlers.end()) handler = it->second;
            }
            if (!handler) return Response::ok("", 404);
            LoopbackResponse answer = handler(recorded);
            Response out = Response::ok(std::move(answer.body), answer.status);
            out.headers = answer.headers;
            out.headers.emplace_back("Content-Type", answer.contentType);
            out.delay = answer.delaySeconds;
            out.never = answer.neverAnswer;
            return out;
        });
}

FakeServer::~FakeServer() {
    platform_.fake->setResponder(nullptr);
}

void FakeServer::on(const std::string& path, LoopbackHandler handler) {
    std::lock_guard lock(routes_->mutex);
    routes_->handlers[path] = std::move(handler);
}

void FakeServer::on(const std::string& path, LoopbackResponse fixed) {
    on(path, [fixed](const RecordedRequest&) { return fixed; });
}

void FakeServer::failWith(std::optional<int64_t> code) {
    std::lock_guard lock(routes_->mutex);
    routes_->failure = code;
}

std::vector<RecordedRequest> FakeServer::requests() const {
    std::lock_guard lock(routes_->mutex);
    return routes_->requests;
}

std::vector<RecordedRequest> FakeServer::requestsTo(const std::string& path) const {
    std::vector<RecordedRequest> out;
    for (auto& r : requests())
        if (r.path == path) out.push_back(r);
    return out;
}

void FakeServer::clearRequests() {
    std::lock_guard lock(routes_->mutex);
    routes_->requests.clear();
}

}  // namespace pelora::testing
