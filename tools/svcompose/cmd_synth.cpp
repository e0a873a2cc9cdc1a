#include <cstdio>

#include "commands.h"

// Placeholder until the synth command lands.
void add_synth_command(CLI::App& app) {
    auto* cmd = app.add_subcommand("synth", "(not available yet)");
    cmd->callback([]() {
        std::fprintf(stderr, "svcompose: 'synth' is not available yet\n");
        throw CLI::RuntimeError(kExitFailure);
    });
}
