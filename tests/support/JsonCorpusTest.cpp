#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/PeloraYYModel.h"

namespace {

struct Anything {
    std::optional<std::string> a;
    static _PeloraYYModelSchema plyy_schema() {
        return plyy_makeSchema<Anything>({PLYY_PROPERTY(Anything, a)});
    }
};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<std::filesystem::path> corpus(char prefix) {
    std::vector<std::filesystem::path> files;
    const std::filesystem::path dir =
        std::filesystem::path(PELORA_SOURCE_DIR) / "tests/data/JSONTestSuite/test_parsing";
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const auto name = entry.path().filename().string();
        if (name.size() > 2 && name[0] == prefix && name[1] == '_') files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Texts every parser must accept: each parses, and a record results exactly when the text
// is an object.
TEST(JsonCorpus, AcceptsEveryWellFormedText) {
    const auto files = corpus('y');
    ASSERT_GT(files.size(), 90u);
    for (const auto& file : files) {
        const std::string bytes = readFile(file);
        std::string why;
        EXPECT_TRUE(plyy_isValidJSON(bytes, &why)) << file.filename() << ": " << why;
        const auto parsed = nlohmann::json::parse(bytes, nullptr, false);
        auto record = plyy_modelWithJSON<Anything>(bytes);
        EXPECT_EQ(record != nullptr, parsed.is_object()) << file.filename();
    }
}

TEST(JsonCorpus, RefusesEveryMalformedText) {
    const auto files = corpus('n');
    ASSERT_GT(files.size(), 150u);
    for (const auto& file : files) {
        const std::string bytes = readFile(file);
        std::string why;
        EXPECT_FALSE(plyy_isValidJSON(bytes, &why)) << file.filename();
        EXPECT_EQ(plyy_modelWithJSON<Anything>(bytes, &why), nullptr) << file.filename();
        EXPECT_FALSE(why.empty()) << file.filename();
        EXPECT_TRUE(plyy_modelArrayWithClass<Anything>(bytes).empty()) << file.filename();
    }
}

// Texts whose acceptance is up to the parser: only that they end, one way or the other.
TEST(JsonCorpus, ImplementationDefinedTextsEndCleanly) {
    for (const auto& file : corpus('i')) {
        const std::string bytes = readFile(file);
        (void)plyy_isValidJSON(bytes);
        (void)plyy_modelWithJSON<Anything>(bytes);
    }
}

}  // namespace
