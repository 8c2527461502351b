// The libcurl session against loopback servers: what the server received, what the completion
// delivered, and what never left.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "LoopbackServer.h"
#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/platform/Http.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using pelora::desktop::CurlHttpSessionFactory;
using pelora::platform::HttpRequest;
using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;
using pelora::testing::TestTls;
namespace URLError = pelora::platform::URLError;

// What a completion delivered, and on which thread; a download's file is read while it runs.
struct Outcome {
    int64_t code = 0;
    std::optional<std::string> data, fileContents;
    std::optional<pelora::platform::HttpResponse> response;
    std::thread::id thread;
};

class HttpSessionTest : public ::testing::Test {
  protected:
    void SetUp() override { useSession({}); }
    void TearDown() override {
        session.reset();
        fs::remove_all(dir);
    }
    void useSession(pelora::platform::HttpSessionConfiguration config) {
        config.temporaryDirectory = (dir / "tmp").string();
        session = factory.createSession(config);
    }
    HttpRequest at(const std::string& pathOrUrl) {
        HttpRequest r;
        r.url = pathOrUrl.starts_with("/") ? server.url(pathOrUrl) : pathOrUrl;
        r.timeoutInterval = 10;
        return r;
    }
    // The completion for a task whose outcome arrives in `result`; a second call fails the test.
    pelora::platform::DataTaskCompletion completion(std::shared_future<Outcome>& result,
                                                    bool download = false) {
        auto promise = std::make_shared<std::promise<Outcome>>();
        result = promise->get_future().share();
        return [promise, download, calls = std::make_shared<std::atomic<int>>()](
                   auto data, auto response, auto error) {
            if (++*calls > 1) return ADD_FAILURE() << "completed twice";
            Outcome out{error ? error->code : 0, data, {}, response, std::this_thread::get_id()};
            if (download && data) {
                std::stringstream file;
                file << std::ifstream(*data, std::ios::binary).rdbuf();
                out.fileContents = file.str();
            }
            promise->set_value(std::move(out));
        };
    }
    std::shared_future<Outcome> start(const HttpRequest& r, bool download = false) {
        std::shared_future<Outcome> result;
        (download ? session->downloadTask(r, completion(result, true))
                  : session->dataTask(r, completion(result)))
            ->resume();
        return result;
    }
    Outcome fetch(const HttpRequest& r, bool download = false) {
        auto result = start(r, download);
        if (result.wait_for(std::chrono::seconds(10)) == std::future_status::ready)
            return result.get();
        ADD_FAILURE() << "no completion for " << r.url;
        return {.code = -1};
    }

    LoopbackServer server;
    CurlHttpSessionFactory factory;
    fs::path dir = fs::temp_directory_path() /
                   ("pelora-http-" + std::to_string(::getpid()) + "-" +
                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::shared_ptr<pelora::platform::HttpSession> session;
};

TEST_F(HttpSessionTest, PostCarriesMethodQueryAndBodyAndErrorStatusesAreAnswers) {
    server.on("/api/v1/advert/fetch", LoopbackResponse::json(R"({"code":1})", 404));
    // Over 1 KB: libcurl would otherwise announce it with "Expect: 100-continue" and wait.
    const std::string body = R"({"slot":")" + std::string(2000, 's') + R"("})";
    HttpRequest req = at("/api/v1/advert/fetch?appid=A%20B&n=1");
    req.method = "POST";
    req.body = body;
    req.timeoutInterval = 0;  // none: the default applies
    const auto out = fetch(req);
    ASSERT_EQ(out.code, 0);
    EXPECT_EQ(std::pair(out.response->statusCode, *out.data),
              std::pair(int64_t{404}, R"({"code":1})"s));
    EXPECT_NE(out.thread, std::this_thread::get_id()) << "completions run on the session's thread";
    auto got = server.requests();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].method + " " + got[0].target, "POST /api/v1/advert/fetch?appid=A%20B&n=1");
    EXPECT_FALSE(got[0].header("Expect"));
    EXPECT_EQ(got[0].body, body);
}

TEST_F(HttpSessionTest, CancellingReportsCancelledOnceAndSendsNothingMore) {
    server.on("/hang", LoopbackResponse::hang());
    std::shared_future<Outcome> running, early;
    auto task = session->dataTask(at("/hang"), completion(running));
    task->resume();
    ASSERT_TRUE(server.waitForRequests(1, 10));
    std::thread([&] { task->cancel(); }).join();  // neither the session's thread nor ours
    auto never = session->dataTask(at("/hang"), completion(early));
    never->cancel();
    never->resume();
    task->cancel();
    auto inFlight = start(at("/hang"));
    ASSERT_TRUE(server.waitForRequests(2, 10));
    session->invalidateAndCancel();
    auto later = start(at("/hang"));
    useSession({});
    auto destroyed = start(at("/hang"));
    ASSERT_TRUE(server.waitForRequests(3, 10));
    session.reset();  // joins the session's thread: a second completion would have run
    EXPECT_EQ(destroyed.wait_for(std::chrono::seconds(0)), std::future_status::ready)
        << "delivered before the destructor returned";
    for (auto* result : {&running, &early, &inFlight, &later, &destroyed})
        EXPECT_EQ(result->get().code, URLError::kCancelled);
    EXPECT_EQ(server.requestCount(), 3u);
}

TEST_F(HttpSessionTest, OnlyWellFormedHttpRequestsEverLeave) {
    const std::string port = std::to_string(server.port());
    for (const std::string& url : {"file:///etc/passwd"s, "ftp://127.0.0.1:" + port + "/", ""s})
        EXPECT_EQ(fetch(at(url)).code, URLError::kUnsupportedURL) << url;
    for (const std::string& url :
         {server.url("/ok") + "\0/elsewhere"s, server.url("/a b"), server.url("/del\x7f")})
        EXPECT_EQ(fetch(at(url)).code, URLError::kBadURL) << url;
    for (auto [name, value] : {std::pair{"X"s, "a\rX-Injected: 1"s},
                               {"X"s, "a\nX-Injected: 1"s},
                               {"X"s, "a\0X"s},
                               {"X Bad"s, "v"s},
                               {""s, "v"s}}) {
        HttpRequest req = at("/ok");
        req.headers.emplace_back(name, value);
        EXPECT_EQ(fetch(req).code, URLError::kBadURL) << name << ": " << value;
    }
    EXPECT_EQ(server.connectionCount(), 0u);
    // Tabs inside a value and every token character in a name are fine.
    server.on("/ok", LoopbackResponse::text("fine"));
    HttpRequest fine = at("/ok");
    fine.headers.emplace_back("X-Token!#$%&'*+-.^_`|~", "a\tb");
    EXPECT_EQ(fetch(fine).data, "fine");
}

TEST_F(HttpSessionTest, BodiesOverTheSessionsOrTheRequestsCapAreAborted) {
    for (size_t size : {800, 1000, 1001}) {
        auto sized = LoopbackResponse::text(std::string(size, 'x')), streamed = sized;
        streamed.chunked = true;  // no Content-Length: only the running count can stop it
        server.on("/sized/" + std::to_string(size), sized);
        server.on("/streamed/" + std::to_string(size), streamed);
    }
    useSession({.maxBodyBytes = 1000, .maxDownloadBytes = 500});
    struct Case {
        const char* path;
        std::optional<uint64_t> requestCap;  // lowers the session's cap, never raises it
        bool download;
        size_t received;  // 0: refused as too long
    } cases[] = {{"/sized/1001", 5000, false, 0},     {"/streamed/1001", {}, false, 0},
                 {"/streamed/1000", {}, false, 1000}, {"/sized/800", 700, false, 0},
                 {"/streamed/800", 700, false, 0},    {"/streamed/800", {}, true, 0}};
    for (const auto& c : cases) {
        HttpRequest req = at(c.path);
        req.maxBodyBytes = c.requestCap;
        const auto out = fetch(req, c.download);
        EXPECT_EQ(out.code, c.received ? 0 : URLError::kDataLengthExceedsMaximum) << c.path;
        EXPECT_EQ(out.data ? out.data->size() : 0, c.received) << c.path;
    }
}

// A completion that moves the file away keeps it: tests/core/FaultInjectionTest downloads a
// video that way.
TEST_F(HttpSessionTest, ADownloadsFileLastsUntilItsCompletionReturnsAndAFailedOneLeavesNone) {
    const std::string payload(3000, 'v');
    server.on("/video.mp4", LoopbackResponse::text(payload));
    const auto done = fetch(at("/video.mp4"), true);
    const auto failed =
        fetch(at("http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort())), true);
    session.reset();
    ASSERT_TRUE(done.data);
    EXPECT_EQ(fs::path(*done.data).parent_path(), dir / "tmp");
    EXPECT_EQ(done.fileContents, payload);
    EXPECT_EQ(failed.code, URLError::kCannotConnectToHost);
    EXPECT_FALSE(failed.data);
    EXPECT_TRUE(fs::is_empty(dir / "tmp"));
}

// Local TLS servers whose certificates the test authority signed for 127.0.0.1 only, trusted
// through the factory as the desktop platform does it. An unknown authority is covered through
// the SDK's transport in tests/tools (Cli.FetchOverHttpsTrustsTheNamedAuthorityOnly).
TEST_F(HttpSessionTest, OnlyATrustedUnexpiredCertificateForTheHostCompletesAnHttpsExchange) {
    LoopbackServer good({2, TestTls::certificateFile(), TestTls::keyFile()});
    LoopbackServer expired({2, TestTls::expiredCertificateFile(), TestTls::keyFile()});
    good.on("/secure", LoopbackResponse::text("over tls"));
    factory = CurlHttpSessionFactory(TestTls::authorityFile());
    useSession({});
    EXPECT_EQ(fetch(at(good.url("/secure"))).data, "over tls");
    EXPECT_EQ(fetch(at("https://localhost:" + std::to_string(good.port()) + "/secure")).code,
              URLError::kServerCertificateUntrusted);
    EXPECT_EQ(fetch(at(expired.url("/secure"))).code, URLError::kServerCertificateHasBadDate);
    EXPECT_EQ(good.requestCount() + expired.requestCount(), 1u);
}

}  // namespace
