#include <cstdio>

#include "commands.h"

// Placeholder until the demo command lands.
void add_demo_command(CLI::App& app) {
    auto* cmd = app.add_subcommand("demo", "(not available yet)");
    cmd->callback([]() {
        std::fprintf(stderr, "svcompose: 'demo' is not available yet\n");
        throw CLI::RuntimeError(kExitFailure);
    });
}
