// svcompose: surround-view composition from four fisheye cameras.
#include <cstdio>

#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"svcompose: compose a bird's-eye surround view from four fisheye cameras"};
    app.require_subcommand(1);
    add_demo_command(app);
    add_run_command(app);
    add_synth_command(app);
    add_tables_command(app);
    add_seams_command(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& e) {
        // Subcommands signal failure with the exit code they want.
        return e.get_exit_code();
    } catch (const CLI::ParseError& e) {
        // --help prints and succeeds; every other parse error is a usage error.
        return app.exit(e) == 0 ? kExitOk : kExitUsage;
    }
    return kExitOk;
}
