// The sandbox's inventory files. Any text either is refused with a reason or gives an
// inventory whose slots' simulations write to JSON that reads back strictly to the same
// values, and whose ads expand for a server without throwing.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "FuzzCheck.h"
#include "Inventory.h"

namespace {

void checkSimulation(const pelora::sandbox::Simulation& sim) {
    const nlohmann::json written = pelora::sandbox::simulationToJson(sim);
    pelora::sandbox::Simulation back;
    std::string error;
    FUZZ_CHECK(pelora::sandbox::parseSimulation(written, back, "fuzz", &error, /*strict=*/true),
               "a simulation's own JSON is refused");
    FUZZ_CHECK(pelora::sandbox::simulationToJson(back) == written,
               "a simulation does not read back to the same values");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto inventory = pelora::sandbox::parseInventory(text, &error);
    if (!inventory) {
        FUZZ_CHECK(!error.empty(), "an inventory refused without a reason");
        return 0;
    }
    checkSimulation(inventory->unknownSlot);
    for (const auto& [slot, entry] : inventory->slots) {
        checkSimulation(entry.simulate);
        const nlohmann::json ads =
            pelora::sandbox::expandAds(entry.ads, "http://127.0.0.1:1", slot);
        FUZZ_CHECK(ads.size() == entry.ads.size(), "expansion changed the number of ads");
    }
    return 0;
}
