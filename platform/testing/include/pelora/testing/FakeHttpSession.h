#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pelora/platform/Export.h"
#include "pelora/platform/Http.h"
#include "pelora/platform/RunLoop.h"

namespace pelora::testing {

// A network for tests, in the way of a test URL loader factory: answers queued by URL,
// requests left pending until the test answers them, every request recorded as it was sent.
// Completions arrive through the main run loop (posted, never inside the call that started
// the task), as the real backend's do, so a test runs on one thread and the manual clock.
//
// Like a real session it fails URLs other than http and https with -1002 at once, and a
// body larger than the session's or the request's bound with -1103.
// Matching: an answer added for a URL with a query string matches that exact URL; one added
// for a URL without a query matches that URL with any query. The answer stays in place for
// later requests until it is replaced or removed.
class PELORA_EXPORT FakeHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    struct Response {
        int64_t status = 200;
        platform::HeaderList headers;
        std::string body;
        // Set: the task fails with this URL error code (-1001 time-out, -1004, -999, ...).
        std::optional<int64_t> error;
        // Answer after this many seconds of the loop's clock instead of on the next turn.
        double delay = 0;
        // Never answer: the request stays pending until it is cancelled or times out.
        bool never = false;

        static Response ok(std::string body, int64_t status = 200) {
            Response r;
            r.body = std::move(body);
            r.status = status;
            return r;
        }
        static Response failure(int64_t code) {
            Response r;
            r.error = code;
            return r;
        }
    };

    struct Request {
        uint64_t id = 0;
        platform::HttpRequest request;
        bool download = false;
    };

    // `loop` null means the installed services' main run loop at the time of each call.
    // Download tasks write their temporary files into `temporaryDirectory`.
    explicit FakeHttpSessionFactory(std::shared_ptr<platform::RunLoop> loop = nullptr,
                                    std::string temporaryDirectory = {});
    ~FakeHttpSessionFactory() override;

    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;

    // --- answers ---------------------------------------------------------------------------
    void addResponse(const std::string& url, Response response);
    void removeResponse(const std::string& url);
    // Answer for URLs without an answer of their own; absent (the default) leaves them pending.
    void setDefaultResponse(std::optional<Response> response);
    // Decides the answer of every request before the answers by URL are looked at: a value
    // answers it, nothing falls through to them. Runs when the task is resumed.
    using Responder = std::function<std::optional<Response>(const platform::HttpRequest&)>;
    void setResponder(Responder responder);
    // When on, a request still pending when its time-out has passed on the loop's clock
    // fails with -1001, as a real session's would.
    void setSimulateTimeouts(bool simulate);
    // Answers the oldest pending request whose URL matches (by the rule above); false when
    // none is pending.
    bool respond(const std::string& url, Response response);

    // --- what was sent ---------------------------------------------------------------------
    std::vector<Request> requests() const;
    std::vector<Request> pending() const;
    size_t requestCount() const;
    size_t pendingCount() const;
    // URLs of the requests sent so far, in order, that start with `prefix`.
    std::vector<std::string> urlsStartingWith(const std::string& prefix) const;
    void clearRequests();

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}  // namespace pelora::testing
