#pragma once

// The video file cache: which remote URL was downloaded to which local file, for the life of
// the process, and the downloader that fills it.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "pelora/platform/Http.h"

// The process-wide map from remote URL text to local file path. Created empty on first use,
// kept in memory only, never pruned. Main thread only.
std::map<std::string, std::string>& plFileCaches();

// A view on plFileCaches: every instance sees the same entries.
class PeloraAdCache {
  public:
    static std::shared_ptr<PeloraAdCache> init() { return std::make_shared<PeloraAdCache>(); }

    static std::map<std::string, std::string>& caches() { return plFileCaches(); }

    // Sets the URL's entry; an absent path removes it. An empty URL does nothing.
    void storeFilePath(const std::optional<std::string>& path,
                       const std::optional<std::string>& url);
    // True only for a non-empty URL with a non-empty recorded path. The file itself is not
    // looked at: it may have been deleted since.
    bool isDownloadUrl(const std::optional<std::string>& url) const;
    std::optional<std::string> filePathForRequestUrl(const std::optional<std::string>& url) const;
};

// Downloads one URL into the caches subdirectory "Pelora" (named by the URL's last path
// component) and reduces the outcome to success with a local file URL or failure with a code
// and a message. Exactly one of the two callbacks runs, once, on the main run loop.
class PeloraFileDownloader {
  public:
    using Success = std::function<void(const std::string& fileURL)>;
    using Failure = std::function<void(int64_t code, std::optional<std::string> message)>;

    static std::shared_ptr<PeloraFileDownloader> init() {
        return std::make_shared<PeloraFileDownloader>();
    }

    // The started task (cancel it to stop the download: failure then reports -999). A
    // failure without a platform code reports -1.
    std::shared_ptr<pelora::platform::HttpTask> downloadTaskWithUrl(const std::string& url,
                                                                    Success success,
                                                                    Failure failure);
};

// "file://" URLs for local paths and back. Characters that would end or change a URL's path
// ("?", "#", "%", blanks, controls, non-ASCII bytes) are percent-escaped, so a file named
// after a URL with a query string stays one path.
std::string pl_fileURLWithPath(const std::string& path);
// The path of a "file://" URL (escapes decoded), or nothing for another URL.
std::optional<std::string> pl_pathOfFileURL(const std::string& url);
