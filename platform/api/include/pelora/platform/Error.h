#pragma once

#include <cstdint>
#include <string>

#include "pelora/platform/Export.h"

namespace pelora::platform {

// The error value that crosses every boundary of the SDK: a text domain and an integer code.
// Transport failures keep the platform's URL error domain and codes so host code reads the
// same on every platform.
struct PELORA_EXPORT Error {
    std::string domain;
    int64_t code = 0;
    // Human-readable description ("the error's full description text"); may be empty.
    std::string description;

    bool operator==(const Error& o) const { return domain == o.domain && code == o.code; }
};

inline constexpr const char* kURLErrorDomain = "NSURLErrorDomain";

// URL error codes. The mapping from libcurl results is documented in docs/PLATFORM.md.
namespace URLError {
inline constexpr int64_t kUnknown = -1;
inline constexpr int64_t kCancelled = -999;
inline constexpr int64_t kBadURL = -1000;
inline constexpr int64_t kTimedOut = -1001;
inline constexpr int64_t kUnsupportedURL = -1002;
inline constexpr int64_t kCannotFindHost = -1003;
inline constexpr int64_t kCannotConnectToHost = -1004;
inline constexpr int64_t kNetworkConnectionLost = -1005;
inline constexpr int64_t kDNSLookupFailed = -1006;
inline constexpr int64_t kHTTPTooManyRedirects = -1007;
inline constexpr int64_t kResourceUnavailable = -1008;
inline constexpr int64_t kNotConnectedToInternet = -1009;
inline constexpr int64_t kRedirectToNonExistentLocation = -1010;
inline constexpr int64_t kBadServerResponse = -1011;
inline constexpr int64_t kZeroByteResource = -1014;
inline constexpr int64_t kCannotDecodeContentData = -1016;
inline constexpr int64_t kCannotParseResponse = -1017;
inline constexpr int64_t kDataLengthExceedsMaximum = -1103;
inline constexpr int64_t kSecureConnectionFailed = -1200;
inline constexpr int64_t kServerCertificateHasBadDate = -1201;
inline constexpr int64_t kServerCertificateUntrusted = -1202;
inline constexpr int64_t kCannotCreateFile = -3000;
inline constexpr int64_t kCannotWriteToFile = -3003;
}  // namespace URLError

}  // namespace pelora::platform
