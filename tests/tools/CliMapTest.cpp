// `pelora map`, `urlencode` and `urldecode` as a user runs them: the built program, its
// standard output and error, and its exit status.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AdAnswerFixtures.h"

namespace {

struct CliRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quote(const std::string& arg) {
    std::string q = "'";
    for (char c : arg) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::filesystem::path scratch(const std::string& name) {
    return std::filesystem::temp_directory_path() /
           ("pelora-cli-map-" + std::to_string(::getpid()) + "-" + name);
}

// `input` (when given) is fed on standard input.
CliRun runPelora(const std::vector<std::string>& args, const std::string* input = nullptr) {
    std::string cmd = quote(std::string(PELORA_BINARY_DIR) + "/tools/pelora");
    for (const auto& a : args) cmd += " " + quote(a);
    const auto errFile = scratch("err");
    const auto inFile = scratch("in");
    if (input) {
        std::ofstream(inFile, std::ios::binary) << *input;
        cmd += " <" + quote(inFile.string());
    }
    cmd += " 2>" + quote(errFile.string());
    CliRun run;
    FILE* pipe = ::popen(cmd.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buf{};
    size_t n = 0;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) run.out.append(buf.data(), n);
    const int raw = ::pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    std::ifstream err(errFile);
    run.err.assign(std::istreambuf_iterator<char>(err), {});
    std::filesystem::remove(errFile);
    std::filesystem::remove(inFile);
    return run;
}

TEST(CliMap, PrintsTheMappedAnswer) {
    const auto file = scratch("answer.json");
    std::ofstream(file, std::ios::binary) << pelora::fixtures::adAnswer(3);
    const CliRun run = runPelora({"map", file.string()});
    std::filesystem::remove(file);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto out = nlohmann::json::parse(run.out);
    ASSERT_EQ(out["data"]["ads"].size(), 3u);
    EXPECT_EQ(out["data"]["ads"][0]["trackUrls"], nlohmann::json::array());
    EXPECT_EQ(out["data"]["ads"][0]["adTrackVO"].size(), 13u);
    EXPECT_EQ(out["code"], 0);

    // Standard input, coercions applied, unknown keys gone, absent text left out.
    const std::string answer = R"({"code":"5","extra":1,"data":{"ads":[{"adId":7,"icons":[1]}]}})";
    const CliRun piped = runPelora({"map", "-"}, &answer);
    ASSERT_EQ(piped.status, 0) << piped.err;
    const auto ad = nlohmann::json::parse(piped.out)["data"]["ads"][0];
    EXPECT_EQ(ad["adId"], "7");
    EXPECT_EQ(ad["icons"], nlohmann::json::array());
    EXPECT_FALSE(ad.contains("title"));
    EXPECT_EQ(nlohmann::json::parse(piped.out)["code"], 5);
}

TEST(CliMap, SaysWhyNothingMaps) {
    const std::string array = "[{\"code\":0}]";
    const CliRun notObject = runPelora({"map", "-"}, &array);
    EXPECT_EQ(notObject.status, 1);
    EXPECT_TRUE(notObject.out.empty());
    EXPECT_NE(notObject.err.find("not an object"), std::string::npos) << notObject.err;

    const std::string broken = "{\"code\":";
    const CliRun bad = runPelora({"map", "-"}, &broken);
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("JSON"), std::string::npos) << bad.err;

    EXPECT_EQ(runPelora({"map"}).status, 2);
    EXPECT_EQ(runPelora({"map", "a", "b"}).status, 2);
    EXPECT_EQ(runPelora({"map", scratch("missing").string()}).status, 1);
}

TEST(CliUrlEscaping, EncodeAndDecode) {
    const CliRun enc = runPelora({"urlencode", "a b&c=\xC3\xA9"});
    EXPECT_EQ(enc.status, 0);
    EXPECT_EQ(nlohmann::json::parse(enc.out), "a%20b&c=%C3%A9");
    const CliRun dec = runPelora({"urldecode", "a+b%20c"});
    EXPECT_EQ(dec.status, 0);
    EXPECT_EQ(nlohmann::json::parse(dec.out), "a+b c");
    const CliRun invalid = runPelora({"urldecode", "100%"});
    EXPECT_EQ(invalid.status, 1);
    EXPECT_TRUE(invalid.out.empty());
    EXPECT_EQ(runPelora({"urlencode"}).status, 2);
}

}  // namespace
