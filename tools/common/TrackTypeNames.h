#pragma once

// What a person reads for each tracking type: the demo's timeline and the sandbox inspector's
// page name the tracking requests they show with these words, so the two always agree.
// Header only, with the standard library alone: the demo sees nothing of the SDK's insides.

#include <cstdint>
#include <string>

namespace pelora::tools {

// "impression", "click", "video 25%" ...; "event <n>" for a type the SDK never sends.
inline std::string trackTypeName(int64_t trackType) {
    switch (trackType) {
        case 1:
            return "impression";
        case 2:
            return "click";
        case 8:
            return "close";
        case 16:
            return "deep link failed";
        case 17:
            return "deep link opened";
        case 31:
            return "video start";
        case 32:
            return "video 25%";
        case 33:
            return "video 50%";
        case 34:
            return "video 75%";
        case 35:
            return "video complete";
        case 36:
            return "skip";
        case 40:
            return "play error";
        case 41:
            return "mute";
        default:
            return "event " + std::to_string(trackType);
    }
}

}  // namespace pelora::tools
