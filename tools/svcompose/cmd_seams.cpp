#include <cstdio>

#include "commands.h"

// Placeholder until the seams command lands.
void add_seams_command(CLI::App& app) {
    auto* cmd = app.add_subcommand("seams", "(not available yet)");
    cmd->callback([]() {
        std::fprintf(stderr, "svcompose: 'seams' is not available yet\n");
        throw CLI::RuntimeError(kExitFailure);
    });
}
