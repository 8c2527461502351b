#pragma once

// Runs the built `pelora` program the way a user does: arguments quoted for the shell, a text
// on standard input, standard output and error captured, the child bounded in real time.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace pelora_program {

struct Run {
    int status = -1;
    std::string out, err;

    nlohmann::json json() const { return nlohmann::json::parse(out, nullptr, false); }
    // Standard output as one JSON value per line.
    std::vector<nlohmann::json> lines() const {
        std::vector<nlohmann::json> values;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);)
            if (!line.empty()) values.push_back(nlohmann::json::parse(line, nullptr, false));
        return values;
    }
};

inline std::string path() {
    return std::string(PELORA_BINARY_DIR) + "/tools/pelora";
}

inline std::string quote(const std::string& arg) {
    std::string q = "'";
    for (char c : arg) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// `env` goes before the program (such as "env -u DISPLAY").
inline Run run(const std::vector<std::string>& args, const std::string& input = "",
               const std::string& env = "") {
    const std::string scratch =
        (std::filesystem::temp_directory_path() / ("pelora-program-" + std::to_string(::getpid())))
            .string();
    std::ofstream(scratch + ".in", std::ios::binary) << input;
    std::string cmd = env + " timeout 60 " + quote(path());
    for (const auto& a : args) cmd += " " + quote(a);
    cmd += " <" + quote(scratch + ".in") + " 2>" + quote(scratch + ".err");
    Run r;
    if (FILE* pipe = ::popen(cmd.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
            r.out.append(buffer, n);
        const int raw = ::pclose(pipe);
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }
    std::ifstream err(scratch + ".err");
    r.err.assign(std::istreambuf_iterator<char>(err), {});
    std::filesystem::remove(scratch + ".in");
    std::filesystem::remove(scratch + ".err");
    return r;
}

// Arguments without blanks, written as one line.
inline Run runLine(const std::string& line, const std::string& env = "") {
    std::vector<std::string> args;
    std::istringstream in(line);
    for (std::string a; in >> a;) args.push_back(a);
    return run(args, "", env);
}

}  // namespace pelora_program
