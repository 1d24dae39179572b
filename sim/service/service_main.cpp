// qb_service: the stand-in translation service as a program of its own, for
// people and for the Windows tests under Wine. Prints one line
// "qb_service listening on 127.0.0.1:<port>" and serves until SIGINT or
// SIGTERM.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/service/stand_in_service.h"

namespace {

void Usage() {
    std::fprintf(stderr,
                 "usage: qb_service [--port N] [--token TOKEN] [--late-ms N] [--latency-ms N]\n"
                 "                  [--panel DIR]\n"
                 "  --port 0 (the default) takes a free port.\n"
                 "  --latency-ms delays every translate and resolve answer (default 0).\n"
                 "  --panel DIR serves the web panel's pages from DIR under /panel.\n"
                 "  A text holding @fault:NAME fails its request: 401, 402, 500, 429 (any\n"
                 "  status), count, placeholders, late, never, drop.\n");
}

}  // namespace

int main(int argc, char** argv) {
    int port = 0;
    qb::sim::StandInService::Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--port" && hasValue) {
            port = std::atoi(argv[++i]);
        } else if (arg == "--token" && hasValue) {
            options.token = argv[++i];
        } else if (arg == "--panel" && hasValue) {
            options.panelFolder = argv[++i];
        } else if (arg == "--late-ms" && hasValue) {
            options.lateMs = static_cast<std::uint32_t>(std::strtoul(argv[++i], nullptr, 10));
        } else if (arg == "--latency-ms" && hasValue) {
            options.latencyMs = static_cast<std::uint32_t>(std::strtoul(argv[++i], nullptr, 10));
        } else {
            Usage();
            return 2;
        }
    }
    // Blocked before the server's threads exist, so that only sigwait sees them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    qb::sim::StandInService service(options);
    if (!service.Start(port)) {
        std::fprintf(stderr, "qb_service: cannot listen on 127.0.0.1:%d\n", port);
        return 1;
    }
    std::printf("qb_service listening on 127.0.0.1:%d\n", service.Port());
    std::fflush(stdout);
    int received = 0;
    sigwait(&signals, &received);
    service.Stop();
    return 0;
}
