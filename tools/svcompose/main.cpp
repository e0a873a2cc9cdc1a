// svcompose: surround-view composition from four fisheye cameras.
#include <cstdio>
#include <string>

#include "commands.h"
#include "rig/outputs.h"

namespace {

// "svcompose run", or "svcompose" before a subcommand was recognised.
std::string prefix(const CLI::App& app) {
    const auto used = app.get_subcommands();
    return used.empty() ? "svcompose" : "svcompose " + used.front()->get_name();
}

const CLI::App* g_app = nullptr;  // for warn(), called inside the parse

}  // namespace

void warn(const std::string& message) {
    std::fprintf(stderr, "%s: warning: %s\n", prefix(*g_app).c_str(), message.c_str());
}

void note(const std::string& message) {
    std::fprintf(stderr, "%s: %s\n", prefix(*g_app).c_str(), message.c_str());
}

namespace {

int run(int argc, char** argv);

}  // namespace

int main(int argc, char** argv) {
    // Whatever way a command ends, it leaves either all its outputs or none.
    rig::remove_outputs_on_signals();
    const int code = run(argc, argv);
    if (code == kExitOk)
        rig::keep_outputs();
    else
        rig::remove_outputs();
    return code;
}

namespace {

int run(int argc, char** argv) {
    CLI::App app{"svcompose: compose a bird's-eye surround view from four fisheye cameras"};
    app.set_version_flag("--version", "svcompose " SV_VERSION);
    app.require_subcommand(1);
    add_demo_command(app);
    add_run_command(app);
    add_synth_command(app);
    add_tables_command(app);
    add_seams_command(app);
    g_app = &app;
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError& e) {
        // Subcommands signal failure with the exit code they want.
        return e.get_exit_code();
    } catch (const CLI::ParseError& e) {
        // --help prints and succeeds; every other parse error is a usage error.
        if (e.get_exit_code() == 0) return app.exit(e);
        if (app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-') {
            std::fprintf(stderr, "svcompose: unknown subcommand '%s'; run 'svcompose --help'\n",
                         argv[1]);
            return kExitUsage;
        }
        const std::string p = prefix(app);
        std::fprintf(stderr, "%s: %s\nRun '%s --help' for the options.\n", p.c_str(), e.what(),
                     p.c_str());
        return kExitUsage;
    } catch (const CommandError& e) {
        std::fprintf(stderr, "%s: %s\n", prefix(app).c_str(), e.what());
        return e.code();
    } catch (const std::exception& e) {
        // Anything else (OpenCV, allocation) is a runtime failure, not a crash.
        std::fprintf(stderr, "%s: %s\n", prefix(app).c_str(), e.what());
        return kExitFailure;
    }
    return kExitOk;
}

}  // namespace
