// svcompose seams: the seam mismatch of composed frames.
//
// A composed frame alone does not tell the two cameras of an overlap
// apart, so this takes the camera input, as run does, and reports the
// last frame's mismatch without and with the corrections the library
// fitted.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "session.h"
#include "sv_interface.h"

namespace {

void seams(const InputOptions& o) {
    Session s = open_session(o);
    run_frames(s, "seams", [](uint8_t*) {}, [](long, const uint8_t*) {});
    const auto identity = rig::Corrections::identity();
    rig::SeamProbe probe = s.library->seam_probe();
    unsigned char* const* cams = s.library->camera_images();
    const auto before = probe.measure(cams, identity.gain, identity.tcurve);
    const auto after = probe.measure(cams, gain_cur, tcurve_cur);
    std::fputs(rig::format_seams({{"uncorrected", before}, {"corrected", after}}).c_str(),
               stdout);
}

}  // namespace

void add_seams_command(CLI::App& app) {
    auto o = std::make_shared<InputOptions>();
    auto* cmd = app.add_subcommand(
        "seams", "seam mismatch of the composed camera input, without and with corrections");
    add_input_options(cmd, *o);
    cmd->callback([o]() { seams(*o); });
}
