// `pelora expand`: shows what a tracking template becomes for given macro values.

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Command.h"
#include "track/PeloraTrackReplace.h"

namespace {

int runExpand(const std::vector<std::string>& args) {
    if (args.empty()) return pelora::cli::usageError("expand", "missing TEMPLATE");
    PeloraTrackReplace replace;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& pair = args[i];
        const size_t eq = pair.find('=');
        if (eq == std::string::npos)
            return pelora::cli::usageError("expand", "expected TOKEN=VALUE, got \"" + pair + "\"");
        const std::string token = pair.substr(0, eq);
        const std::string value = pair.substr(eq + 1);
        const int row = PeloraTrackReplace::rowOfToken(token);
        if (row < 0)
            return pelora::cli::usageError("expand", "unknown macro token \"" + token + "\"");
        if (row == PeloraTrackReplace::kClickIdRow) {
            replace.__CLICK_ID__ = value;
            continue;
        }
        int64_t number = 0;
        if (!pelora::cli::parseInt64(value, number))
            return pelora::cli::usageError("expand",
                                           token + " needs an integer, got \"" + value + "\"");
        // Stored as the field is wide, so e.g. __VIDEO_SCENE__=65535 becomes -1 (unset).
        replace.setNumericValue(row, number);
    }
    const std::string result = replace.replacedString(args[0]);
    std::cout << nlohmann::json(result).dump(-1, ' ', false,
                                             nlohmann::json::error_handler_t::replace)
              << "\n";
    return 0;
}

const bool registered = pelora::cli::registerCommand({
    "expand",
    "expand TEMPLATE [TOKEN=VALUE ...]\n"
    "  TOKEN is a macro token such as __DOWN_X__ or __CLICK_ID__; numeric values are narrowed\n"
    "  to the macro's width (-1 leaves a macro unset)",
    "rewrite a tracking URL template with macro values, as the tracker would",
    runExpand,
});

}  // namespace
