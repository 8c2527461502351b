#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/PeloraYYModel.h"

namespace {

struct Anything {
    std::optional<std::string> a;
    static PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Anything>({PLYY_PROPERTY(Anything, a)});
    }
};

// JSONTestSuite: every well-formed text ("y_") is accepted, a record resulting exactly when the
// text is an object; every malformed one ("n_") is refused, with a reason, on every route. (The
// implementation-defined "i_" texts are replayed by the answer_mapping fuzz target.)
TEST(JsonCorpus, AcceptsEveryWellFormedTextAndRefusesEveryMalformedOne) {
    const std::filesystem::path dir =
        std::filesystem::path(PELORA_SOURCE_DIR) / "tests/data/JSONTestSuite/test_parsing";
    size_t wellFormed = 0, malformed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const auto name = entry.path().filename().string();
        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        const std::string bytes = text.str();
        std::string why;
        if (name.rfind("y_", 0) == 0) {
            ++wellFormed;
            EXPECT_TRUE(plyy_isValidJSON(bytes, &why)) << name << ": " << why;
            const bool object = nlohmann::json::parse(bytes, nullptr, false).is_object();
            EXPECT_EQ(plyy_modelWithJSON<Anything>(bytes) != nullptr, object) << name;
        } else if (name.rfind("n_", 0) == 0) {
            ++malformed;
            EXPECT_FALSE(plyy_isValidJSON(bytes, &why)) << name;
            EXPECT_EQ(plyy_modelWithJSON<Anything>(bytes, &why), nullptr) << name;
            EXPECT_FALSE(why.empty()) << name;
            EXPECT_TRUE(plyy_modelArrayWithClass<Anything>(bytes).empty()) << name;
        }
    }
    EXPECT_GT(wellFormed, 90u);
    EXPECT_GT(malformed, 150u);
}

}  // namespace
