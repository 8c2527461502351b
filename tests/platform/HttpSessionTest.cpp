#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "LoopbackServer.h"
#include "pelora/desktop/CurlHttpSession.h"
#include "pelora/platform/Http.h"

namespace {

using pelora::platform::HttpRequest;
using pelora::platform::HttpResponse;
using pelora::platform::HttpSession;
using pelora::platform::HttpSessionConfiguration;
using pelora::testing::LoopbackResponse;
using pelora::testing::LoopbackServer;
using pelora::testing::RecordedRequest;
namespace URLError = pelora::platform::URLError;

// What one completion delivered, and on which thread.
struct Outcome {
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
    int calls = 0;
    std::optional<std::string> data;
    std::optional<HttpResponse> response;
    std::optional<pelora::platform::Error> error;
    std::thread::id thread;

    pelora::platform::DataTaskCompletion dataCompletion() {
        return [this](auto data, auto response, auto error) {
            std::lock_guard lock(mutex);
            this->data = std::move(data);
            this->response = std::move(response);
            this->error = std::move(error);
            thread = std::this_thread::get_id();
            ++calls;
            done = true;
            cv.notify_all();
        };
    }

    bool wait(double seconds = 10) {
        std::unique_lock lock(mutex);
        return cv.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return done; });
    }
    int64_t errorCode() {
        std::lock_guard lock(mutex);
        return error ? error->code : 0;
    }
};

class HttpSessionTest : public ::testing::Test {
  protected:
    std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration config = {}) {
        if (config.temporaryDirectory.empty()) config.temporaryDirectory = tempDir();
        return factory.createSession(config);
    }
    std::string tempDir() {
        auto dir = std::filesystem::temp_directory_path() /
                   ("pelora-http-" + std::to_string(::getpid()) + "-" +
                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(dir);
        dirs.push_back(dir);
        return dir.string();
    }
    void TearDown() override {
        std::error_code ec;
        for (auto& d : dirs) std::filesystem::remove_all(d, ec);
    }

    HttpRequest request(const std::string& pathAndQuery, double timeout = 10) {
        HttpRequest r;
        r.url = server.url(pathAndQuery);
        r.timeoutInterval = timeout;
        return r;
    }

    LoopbackServer server;
    pelora::desktop::CurlHttpSessionFactory factory;
    std::vector<std::filesystem::path> dirs;
};

TEST_F(HttpSessionTest, PostRoundTripCarriesMethodHeadersQueryAndBodyBothWays) {
    server.on("/api/v1/advert/fetch", [](const RecordedRequest&) {
        LoopbackResponse r = LoopbackResponse::json(R"({"code":0,"data":{}})", 201);
        r.headers.emplace_back("X-Answer", "forty two");
        return r;
    });
    auto session = makeSession();
    HttpRequest req = request("/api/v1/advert/fetch?appid=A%20B&n=1");
    req.method = "POST";
    req.setValue("application/json", "Content-Type");
    req.setValue("yes", "X-Probe");
    req.body = std::string(R"({"slot":{"id":"s1"}})");
    Outcome out;
    auto task = session->dataTask(req, out.dataCompletion());
    task->resume();
    ASSERT_TRUE(out.wait());

    ASSERT_FALSE(out.error) << out.error->description;
    ASSERT_TRUE(out.response);
    EXPECT_EQ(out.response->statusCode, 201);
    EXPECT_EQ(out.response->valueForHeader("x-answer"), "forty two");
    EXPECT_EQ(out.response->url, req.url);
    EXPECT_EQ(out.data, R"({"code":0,"data":{}})");

    auto got = server.requests();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].method, "POST");
    EXPECT_EQ(got[0].path, "/api/v1/advert/fetch");
    EXPECT_EQ(got[0].query, "appid=A%20B&n=1");
    EXPECT_EQ(got[0].param("appid"), "A B");
    EXPECT_EQ(got[0].header("Content-Type"), "application/json");
    EXPECT_EQ(got[0].header("X-Probe"), "yes");
    EXPECT_FALSE(got[0].header("Expect"));
    EXPECT_EQ(got[0].body, R"({"slot":{"id":"s1"}})");
}

TEST_F(HttpSessionTest, ErrorStatusesAreResponsesNotFailures) {
    server.on("/missing", LoopbackResponse::text("nope", 404));
    auto session = makeSession();
    Outcome out;
    session->dataTask(request("/missing"), out.dataCompletion())->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_FALSE(out.error);
    ASSERT_TRUE(out.response);
    EXPECT_EQ(out.response->statusCode, 404);
    EXPECT_EQ(out.data, "nope");
}

TEST_F(HttpSessionTest, CompletionsRunOnTheSessionThreadNeverTheCallers) {
    server.on("/ok", LoopbackResponse::text("ok"));
    auto session = makeSession();
    Outcome first, second;
    session->dataTask(request("/ok"), first.dataCompletion())->resume();
    session->dataTask(request("/ok"), second.dataCompletion())->resume();
    ASSERT_TRUE(first.wait());
    ASSERT_TRUE(second.wait());
    EXPECT_NE(first.thread, std::this_thread::get_id());
    EXPECT_EQ(first.thread, second.thread);  // one background thread per session
}

TEST_F(HttpSessionTest, SequentialRequestsReuseOneConnection) {
    server.on("/t", LoopbackResponse::text("ok"));
    auto session = makeSession();
    for (int i = 0; i < 5; ++i) {
        Outcome out;
        session->dataTask(request("/t?i=" + std::to_string(i)), out.dataCompletion())->resume();
        ASSERT_TRUE(out.wait());
        ASSERT_FALSE(out.error);
    }
    EXPECT_EQ(server.requestCount(), 5u);
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(HttpSessionTest, ZeroOrNegativeTimeOutFallsBackToTheDefault) {
    server.on("/ok", LoopbackResponse::text("fine"));
    auto session = makeSession();
    for (double timeout : {0.0, -1.0}) {
        Outcome out;
        session->dataTask(request("/ok", timeout), out.dataCompletion())->resume();
        ASSERT_TRUE(out.wait());
        EXPECT_FALSE(out.error) << "timeout " << timeout;
        EXPECT_EQ(out.data, "fine");
    }
}

TEST_F(HttpSessionTest, RefusedConnectionCannotConnect) {
    auto session = makeSession();
    HttpRequest req;
    req.url = "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/x";
    Outcome out;
    session->dataTask(req, out.dataCompletion())->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kCannotConnectToHost);
}

TEST_F(HttpSessionTest, CancellingARunningTaskReportsCancelledOnce) {
    server.on("/hang", LoopbackResponse::hang());
    auto session = makeSession();
    Outcome out;
    auto task = session->dataTask(request("/hang"), out.dataCompletion());
    task->resume();
    ASSERT_TRUE(server.waitForRequests(1, 10));
    // Cancelled from a thread other than the session's and the creator's.
    std::thread([&] { task->cancel(); }).join();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kCancelled);
    task->cancel();
    task->resume();
    session.reset();  // joins the session thread: no later second call can be pending
    EXPECT_EQ(out.calls, 1);
}

TEST_F(HttpSessionTest, CancellingBeforeResumeSendsNothing) {
    server.on("/ok", LoopbackResponse::text("ok"));
    auto session = makeSession();
    Outcome out;
    auto task = session->dataTask(request("/ok"), out.dataCompletion());
    task->cancel();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kCancelled);
    task->resume();
    // A request after it proves the session still works and that nothing else was sent.
    Outcome probe;
    session->dataTask(request("/ok"), probe.dataCompletion())->resume();
    ASSERT_TRUE(probe.wait());
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(HttpSessionTest, InvalidateCancelsRunningAndLaterTasks) {
    server.on("/hang", LoopbackResponse::hang());
    auto session = makeSession();
    Outcome running, later;
    session->dataTask(request("/hang"), running.dataCompletion())->resume();
    ASSERT_TRUE(server.waitForRequests(1, 10));
    session->invalidateAndCancel();
    ASSERT_TRUE(running.wait());
    EXPECT_EQ(running.errorCode(), URLError::kCancelled);
    session->dataTask(request("/hang"), later.dataCompletion())->resume();
    ASSERT_TRUE(later.wait());
    EXPECT_EQ(later.errorCode(), URLError::kCancelled);
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(HttpSessionTest, DestroyingTheSessionCancelsWhatIsInFlight) {
    server.on("/hang", LoopbackResponse::hang());
    auto session = makeSession();
    Outcome out;
    session->dataTask(request("/hang"), out.dataCompletion())->resume();
    ASSERT_TRUE(server.waitForRequests(1, 10));
    session.reset();
    ASSERT_TRUE(out.wait(0));  // delivered before the destructor returned
    EXPECT_EQ(out.errorCode(), URLError::kCancelled);
}

TEST_F(HttpSessionTest, OnlyHttpAndHttpsAreEverFetched) {
    auto session = makeSession();
    const std::string port = std::to_string(server.port());
    for (const std::string& url : std::vector<std::string>{
             "file:///etc/passwd", "ftp://127.0.0.1:" + port + "/", "gopher://127.0.0.1:" + port,
             "data:text/plain,hello", "javascript:alert(1)", "dict://127.0.0.1:" + port + "/d",
             "telnet://127.0.0.1:" + port, "127.0.0.1:" + port + "/no-scheme", ""}) {
        HttpRequest req;
        req.url = url;
        Outcome out;
        session->dataTask(req, out.dataCompletion())->resume();
        ASSERT_TRUE(out.wait()) << url;
        EXPECT_EQ(out.errorCode(), URLError::kUnsupportedURL) << url;
    }
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_EQ(server.connectionCount(), 0u);
}

TEST_F(HttpSessionTest, ABrokenRequestLineOrHeaderIsRefusedBeforeAnythingIsSent) {
    auto session = makeSession();
    std::vector<HttpRequest> broken;
    for (const std::string& url :
         {server.url("/ok") + std::string("\0/elsewhere", 11), server.url("/a b"),
          server.url("/line\r\nX-Injected: 1"), server.url("/tab\t")}) {
        HttpRequest req;
        req.url = url;
        broken.push_back(req);
    }
    for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
             {"Content-Type", "application/json\r\nX-Injected: 1"},
             {"Content-Type", "text/plain\nX-Injected: 1"},
             {"Content-Type", std::string("text/plain\0X", 12)},
             {"X-Bad Name", "v"},
             {"X-Bad:Name", "v"},
             {"", "v"}}) {
        HttpRequest req = request("/ok");
        req.headers.emplace_back(name, value);
        broken.push_back(req);
    }
    for (const auto& req : broken) {
        Outcome out;
        session->dataTask(req, out.dataCompletion())->resume();
        ASSERT_TRUE(out.wait());
        EXPECT_EQ(out.errorCode(), URLError::kBadURL) << req.url;
    }
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_EQ(server.connectionCount(), 0u);

    // Tabs inside a header value, and every token character in a name, are fine.
    server.on("/ok", LoopbackResponse::text("fine"));
    HttpRequest fine = request("/ok");
    fine.headers.emplace_back("X-Token!#$%&'*+-.^_`|~", "a\tb");
    Outcome out;
    session->dataTask(fine, out.dataCompletion())->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), 0);
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(HttpSessionTest, RedirectsAreFollowedOnlyToHttp) {
    const std::string port = std::to_string(server.port());
    server.on("/to-final", LoopbackResponse::redirect(server.url("/final")));
    server.on("/final", LoopbackResponse::text("landed"));
    server.on("/to-file", LoopbackResponse::redirect("file:///etc/passwd"));
    server.on("/to-ftp", LoopbackResponse::redirect("ftp://127.0.0.1:" + port + "/x"));
    auto session = makeSession();

    Outcome followed;
    session->dataTask(request("/to-final"), followed.dataCompletion())->resume();
    ASSERT_TRUE(followed.wait());
    ASSERT_FALSE(followed.error);
    EXPECT_EQ(followed.data, "landed");
    EXPECT_EQ(followed.response->url, server.url("/final"));

    for (const char* path : {"/to-file", "/to-ftp"}) {
        Outcome refused;
        session->dataTask(request(path), refused.dataCompletion())->resume();
        ASSERT_TRUE(refused.wait());
        EXPECT_EQ(refused.errorCode(), URLError::kUnsupportedURL) << path;
    }
    // Exactly the two hops of the followed redirect and one request per refused one.
    auto got = server.requests();
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(got[2].path, "/to-file");
    EXPECT_EQ(got[3].path, "/to-ftp");
}

TEST_F(HttpSessionTest, RedirectLoopsStopAtTheLimit) {
    server.on("/loop", LoopbackResponse::redirect("/loop"));
    HttpSessionConfiguration config;
    config.maxRedirects = 3;
    auto session = makeSession(config);
    Outcome out;
    session->dataTask(request("/loop"), out.dataCompletion())->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kHTTPTooManyRedirects);
    EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(HttpSessionTest, BodiesOverTheCapAreAborted) {
    LoopbackResponse sized = LoopbackResponse::text(std::string(5000, 'x'));
    LoopbackResponse streamed = sized;
    streamed.chunked = true;  // no Content-Length: only the running count can stop it
    server.on("/sized", sized);
    server.on("/streamed", streamed);
    server.on("/small", LoopbackResponse::text(std::string(1000, 'y')));
    HttpSessionConfiguration config;
    config.maxBodyBytes = 1000;
    auto session = makeSession(config);
    for (const char* path : {"/sized", "/streamed"}) {
        Outcome out;
        session->dataTask(request(path), out.dataCompletion())->resume();
        ASSERT_TRUE(out.wait());
        EXPECT_EQ(out.errorCode(), URLError::kDataLengthExceedsMaximum) << path;
        EXPECT_FALSE(out.data);
    }
    Outcome atCap;
    session->dataTask(request("/small"), atCap.dataCompletion())->resume();
    ASSERT_TRUE(atCap.wait());
    EXPECT_FALSE(atCap.error);
    EXPECT_EQ(atCap.data->size(), 1000u);
}

TEST_F(HttpSessionTest, ARequestsOwnCapIsTighterAndDownloadsHaveTheirs) {
    server.on("/body", LoopbackResponse::text(std::string(800, 'z')));
    HttpSessionConfiguration config;
    config.maxBodyBytes = 1000;
    config.maxDownloadBytes = 500;
    config.temporaryDirectory = tempDir() + "/capped";
    auto session = makeSession(config);

    auto capped = request("/body");
    capped.maxBodyBytes = 700;
    Outcome refused;
    session->dataTask(capped, refused.dataCompletion())->resume();
    ASSERT_TRUE(refused.wait());
    EXPECT_EQ(refused.errorCode(), URLError::kDataLengthExceedsMaximum);

    auto loose = request("/body");
    loose.maxBodyBytes = 5000;  // never looser than the session
    Outcome fits;
    session->dataTask(loose, fits.dataCompletion())->resume();
    ASSERT_TRUE(fits.wait());
    EXPECT_FALSE(fits.error);
    EXPECT_EQ(fits.data->size(), 800u);

    std::mutex m;
    std::condition_variable cv;
    bool done = false;
    int64_t code = 0;
    session
        ->downloadTask(request("/body"),
                       [&](std::optional<std::string>, std::optional<HttpResponse>,
                           std::optional<pelora::platform::Error> err) {
                           std::lock_guard lock(m);
                           code = err ? err->code : 0;
                           done = true;
                           cv.notify_all();
                       })
        ->resume();
    std::unique_lock lock(m);
    ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(10), [&] { return done; }));
    EXPECT_EQ(code, URLError::kDataLengthExceedsMaximum);
}

TEST_F(HttpSessionTest, DownloadLeavesTheFileWhereItSaysUntilTheCompletionReturns) {
    const std::string payload(3000, 'v');
    server.on("/video.mp4", LoopbackResponse::text(payload));
    HttpSessionConfiguration config;
    config.temporaryDirectory = tempDir() + "/downloads";
    auto session = makeSession(config);
    const std::string kept = tempDir() + "/kept.mp4";

    std::mutex m;
    std::condition_variable cv;
    bool done = false;
    std::string location, contentSeen;
    int64_t status = 0;
    session
        ->downloadTask(request("/video.mp4"),
                       [&](std::optional<std::string> loc, std::optional<HttpResponse> resp,
                           std::optional<pelora::platform::Error> err) {
                           std::lock_guard lock(m);
                           if (loc && !err) {
                               location = *loc;
                               std::ifstream in(*loc, std::ios::binary);
                               std::stringstream s;
                               s << in.rdbuf();
                               contentSeen = s.str();
                               status = resp ? resp->statusCode : 0;
                           }
                           done = true;
                           cv.notify_all();
                       })
        ->resume();
    {
        std::unique_lock lock(m);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(10), [&] { return done; }));
    }
    ASSERT_FALSE(location.empty());
    EXPECT_EQ(std::filesystem::path(location).parent_path(), config.temporaryDirectory);
    EXPECT_EQ(contentSeen, payload);
    EXPECT_EQ(status, 200);
    session.reset();
    EXPECT_FALSE(std::filesystem::exists(location));  // not moved away, so cleaned up

    // A completion that moves the file keeps it.
    auto second = makeSession(config);
    Outcome moved;
    second
        ->downloadTask(request("/video.mp4"),
                       [&](std::optional<std::string> loc, std::optional<HttpResponse> resp,
                           std::optional<pelora::platform::Error> err) {
                           if (loc) std::filesystem::rename(*loc, kept);
                           moved.dataCompletion()(std::nullopt, std::move(resp), std::move(err));
                       })
        ->resume();
    ASSERT_TRUE(moved.wait());
    std::ifstream in(kept, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    EXPECT_EQ(s.str(), payload);
}

TEST_F(HttpSessionTest, FailedDownloadLeavesNoFile) {
    HttpSessionConfiguration config;
    config.temporaryDirectory = tempDir() + "/downloads";
    auto session = makeSession(config);
    std::optional<std::string> location = "unset";
    Outcome out;
    // A refused connection fails at once, without waiting for any time-out.
    HttpRequest refused;
    refused.url = "http://127.0.0.1:" + std::to_string(LoopbackServer::unusedPort()) + "/x";
    session
        ->downloadTask(refused,
                       [&](std::optional<std::string> loc, std::optional<HttpResponse> resp,
                           std::optional<pelora::platform::Error> err) {
                           location = loc;
                           out.dataCompletion()(std::nullopt, std::move(resp), std::move(err));
                       })
        ->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kCannotConnectToHost);
    EXPECT_FALSE(location);
    EXPECT_TRUE(std::filesystem::is_empty(config.temporaryDirectory));
}

// ---- HTTPS: a local TLS server with a certificate from the test authority ----------------------

class HttpsSessionTest : public ::testing::Test {
  protected:
    HttpsSessionTest()
        : server(LoopbackServer::Options{2, pelora::testing::TestTls::certificateFile(),
                                         pelora::testing::TestTls::keyFile()}) {
        server.on("/secure", LoopbackResponse::text("over tls"));
    }
    // Sends one GET through a session of `factory` and waits for its completion.
    void fetch(pelora::desktop::CurlHttpSessionFactory& factory, const std::string& url,
               Outcome& out, HttpSessionConfiguration config = {}) {
        auto session = factory.createSession(config);
        HttpRequest r;
        r.url = url;
        r.timeoutInterval = 10;
        auto task = session->dataTask(r, out.dataCompletion());
        task->resume();
        ASSERT_TRUE(out.wait());
    }
    LoopbackServer server;
};

TEST_F(HttpsSessionTest, TrustedAuthorityCompletesTheExchange) {
    pelora::desktop::CurlHttpSessionFactory trusting(pelora::testing::TestTls::authorityFile());
    Outcome out;
    fetch(trusting, server.url("/secure"), out);
    EXPECT_EQ(out.errorCode(), 0);
    ASSERT_TRUE(out.response);
    EXPECT_EQ(out.response->statusCode, 200);
    EXPECT_EQ(out.data, "over tls");
    EXPECT_EQ(server.requestsTo("/secure").size(), 1u);
}

TEST_F(HttpsSessionTest, SessionConfigurationCanNameTheAuthority) {
    pelora::desktop::CurlHttpSessionFactory plain;
    HttpSessionConfiguration config;
    config.caBundlePath = pelora::testing::TestTls::authorityFile();
    Outcome out;
    fetch(plain, server.url("/secure"), out, config);
    EXPECT_EQ(out.errorCode(), 0);
    EXPECT_EQ(out.data, "over tls");
}

TEST_F(HttpsSessionTest, UnknownAuthorityIsRefusedBeforeAnyRequest) {
    pelora::desktop::CurlHttpSessionFactory plain;
    Outcome out;
    fetch(plain, server.url("/secure"), out);
    EXPECT_EQ(out.errorCode(), URLError::kServerCertificateUntrusted);
    EXPECT_FALSE(out.response);
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(HttpsSessionTest, HostNameMustMatchTheCertificate) {
    // The certificate names 127.0.0.1 only; "localhost" reaches the same server.
    pelora::desktop::CurlHttpSessionFactory trusting(pelora::testing::TestTls::authorityFile());
    Outcome out;
    fetch(trusting, "https://localhost:" + std::to_string(server.port()) + "/secure", out);
    EXPECT_EQ(out.errorCode(), URLError::kServerCertificateUntrusted);
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST(HttpsExpiredCertificateTest, AnExpiredCertificateIsRefusedEvenFromATrustedAuthority) {
    LoopbackServer expired(
        LoopbackServer::Options{2, pelora::testing::TestTls::expiredCertificateFile(),
                                pelora::testing::TestTls::keyFile()});
    expired.on("/secure", LoopbackResponse::text("stale"));
    pelora::desktop::CurlHttpSessionFactory trusting(pelora::testing::TestTls::authorityFile());
    auto session = trusting.createSession({});
    HttpRequest r;
    r.url = expired.url("/secure");
    r.timeoutInterval = 10;
    Outcome out;
    session->dataTask(r, out.dataCompletion())->resume();
    ASSERT_TRUE(out.wait());
    EXPECT_EQ(out.errorCode(), URLError::kServerCertificateHasBadDate);
    EXPECT_FALSE(out.data);
    EXPECT_EQ(expired.requestCount(), 0u);
}

TEST(UrlErrorTableTest, CurlResultsMapToTheDocumentedCodes) {
    using pelora::desktop::urlErrorCodeForCurlCode;
    EXPECT_EQ(urlErrorCodeForCurlCode(28), URLError::kTimedOut);            // OPERATION_TIMEDOUT
    EXPECT_EQ(urlErrorCodeForCurlCode(7), URLError::kCannotConnectToHost);  // COULDNT_CONNECT
    EXPECT_EQ(urlErrorCodeForCurlCode(6), URLError::kCannotFindHost);       // COULDNT_RESOLVE_HOST
    EXPECT_EQ(urlErrorCodeForCurlCode(1), URLError::kUnsupportedURL);       // UNSUPPORTED_PROTOCOL
    EXPECT_EQ(urlErrorCodeForCurlCode(52), URLError::kNetworkConnectionLost);  // GOT_NOTHING
    EXPECT_EQ(urlErrorCodeForCurlCode(8), URLError::kBadServerResponse);       // WEIRD_SERVER_REPLY
    EXPECT_EQ(urlErrorCodeForCurlCode(47), URLError::kHTTPTooManyRedirects);   // TOO_MANY_REDIRECTS
    EXPECT_EQ(urlErrorCodeForCurlCode(60), URLError::kServerCertificateUntrusted);
    EXPECT_EQ(urlErrorCodeForCurlCode(35), URLError::kSecureConnectionFailed);
    EXPECT_EQ(urlErrorCodeForCurlCode(23, /*bodyTooLarge=*/true),
              URLError::kDataLengthExceedsMaximum);
    EXPECT_EQ(urlErrorCodeForCurlCode(23, false, /*fileWriteFailed=*/true),
              URLError::kCannotWriteToFile);
    EXPECT_EQ(pelora::desktop::makeURLError(URLError::kCannotConnectToHost).description,
              "Could not connect to the server.");
}

}  // namespace
