// Naming of downloaded files. A video's URL comes from the network; the file it is saved as
// must land directly in the caches directory's "Pelora" folder whatever the URL says. The
// target downloads the input URL through the SDK on the test backend and watches what the SDK
// asks the file system to do: every path it creates, removes or moves to is that folder or one
// plain name inside it. The file URL handed back must also read back as the same path.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "core/PeloraNetwork.h"
#include "pelora/platform/FileSystem.h"
#include "pelora/platform/Services.h"
#include "pelora/testing/FakeHttpSession.h"
#include "pelora/testing/ManualClock.h"
#include "pelora/testing/ManualRunLoop.h"
#include "reward/PeloraAdCache.h"

namespace {

constexpr const char* kCaches = "/fuzz-caches";
constexpr const char* kFolder = "/fuzz-caches/Pelora";

// Records what the SDK asks for and touches nothing on disk.
class RecordingFiles final : public pelora::platform::FileSystem {
  public:
    std::string cachesDirectory() override { return kCaches; }
    std::string temporaryDirectory() override { return "/fuzz-tmp"; }
    bool fileExists(const std::string& path, bool* isDirectory) override {
        touched.push_back(path);
        if (isDirectory) *isDirectory = false;
        return false;
    }
    bool createDirectory(const std::string& path, bool) override {
        touched.push_back(path);
        return true;
    }
    bool moveItem(const std::string&, const std::string& to) override {
        touched.push_back(to);
        return true;
    }
    bool removeItem(const std::string& path) override {
        touched.push_back(path);
        return true;
    }
    std::optional<std::string> readFile(const std::string&) override { return std::nullopt; }
    bool writeFile(const std::string& path, const std::string&) override {
        touched.push_back(path);
        return true;
    }
    std::vector<std::string> touched;
};

using pelora::testing::FakeHttpSessionFactory;

struct Backend {
    std::shared_ptr<pelora::testing::ManualClock> clock =
        std::make_shared<pelora::testing::ManualClock>();
    std::shared_ptr<pelora::testing::ManualRunLoop> loop =
        std::make_shared<pelora::testing::ManualRunLoop>(clock);
    std::shared_ptr<FakeHttpSessionFactory> http;
    std::shared_ptr<RecordingFiles> files = std::make_shared<RecordingFiles>();

    Backend() {
        // The fake session writes each download to a real temporary file and removes it once
        // the completion returned; it gets a directory of its own.
        static char dir[] = "/tmp/pelora-fuzz-XXXXXX";
        const char* tmp = mkdtemp(dir);
        if (tmp) std::atexit([] { std::filesystem::remove_all(dir); });
        http = std::make_shared<FakeHttpSessionFactory>(loop, tmp ? std::string(tmp) : "");
        http->setDefaultResponse(FakeHttpSessionFactory::Response::ok("video"));
        pelora::platform::Services services;
        services.clock = clock;
        services.mainRunLoop = loop;
        services.http = http;
        services.files = files;
        pelora::platform::installServices(std::move(services));
    }
};

Backend& backend() {
    static Backend* b = new Backend;  // kept to the end: the installed services point into it
    return *b;
}

bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Backend& b = backend();
    b.files->touched.clear();
    b.http->clearRequests();
    const std::string url(reinterpret_cast<const char*>(data), size);

    bool called = false;
    std::optional<std::string> result;
    PeloraNetwork::downloadTaskWithUrl(
        url, nullptr, std::nullopt,
        [&](std::optional<std::string> location, std::optional<pelora::platform::HttpResponse>,
            std::optional<pelora::platform::Error>) {
            called = true;
            result = std::move(location);
        });
    for (int turn = 0; turn < 8 && !called; ++turn) b.loop->pump();
    FUZZ_CHECK(called, "the download never completed");

    const std::string folder = kFolder;
    for (const std::string& path : b.files->touched) {
        if (path == folder) continue;
        FUZZ_CHECK(path.size() > folder.size() + 1 && path.compare(0, folder.size(), folder) == 0 &&
                       path[folder.size()] == '/',
                   "a path outside the download folder");
        FUZZ_CHECK(isPlainName(path.substr(folder.size() + 1)),
                   "the downloaded file's name is not one plain name");
    }
    if (result && result->compare(0, folder.size(), folder) == 0) {
        const std::string fileUrl = pl_fileURLWithPath(*result);
        const auto back = pl_pathOfFileURL(fileUrl);
        FUZZ_CHECK(back && *back == *result, "the file URL does not read back as its path");
    }
    return 0;
}
