#pragma once

// The SDK's resource bundle: the directory "PeloraSDKBundle.bundle" in the host's main bundle
// with the interface files ("<name>.json") and images ("<name>@2x.png" ...) of the SDK.

#include <optional>
#include <string>
#include <vector>

#include "pelora/ui/NibLoader.h"

struct PeloraResourceBundle {
    static constexpr const char* kBundleName = "PeloraSDKBundle";
    static constexpr const char* kBundleExtension = "bundle";

    std::string bundlePath;  // absolute or as the main bundle path gave it, no trailing "/"

    // The path of "<name>.<type>" inside the bundle when that file exists. Names that could
    // reach outside the bundle ("..", "/", empty) find nothing.
    std::optional<std::string> pathForResource(const std::string& name,
                                               const std::string& type) const;

    // The files imageWithName tries for `name`, best first, with the scale of each: a name
    // with an extension or an "@Nx" suffix is used as it is; a bare name tries the screen's
    // scale first, then larger variants, then smaller ones down to the plain 1x file.
    static std::vector<std::pair<std::string, double>> imageCandidates(const std::string& name,
                                                                       double screenScale);
};

// Reads an interface file's JSON text into the loader's nodes; nullopt (with a reason in
// *error) when the text is not a usable interface file.
std::optional<pelora::ui::NibNode> PeloraParseInterfaceFile(const std::string& text,
                                                            std::string* error = nullptr);

// Forgets the cached bundle so the next apiBundle() looks again. The SDK itself never clears
// the cache; tests that move the main bundle between cases do.
void PeloraResetApiBundleCache();
