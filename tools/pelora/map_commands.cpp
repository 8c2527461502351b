// `pelora map`, `pelora urlencode`, `pelora urldecode`: the answer mapping and the URL
// escaping of the SDK, run on text from the command line.

#include <pelora/PeloraApiAd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Command.h"
#include "core/PeloraApiAdSchema.h"
#include "support/PeloraTool.h"
#include "support/PeloraYYModel.h"

namespace {

std::string jsonText(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

int runMap(const std::vector<std::string>& args) {
    if (args.size() != 1) return pelora::cli::usageError("map", "expected one FILE or -");
    std::string body;
    if (args[0] == "-") {
        body.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
        std::ifstream in(args[0], std::ios::binary);
        if (!in) {
            std::cerr << "pelora: cannot read " << args[0] << "\n";
            return 1;
        }
        std::ostringstream content;
        content << in.rdbuf();
        body = content.str();
    }
    std::string whyNot;
    auto envelope = plyy_modelWithJSON<PeloraRespData>(body, &whyNot);
    if (!envelope) {
        std::cerr << "pelora: no answer record: " << (whyNot.empty() ? "unknown" : whyNot) << "\n";
        return 1;
    }
    auto out = plyy_modelToJSONObject(*envelope);
    // An ad written back has no tracking instructions (its trackUrls getter is empty on
    // purpose); what the tracker will fire is shown beside it as "adTrackVO".
    if (envelope->rData && envelope->rData->ads && out.contains("data") &&
        out["data"].contains("ads")) {
        const auto& ads = *envelope->rData->ads;
        for (size_t i = 0; i < ads.size() && i < out["data"]["ads"].size(); ++i) {
            if (!ads[i] || !ads[i]->adTrackVO()) continue;
            auto list = nlohmann::json::array();
            for (const auto& track : *ads[i]->adTrackVO())
                if (track) list.push_back(plyy_modelToJSONObject(*track));
            out["data"]["ads"][i]["adTrackVO"] = std::move(list);
        }
    }
    std::cout << plyyImpl_dumpJSON(out) << "\n";
    return 0;
}

int runUrlEncode(const std::vector<std::string>& args) {
    if (args.size() != 1) return pelora::cli::usageError("urlencode", "expected one TEXT");
    std::cout << jsonText(PeloraTool::stringByURLEncode(args[0])) << "\n";
    return 0;
}

int runUrlDecode(const std::vector<std::string>& args) {
    if (args.size() != 1) return pelora::cli::usageError("urldecode", "expected one TEXT");
    auto decoded = PeloraTool::stringByURLDecode(args[0]);
    if (!decoded) {
        std::cerr << "pelora: not a valid percent-encoded UTF-8 text\n";
        return 1;
    }
    std::cout << jsonText(*decoded) << "\n";
    return 0;
}

const bool registeredMap = pelora::cli::registerCommand({
    "map",
    "map FILE|-\n"
    "  reads an ad answer body (from FILE, or standard input for -) and prints the answer\n"
    "  record written back as JSON",
    "map an ad answer onto the SDK's records and print what they hold",
    runMap,
});

const bool registeredEncode = pelora::cli::registerCommand({
    "urlencode",
    "urlencode TEXT",
    "percent-escape TEXT as the SDK does for URL queries (prints a JSON string)",
    runUrlEncode,
});

const bool registeredDecode = pelora::cli::registerCommand({
    "urldecode",
    "urldecode TEXT",
    "remove percent-escapes from TEXT (prints a JSON string; exit 1 when invalid)",
    runUrlDecode,
});

}  // namespace
