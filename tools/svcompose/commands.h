// Subcommands of the svcompose tool; each file cmd_<name>.cpp registers one.
#ifndef SVCOMPOSE_COMMANDS_H
#define SVCOMPOSE_COMMANDS_H

#include <CLI/CLI.hpp>

// Exit codes shared by every subcommand.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

void add_tables_command(CLI::App& app);
void add_demo_command(CLI::App& app);
void add_synth_command(CLI::App& app);
void add_run_command(CLI::App& app);
void add_seams_command(CLI::App& app);

#endif
