#include <cstdio>

#include "commands.h"

// Placeholder until the run command lands.
void add_run_command(CLI::App& app) {
    auto* cmd = app.add_subcommand("run", "(not available yet)");
    cmd->callback([]() {
        std::fprintf(stderr, "svcompose: 'run' is not available yet\n");
        throw CLI::RuntimeError(kExitFailure);
    });
}
