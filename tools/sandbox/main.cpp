// pelora-sandbox: a local ad server for trying the SDK without a network.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "pelora/sandbox/Sandbox.h"

namespace {

int usage(const char* message) {
    if (message) std::cerr << "pelora-sandbox: " << message << "\n";
    std::cerr << "usage: pelora-sandbox [--host H] [--port P] [--inventory FILE] "
                 "[--creatives DIR]\n"
                 "Serves the ad fetch, creatives and tracking paths until SIGINT or SIGTERM.\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    pelora::sandbox::SandboxOptions options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            usage(nullptr);
            return 0;
        }
        if (i + 1 >= argc) return usage(("missing value for " + arg).c_str());
        std::string value = argv[++i];
        if (arg == "--host") {
            options.host = value;
        } else if (arg == "--port") {
            char* end = nullptr;
            long port = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || port < 0 || port > 65535)
                return usage("--port needs a number from 0 to 65535");
            options.port = static_cast<int>(port);
        } else if (arg == "--inventory") {
            options.inventoryPath = value;
        } else if (arg == "--creatives") {
            options.creativesDir = value;
        } else {
            return usage(("unknown option " + arg).c_str());
        }
    }

    // Block the stop signals before any server thread exists so that only sigwait sees them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    pelora::sandbox::Sandbox sandbox;
    std::string error;
    if (!sandbox.start(options, &error)) {
        std::cerr << "pelora-sandbox: " << error << "\n";
        return 1;
    }
    std::cout << sandbox.baseUrl() << std::endl;
    std::cerr << "inspector: open " << sandbox.inspectorUrl() << " in a browser\n"
              << "fetch:     POST " << sandbox.fetchUrl() << "\n"
              << "records:   GET  " << sandbox.baseUrl() << "/sandbox/records\n"
              << "creatives: GET  " << sandbox.baseUrl() << "/creatives/<file>\n";

    int received = 0;
    sigwait(&stopSignals, &received);
    std::cerr << "pelora-sandbox: " << strsignal(received) << ", stopping\n";
    sandbox.stop();
    return 0;
}
