#include <cstdio>

#include "commands.h"

// Placeholder until the tables command lands.
void add_tables_command(CLI::App& app) {
    auto* cmd = app.add_subcommand("tables", "(not available yet)");
    cmd->callback([]() {
        std::fprintf(stderr, "svcompose: 'tables' is not available yet\n");
        throw CLI::RuntimeError(kExitFailure);
    });
}
