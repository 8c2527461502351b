#pragma once

#include <memory>
#include <string>

#include "pelora/platform/Error.h"
#include "pelora/platform/Export.h"
#include "pelora/platform/Http.h"

namespace pelora::desktop {

// HTTP sessions over libcurl's multi interface. Each session owns one background thread and
// one connection pool; task completions run on that thread. See docs/PLATFORM.md for the
// mapping of libcurl results to URL error codes and for the time-out rules.
class PELORA_EXPORT CurlHttpSessionFactory final : public platform::HttpSessionFactory {
  public:
    CurlHttpSessionFactory() = default;
    // `caBundlePath`: a PEM file of certificates to trust in every session made here whose
    // configuration names none of its own, e.g. a company's TLS-inspecting proxy or a test
    // authority. Verification itself stays on.
    explicit CurlHttpSessionFactory(std::string caBundlePath);
    std::shared_ptr<platform::HttpSession> createSession(
        const platform::HttpSessionConfiguration& config) override;

  private:
    std::string caBundlePath_;
};

// Time-out applied when a request carries zero, a negative or a non-finite value, the same
// default a phone platform's request starts with.
inline constexpr double kDefaultRequestTimeout = 60.0;

// The URL error a libcurl result code (a CURLcode value) becomes. `bodyTooLarge` marks a
// transfer that the body cap aborted; `fileWriteFailed` one whose download file could not be
// written.
PELORA_EXPORT int64_t urlErrorCodeForCurlCode(int curlCode, bool bodyTooLarge = false,
                                              bool fileWriteFailed = false);
// A readable description for a URL error code ("The request timed out.").
PELORA_EXPORT std::string urlErrorDescription(int64_t code);
// The error value for a URL error code in the platform's URL error domain.
PELORA_EXPORT platform::Error makeURLError(int64_t code);

}  // namespace pelora::desktop
