#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "Command.h"

namespace pelora::cli {

namespace {
std::map<std::string, Command>& registry() {
    static std::map<std::string, Command> r;
    return r;
}
}  // namespace

bool registerCommand(Command command) {
    std::string name = command.name;
    registry()[name] = std::move(command);
    return true;
}

const std::map<std::string, Command>& commands() {
    return registry();
}

int usageError(const std::string& commandName, const std::string& message) {
    if (!message.empty()) std::cerr << "pelora: " << message << "\n";
    auto it = registry().find(commandName);
    if (it != registry().end()) {
        std::cerr << "usage: pelora " << it->second.usage << "\n";
    }
    return 2;
}

bool ParsedArgs::hasFlag(const std::string& name) const {
    for (const auto& f : flags) {
        if (f == name) return true;
    }
    return false;
}

ParsedArgs parseArgs(const std::vector<std::string>& args,
                     const std::vector<std::string>& valueNames,
                     const std::vector<std::string>& flagNames) {
    ParsedArgs out;
    auto contains = [](const std::vector<std::string>& v, const std::string& s) {
        for (const auto& x : v) {
            if (x == s) return true;
        }
        return false;
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.size() > 2 && a.rfind("--", 0) == 0) {
            std::string name = a.substr(2);
            if (contains(flagNames, name)) {
                out.flags.push_back(name);
            } else if (contains(valueNames, name)) {
                if (i + 1 >= args.size()) {
                    out.error = "option --" + name + " needs a value";
                    return out;
                }
                out.options[name] = args[++i];
            } else {
                out.error = "unknown option " + a;
                return out;
            }
        } else {
            out.positional.push_back(a);
        }
    }
    return out;
}

bool parseInt64(const std::string& text, int64_t& out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0') return false;
    out = v;
    return true;
}

bool parseDouble(const std::string& text, double& out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0') return false;
    out = v;
    return true;
}

}  // namespace pelora::cli

int main(int argc, char** argv) {
    using namespace pelora::cli;
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
        std::ostream& os = args.empty() ? std::cerr : std::cout;
        os << "usage: pelora <command> [options]\n\ncommands:\n";
        for (const auto& [name, cmd] : commands()) {
            os << "  " << cmd.usage << "\n      " << cmd.summary << "\n";
        }
        return args.empty() ? 2 : 0;
    }
    auto it = commands().find(args[0]);
    if (it == commands().end()) {
        std::cerr << "pelora: unknown command '" << args[0] << "' (try `pelora help`)\n";
        return 2;
    }
    std::vector<std::string> rest(args.begin() + 1, args.end());
    if (!rest.empty() && (rest[0] == "--help" || rest[0] == "-h")) {
        std::cout << "usage: pelora " << it->second.usage << "\n";
        return 0;
    }
    return it->second.run(rest);
}
