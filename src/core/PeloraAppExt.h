#pragma once

// The host application's identity as the request records read it. Internal: a host knows its
// own bundle information.

#include <optional>
#include <string>

// Values of the host application's main bundle information, unchanged (absent when missing).
class PeloraAppExt {
  public:
    PeloraAppExt() = delete;
    static std::optional<std::string> appBundleName();
    static std::optional<std::string> appBundleID();
    static std::optional<std::string> appVersion();
    static std::optional<std::string> appBuildVersion();
};
