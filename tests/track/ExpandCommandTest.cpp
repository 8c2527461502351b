#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

struct Run {
    int status = -1;
    std::string out;
};

// Arguments are fixed strings of this file, quoted for /bin/sh by popen.
Run run(const std::string& args) {
    Run r;
    const std::string cmd =
        std::string(PELORA_BINARY_DIR) + "/tools/pelora " + args + " 2>/dev/null";
    FILE* pipe = popen(cmd.c_str(), "r");
    if (!pipe) return r;
    std::array<char, 256> buf;
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) r.out.append(buf.data(), n);
    int status = pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

}  // namespace

TEST(ExpandCommand, RewritesWithNarrowedValuesAndRejectsBadArguments) {
    if (!std::filesystem::exists(std::string(PELORA_BINARY_DIR) + "/tools/pelora"))
        GTEST_SKIP() << "the pelora tool is not built";
    auto ok =
        run("expand "
            "'https://t/"
            "x?dx=__DOWN_X__&uy=__UP_Y__&c=__CLICK_ID__&sc=__VIDEO_SCENE__&s=__VIDEO_STATUS__' "
            "__DOWN_X__=12 '__CLICK_ID__=a\"b' __VIDEO_SCENE__=65535 __VIDEO_STATUS__=258");
    EXPECT_EQ(ok.status, 0);
    EXPECT_EQ(ok.out, "\"https://t/x?dx=12&uy=-999&c=a\\\"b&sc=__VIDEO_SCENE__&s=2\"\n");

    EXPECT_EQ(run("expand x __NOPE__=1").status, 2);
    EXPECT_EQ(run("expand x __TS__=12abc").status, 2);
    EXPECT_EQ(run("expand x __TS__").status, 2);
    EXPECT_EQ(run("expand").status, 2);
}
