#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace pelora::cli {

// One subcommand of the `pelora` tool. `run` gets the arguments after the command name and
// returns the process exit status: 0 success, 1 failure of the operation, 2 bad arguments
// (after printing the usage on standard error via usageError()).
struct Command {
    std::string name;
    std::string usage;    // one or more lines, without the leading "pelora "
    std::string summary;  // one line for `pelora help`
    std::function<int(const std::vector<std::string>& args)> run;
};

// Each command file registers its commands at static-initialisation time:
//   static const bool registered = pelora::cli::registerCommand({...});
bool registerCommand(Command command);
const std::map<std::string, Command>& commands();

// Prints "pelora: <message>" and the command's usage on standard error; returns 2.
int usageError(const std::string& commandName, const std::string& message);

// Small option parser for "--name value" pairs and positional arguments. Unknown options
// and missing values are reported through `error` (the caller then returns usageError).
struct ParsedArgs {
    std::map<std::string, std::string> options;
    std::vector<std::string> positional;
    std::vector<std::string> flags;  // options given without a value (listed in flagNames)
    std::string error;
    bool has(const std::string& name) const { return options.count(name) != 0; }
    bool hasFlag(const std::string& name) const;
};
ParsedArgs parseArgs(const std::vector<std::string>& args,
                     const std::vector<std::string>& valueNames,
                     const std::vector<std::string>& flagNames = {});

// Strict numeric parsing for option values; false when the whole text is not a number.
bool parseInt64(const std::string& text, int64_t& out);
bool parseDouble(const std::string& text, double& out);

}  // namespace pelora::cli
