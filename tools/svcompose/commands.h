// Subcommands of the svcompose tool; each file cmd_<name>.cpp registers one.
#ifndef SVCOMPOSE_COMMANDS_H
#define SVCOMPOSE_COMMANDS_H

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

// Exit codes shared by every subcommand.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

// A subcommand's failure: main prints "svcompose <cmd>: <message>" on
// stderr and exits with the code.
class CommandError : public std::runtime_error {
public:
    CommandError(int code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    int code() const { return code_; }

private:
    int code_;
};

// "svcompose <cmd>: warning: <message>" on stderr; the run goes on.
void warn(const std::string& message);
// "svcompose <cmd>: <message>" on stderr: what the command took its input
// to be.
void note(const std::string& message);

void add_tables_command(CLI::App& app);
void add_demo_command(CLI::App& app);
void add_synth_command(CLI::App& app);
void add_run_command(CLI::App& app);
void add_seams_command(CLI::App& app);

#endif
