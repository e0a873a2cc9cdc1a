// The svcompose binary end to end: demo, synth -> run (raw and video), the
// parking-lot frames, and the messages and exit codes of bad input.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "rig/frames.h"

namespace {

namespace fs = std::filesystem;

const std::string kBin = SV_BINARY_DIR "/bin/svcompose";
const std::string kSedan = SV_SOURCE_DIR "/examples/rig-sedan.yaml";
const std::string kParkingLot = SV_SHARED_DATA "/parking-lot-rig";

std::string Slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Result { int code; std::string out, err; };

class CliTest : public ::testing::Test {
protected:
    // Three synthetic frame sets of four 320 x 180 cameras, their tables for
    // a 320 x 200 output, and a few damaged inputs, shared by every case.
    static void SetUpTestSuite() {
        dir_ = fs::temp_directory_path() / ("svcompose-cli-" + std::to_string(getpid()));
        fs::create_directories(dir_);
        synth_ok_ = Run("synth --rig " + kSedan + " --out " + S() +
                        " --frames 3 --size 320x180 --out-size 320x200 --drift 0.2").code == 0;
        cv::imwrite(D() + "/odd.png", cv::Mat(180, 321, CV_8UC3, cv::Scalar::all(90)));
        cv::imwrite(D() + "/tall.png", cv::Mat(182, 320, CV_8UC3, cv::Scalar::all(90)));
        const std::string raw = Slurp(S() + "/frames.yuyv");
        std::ofstream(D() + "/cut.yuyv", std::ios::binary) << raw.substr(0, raw.size() - 100);
        std::ofstream(D() + "/junk.mp4") << "not a video at all";
        std::ofstream(D() + "/junk.png") << "not an image either";
        fs::create_directories(D() + "/rep/report.txt");  // a report that cannot be written
        std::string crlf;
        for (char c : Slurp(S() + "/control.txt")) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
        std::ofstream(D() + "/crlf.txt", std::ios::binary) << crlf;
        std::ofstream(D() + "/cut.png", std::ios::binary) << Slurp(S() + "/preview_front.png").substr(0, 3000);
        std::ofstream(D() + "/short.json") << R"({"front": {"gain_q10": [1024, 1024], "tcurve": []}})";
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }
    void SetUp() override { ASSERT_TRUE(synth_ok_) << "svcompose synth failed"; }

    static std::string D() { return dir_.string(); }
    static std::string S() { return D() + "/synth"; }
    static std::string Files(const std::string& t = S()) {
        return " --ctrl " + t + "/control.txt --stat " + t + "/statistics.txt --setting " + t + "/setting.txt";
    }
    static Result Run(const std::string& args, const std::string& shell = "") {
        const fs::path out = dir_ / "stdout.txt", err = dir_ / "stderr.txt";
        const int st = std::system(("(" + shell + kBin + " " + args + ") >" + out.string() + " 2>" + err.string()).c_str());
        return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, Slurp(out), Slurp(err)};
    }

    static inline fs::path dir_;
    static inline bool synth_ok_ = false;
};

TEST_F(CliTest, DemoBringsTheSeamsTogether) {
    const std::string out = D() + "/demo";
    const Result r = Run("demo --out " + out + " --size 320x180 --out-size 320x200 --frames 4");
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* f : {"before.png", "after.png", "side_by_side.png", "control.txt",
                          "statistics.txt", "setting.txt", "report.txt"})
        EXPECT_TRUE(fs::exists(out + "/" + f)) << f;
    for (const auto& e : fs::directory_iterator(out))  // no temporary left behind
        EXPECT_NE(e.path().filename().string()[0], '.') << e.path();
    EXPECT_EQ(cv::imread(out + "/after.png").size(), cv::Size(320, 200));
    const std::string report = Slurp(out + "/report.txt");
    EXPECT_EQ(report, r.out);
    double pixels = 0, before = 0, before_low = 0, after = 0, after_low = 0;
    const size_t at = report.find("\nall ");
    ASSERT_NE(at, std::string::npos) << report;
    ASSERT_EQ(std::sscanf(report.c_str() + at, " all %lf %lf (%lf) %lf (%lf)", &pixels, &before, &before_low, &after,
                          &after_low), 5) << report;
    EXPECT_GT(pixels, 10000);
    EXPECT_LT(after, before);
    EXPECT_LT(after_low, before_low / 2) << report;
}

TEST_F(CliTest, RawAndVideoInputsComposeAlike) {
    const Result raw = Run("run" + Files() + " --in " + S() + "/frames.yuyv --size 320x180 --out " +
                           D() + "/raw --format both");
    ASSERT_EQ(raw.code, 0) << raw.err;
    EXPECT_NE(raw.out.find("3 frames, time per frame: median "), std::string::npos) << raw.out;
    EXPECT_EQ(fs::file_size(D() + "/raw/out.nv12"), 3u * 320 * 200 * 3 / 2);
    EXPECT_EQ(cv::imread(D() + "/raw/out_00002.png").size(), cv::Size(320, 200));

    // The same frame sets through a pipe, raw NV12 out on stdout.
    const Result pipe = Run("run" + Files() + " --in - --size 320x180 --video-out - <" + S() + "/frames.yuyv");
    EXPECT_EQ(pipe.code, 0) << pipe.err;
    EXPECT_TRUE(pipe.out == Slurp(D() + "/raw/out.nv12"));
    EXPECT_NE(pipe.err.find("wrote stdout: raw NV12 on stdout, full range"), std::string::npos) << pipe.err;
    const std::string raw_bytes = Slurp(S() + "/frames.yuyv");
    std::ofstream(D() + "/short.yuyv", std::ios::binary) << raw_bytes.substr(0, raw_bytes.size() - 100);
    const Result cut_pipe = Run("run" + Files() + " --in - --size 320x180 --video-out - <" + D() + "/short.yuyv");
    EXPECT_EQ(cut_pipe.code, 1);
    EXPECT_NE(cut_pipe.err.find("svcompose run: stdin ended inside a frame set: 460700 of 460800 bytes"),
              std::string::npos) << cut_pipe.err;

    // One lossless video per camera, tagged full range: every fourth frame,
    // retimed to a steady rate.
    std::string videos;
    for (const char* k : {"0", "1", "2", "3"}) {
        const std::string mkv = D() + "/cam" + k + ".mkv";
        if (std::system(("ffmpeg -v error -y -f rawvideo -pix_fmt yuyv422 -s 320x180 -i " + S() + "/frames.yuyv"
                         " -vf 'select=not(mod(n-" + k + "\\,4)),setpts=N/25/TB' -c:v ffv1 -color_range pc " +
                         mkv).c_str()) != 0)
            GTEST_SKIP() << "no ffmpeg program to make the test videos";
        videos += " " + mkv;
    }
    const Result vid = Run("run" + Files() + " --in" + videos + " --out " + D() + "/vid --format nv12 --video-out " +
                           D() + "/vid/out.mp4");
    ASSERT_EQ(vid.code, 0) << vid.err;
    EXPECT_TRUE(Slurp(D() + "/vid/out.nv12") == Slurp(D() + "/raw/out.nv12"));  // no megabyte dump
    EXPECT_NE(vid.err.find("svcompose run: camera videos: full range (as tagged)"), std::string::npos) << vid.err;
    EXPECT_NE(vid.out.find(" H.264 (libx264) in mp4, full range"), std::string::npos) << vid.out;

    // A cut video ends the run early, with a word on where.
    const std::string mkv = Slurp(D() + "/cam0.mkv");
    std::ofstream(D() + "/cut.mkv", std::ios::binary) << mkv.substr(0, mkv.size() / 2);
    const Result cut = Run("run" + Files() + " --in " + D() + "/cut.mkv" + videos.substr(videos.find(' ', 1)) +
                           " --out " + D() + "/cut --format nv12");
    EXPECT_EQ(cut.code, 0) << cut.err;
    EXPECT_NE(cut.err.find("svcompose run: warning: camera front (" + D() + "/cut.mkv) ended after "),
              std::string::npos) << cut.err;
}

// Limited-range videos of four camera images compose like the images
// themselves, not washed out.
TEST_F(CliTest, LimitedRangeVideoMatchesItsImages) {
    std::string images, videos;
    for (const char* cam : {"front", "rear", "left", "right"}) {
        const std::string png = S() + "/preview_" + cam + ".png", mkv = D() + "/tv_" + cam + ".mkv";
        if (std::system(("ffmpeg -v error -y -i " + png + " -vf scale=out_color_matrix=bt601:out_range=tv "
                         "-pix_fmt yuv422p -color_range tv -c:v ffv1 " + mkv).c_str()) != 0)
            GTEST_SKIP() << "no ffmpeg program to make the test videos";
        images += " " + png;
        videos += " " + mkv;
    }
    auto luma = [](const std::string& dir) {
        const std::string nv12 = Slurp(dir + "/out.nv12");
        std::vector<int> y(nv12.begin(), nv12.begin() + 320 * 200);
        for (int& v : y) v &= 255;
        return y;
    };
    const std::string common = "run" + Files() + " --format nv12 --in";
    ASSERT_EQ(Run(common + images + " --out " + D() + "/tv_img").code, 0);
    const Result vid = Run(common + videos + " --out " + D() + "/tv_vid");
    ASSERT_EQ(vid.code, 0) << vid.err;
    EXPECT_NE(vid.err.find("svcompose run: camera videos: limited range (as tagged), converted to full range"),
              std::string::npos) << vid.err;
    ASSERT_EQ(Run(common + videos + " --out " + D() + "/tv_raw --input-range full").code, 0);
    const std::vector<int> img = luma(D() + "/tv_img"), conv = luma(D() + "/tv_vid"), raw = luma(D() + "/tv_raw");
    // Over the composed pixels only: the black outside is the same in all three.
    auto p1 = [&img](const std::vector<int>& all) {
        std::vector<int> v;
        for (size_t i = 0; i < all.size(); ++i)
            if (img[i] > 0) v.push_back(all[i]);
        std::nth_element(v.begin(), v.begin() + v.size() / 100, v.end());
        return v[v.size() / 100];
    };
    double diff = 0;
    for (size_t i = 0; i < img.size(); ++i) diff += std::abs(img[i] - conv[i]);
    EXPECT_LT(diff / img.size(), 1.5);
    EXPECT_NEAR(p1(conv), p1(img), 2);
    EXPECT_GT(p1(raw), p1(img) + 8);  // left limited, the dark end is washed out
}

TEST_F(CliTest, ParkingLotFramesWithReport) {
    if (!fs::exists(kParkingLot)) GTEST_SKIP() << kParkingLot << " absent";
    const std::string t = D() + "/pl", im = " " + kParkingLot + "/images/";
    ASSERT_EQ(Run("tables --rig " + kParkingLot + " --out " + t + " --out-size 640x400").code, 0);
    const std::string in = im + "front.png" + im + "back.png" + im + "left.png" + im + "right.png";
    const Result r = Run("run" + Files(t) + " --in" + in + " --out " + t + " --report --background" + im + "car.png");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(cv::imread(t + "/out.png").size(), cv::Size(640, 400));
    for (const char* overlap : {"front-left", "front-right", "rear-right", "rear-left"})
        EXPECT_NE(Slurp(t + "/report.txt").find(overlap), std::string::npos) << overlap;
    const Result s = Run("seams" + Files(t) + " --in" + in);
    ASSERT_EQ(s.code, 0) << s.err;
    EXPECT_NE(s.out.find("uncorrected         corrected"), std::string::npos) << s.out;
}

// ToneMapping written out plainly: Q10 gain, clamp, then the polyline through
// (0, 0), (64, K0), (128, K1), (192, K2), (256, 256), rounded, clamped.
int PlainToneMap(int gain, const int* K, int v) {
    v = std::min(255, std::max(0, (gain * v + 512) / 1024));
    const int y[5] = {0, K[0], K[1], K[2], 256}, k = v / 64;
    return std::min(255, std::max(0, y[k] + ((y[k + 1] - y[k]) * (v - 64 * k) + 32) / 64));
}

TEST_F(CliTest, CorrectionsRoundTripWithTheirLookupTables) {
    // Spd so large that one frame's fit cannot move the restored corrections.
    std::string setting = Slurp(S() + "/setting.txt");
    setting.replace(setting.find("Spd=1"), 5, "Spd=1000000000");
    const std::string t = D() + "/corr";
    fs::create_directories(t);
    std::ofstream(t + "/setting.txt") << setting;
    // A gain that clips before the curve, a falling segment, extreme levels.
    const int gain[12] = {1024, 2048, 700, 1100, 1000, 900, 1024, 1024, 1024, 1, 65535, 1024};
    int tcurve[36];
    for (int i = 0; i < 36; ++i) tcurve[i] = 64 * (i % 3 + 1) + (i % 7) - 3;
    tcurve[3] = 90, tcurve[4] = 70, tcurve[5] = 255, tcurve[6] = 0;
    const char* names[4] = {"front", "back", "left", "right"};
    std::string in = "{";
    auto list = [](const int* v) {
        return "[" + std::to_string(v[0]) + "," + std::to_string(v[1]) + "," + std::to_string(v[2]) + "]";
    };
    for (int k = 0; k < 4; ++k)
        in += std::string(k ? "," : "") + "\"" + names[k] + "\": {\"gain_q10\": " + list(gain + 3 * k) +
              ", \"tcurve\": [" + list(tcurve + 9 * k) + "," + list(tcurve + 9 * k + 3) + "," +
              list(tcurve + 9 * k + 6) + "]}";
    std::ofstream(t + "/in.json") << in + "}";
    const Result r = Run("run --ctrl " + S() + "/control.txt --stat " + S() + "/statistics.txt --setting " + t +
                         "/setting.txt --in " + S() + "/frames.yuyv --size 320x180 --frames 1 --out " + t +
                         " --corrections-in " + t + "/in.json --corrections-out " + t + "/out.json");
    ASSERT_EQ(r.code, 0) << r.err;
    cv::FileStorage out(t + "/out.json", cv::FileStorage::READ | cv::FileStorage::FORMAT_JSON);
    ASSERT_TRUE(out.isOpened());
    for (int k = 0; k < 4; ++k) {
        const cv::FileNode cam = out[names[k]];
        for (int ch = 0; ch < 3; ++ch) {
            EXPECT_EQ(int(cam["gain_q10"][ch]), gain[3 * k + ch]) << names[k];
            for (int j = 0; j < 3; ++j) EXPECT_EQ(int(cam["tcurve"][ch][j]), tcurve[9 * k + 3 * ch + j]);
            const cv::FileNode lut = cam["lut_rgb"][ch];
            ASSERT_EQ(lut.size(), 256u);
            for (int v = 0; v < 256; ++v)
                ASSERT_EQ(int(lut[v]), PlainToneMap(gain[3 * k + ch], tcurve + 9 * k + 3 * ch, v))
                    << names[k] << " channel " << ch << " level " << v;
        }
    }
    // 2048 * 200 clips to 255 before the curve; gain 1 leaves 255 at 0.
    EXPECT_EQ(int(out["front"]["lut_rgb"][1][200]), PlainToneMap(1024, tcurve + 3, 255));
    EXPECT_EQ(int(out["right"]["lut_rgb"][0][255]), 0);
}

TEST_F(CliTest, InterruptedSynthLeavesNothing) {
    // Whenever the signal comes, before or after the folder is made.
    const std::string out = D() + "/term";
    const int st = std::system(("timeout -s TERM 1 " + kBin + " synth --rig " + kSedan + " --out " + out +
                                "/deep --frames 100000 --size 320x180 >/dev/null 2>&1").c_str());
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 124) << st;
    EXPECT_FALSE(fs::exists(out));
}

// In args, message and gone, {S} is the synth folder, {D} the scratch folder and {F} the three
// files. shell runs before the command (a file-size limit); gone must not exist afterwards: a
// failed command removes every file and folder it made.
struct BadInput {
    const char* name; std::string args; int code; const char* message;
    const char* gone = "{D}/x"; const char* shell = "";
};

class CliBadInput : public CliTest, public ::testing::WithParamInterface<BadInput> {
protected:
    static std::string Expand(std::string s) {
        for (const auto& [key, value] :
             {std::pair<std::string, std::string>{"{F}", Files()}, {"{S}", S()}, {"{D}", D()}})
            for (size_t at; (at = s.find(key)) != std::string::npos;) s.replace(at, key.size(), value);
        return s;
    }
};

TEST_P(CliBadInput, FailsWithItsMessageAndCode) {
    const std::string args = Expand(GetParam().args);
    const Result r = Run(args, GetParam().shell);
    EXPECT_EQ(r.code, GetParam().code) << r.err;
    EXPECT_NE(r.err.find(Expand(GetParam().message)), std::string::npos) << r.err;
    // The tool's line comes first: no decoder or library speaks before it on stderr.
    EXPECT_EQ(r.err.rfind("svcompose", 0), 0u) << r.err;
    EXPECT_FALSE(fs::exists(Expand(GetParam().gone))) << GetParam().gone;
}

const std::string kThree = "run{F} --in {S}/preview_front.png {S}/preview_rear.png {S}/preview_left.png ";
const std::string kRaw = "run{F} --in {S}/frames.yuyv ", kOut = " --out {D}/x";

const BadInput kBadInputs[] = {
    {"MissingFile", kThree + "{D}/none.png" + kOut, 1, "svcompose run: cannot read {D}/none.png: no such file"},
    {"WrongImageSize", kThree + "{D}/tall.png" + kOut, 1, "tall.png is 320x182, expected 320x180"},
    {"OddImageSize", "run{F} --in {D}/odd.png {D}/odd.png {D}/odd.png {D}/odd.png" + kOut, 1,
     "odd.png is 321x180: camera frames need an even width and height"},
    {"UnreadableImage", kThree + "{D}/junk.png" + kOut, 1, "cannot read image {D}/junk.png"},
    {"TruncatedRaw", "run{F} --in {D}/cut.yuyv --size 320x180" + kOut, 1,
     "cut.yuyv is truncated: 1382300 bytes is not a whole number of 320x180 frame sets"},
    {"UnreadableVideo", "run{F} --in {D}/junk.mp4 {D}/junk.mp4 {D}/junk.mp4 {D}/junk.mp4" + kOut, 1,
     "svcompose run: cannot read video {D}/junk.mp4"},
    {"RejectedConfiguration", "run --ctrl {S}/control.txt --stat {S}/control.txt --setting {S}/setting.txt "
     "--in {S}/frames.yuyv --size 320x180" + kOut, 1, "the library rejected its configuration files"},
    {"OutputTooWide", kRaw + "--size 320x180 --out-size 4098x800" + kOut, 1,
     "output size 4098x800: needs an even width and height, width at most 4096"},
    {"TwoInputs", "run{F} --in {D}/a {D}/b" + kOut, 2,
     "--in takes four camera files (front, rear, left, right) or one raw frame-set file, not 2"},
    {"RawWithoutSize", kRaw + kOut, 2, "a raw frame-set file needs the camera size: --size WxH"},
    {"BadSize", kRaw + "--size 320by180" + kOut, 2, "--size 320by180: expected WIDTHxHEIGHT"},
    {"MissingOption", "run --in {S}/frames.yuyv" + kOut, 2, "svcompose run: --ctrl is required"},
    {"MixedInputs", kThree + "{D}/junk.mp4" + kOut, 2, "--in mixes images and videos"},
    {"SeamsOfARenderedFrame", "seams{F} --in {S}/preview_front.png", 2,
     "svcompose seams: {S}/preview_front.png is an image: give the four camera images"},
    {"MissingRig", "demo --rig {D}/none.yaml" + kOut, 1, "svcompose demo: cannot read {D}/none.yaml: no such file"},
    {"FolderAsInput", "run{F} --in {D}" + kOut, 1, "svcompose run: cannot read {D}: is a directory"},
    {"UnwritableReport", kRaw + "--size 320x180 --report --out {D}/rep", 1, "cannot write {D}/rep/report.txt"},
    {"OneVideo", "run{F} --in {D}/junk.mp4" + kOut, 2, "{D}/junk.mp4 is a video: give the four camera videos"},
    {"SizeBeyondInt", kRaw + "--size 99999999999x2" + kOut, 2, "--size 99999999999x2: expected WIDTHxHEIGHT"},
    {"OddOutSize", kRaw + "--size 320x180 --out-size 320x201" + kOut, 2, "--out-size 320x201: needs an even width"},
    {"ZeroFrames", "demo --frames 0" + kOut, 2, "svcompose demo: --frames: must be >=1, got 0"},
    {"NanSpeed", "synth --rig x --speed nan" + kOut, 2, "svcompose synth: --speed: expected a finite number, got nan"},
    {"UnknownSubcommand", "frob", 2, "svcompose: unknown subcommand 'frob'; run 'svcompose --help'"},
    // Numbers that do not fit their option.
    {"FramesBeyondLong", kRaw + "--size 320x180 --frames 99999999999999999999" + kOut, 2,
     "svcompose run: --frames: must be a whole number from 1 to 9223372036854775807, got 99999999999999999999"},
    {"FractionalFrames", "demo --frames 2.5" + kOut, 2, "--frames: expected a whole number, got '2.5'"},
    {"SeedBeyondUnsigned", "synth --rig " + kSedan + " --seed 4294967296" + kOut, 2,
     "--seed: must be at most 4294967295, got 4294967296"},
    {"ThresRatioOverflows", "tables --rig " + kSedan + " --ThresRatio 8421505" + kOut, 2,
     "--ThresRatio: must be at most 8421504, got 8421505"},
    {"BetaBeyondFloat", "tables --rig " + kSedan + " --beta 1e39" + kOut, 2, "--beta: must be 0 to"},
    // Failures part-way: nothing of what the command made stays.
    {"RunUnderFileLimit", kRaw + "--size 320x180 --format both --out {D}/lim", 1,
     "svcompose run: cannot write {D}/lim/out.nv12: File too large", "{D}/lim", "ulimit -f 100; "},
    {"NoOutput", kRaw + "--size 320x180", 2, "svcompose run: run needs --out DIR, --video-out FILE or both"},
    {"UnknownVideoFormat", kRaw + "--size 320x180 --video-out {D}/x/out.nosuch" + kOut, 1,
     "svcompose run: cannot write {D}/x/out.nosuch: unknown video format (name it .mp4 or .mkv)"},
    {"VideoUnderFileLimit", kRaw + "--size 320x180 --video-out {D}/vlim/out.mkv", 1,
     "svcompose run: cannot write {D}/vlim/out.mkv: File too large", "{D}/vlim", "ulimit -f 8; "},
    {"SynthUnderFileLimit", "synth --rig " + kSedan + " --out {D}/slim/deep --size 320x180", 1,
     "svcompose synth: cannot write {D}/slim/deep/frames.yuyv: File too large", "{D}/slim", "ulimit -f 1500; "},
    {"DemoOutputTooSmall", "demo --out {D}/dm --size 320x180 --out-size 64x40", 1,
     "svcompose demo: output size 64 x 40 is unusable", "{D}/dm"},
    {"TablesBorderTooLarge", "tables --rig " + kSedan + " --out {D}/tb/a --border 1e30", 1,
     "svcompose tables: camera front sees none of its part of the output", "{D}/tb"},
    {"SynthCamerasTooLarge", "synth --rig " + kSedan + " --out {D}/hc --size 65536x65536", 2,
     "--size 65536x65536: a frame set of four such cameras (8 x width x height bytes) must stay below 2 GiB",
     "{D}/hc"},
    // Refused before the library or the decoder sees them.
    {"WindowsLineEnds", "run --ctrl {D}/crlf.txt --stat {S}/statistics.txt --setting {S}/setting.txt "
     "--in {S}/frames.yuyv --size 320x180" + kOut, 1,
     "svcompose run: {D}/crlf.txt has Windows line ends (CR LF), which the library reads as extra table "
     "values: convert it first, e.g. sed -i 's/\\r$//' {D}/crlf.txt"},
    {"CorrectionsNotJson", kRaw + "--size 320x180 --corrections-in {D}/junk.png" + kOut, 1,
     "svcompose run: {D}/junk.png is not a JSON object of per-camera corrections"},
    {"CorrectionsShort", kRaw + "--size 320x180 --corrections-in {D}/short.json" + kOut, 1,
     "svcompose run: {D}/short.json: front needs \"gain_q10\": three whole numbers (R, G, B; 1024 = 1.0)"},
    {"CorrectionsOutUnwritable", kRaw + "--size 320x180 --frames 1 --corrections-out {D}/rep" + kOut, 1,
     "svcompose run: cannot write {D}/rep"},
    {"TruncatedPng", kThree + "{D}/cut.png" + kOut, 1, "svcompose run: cannot read image {D}/cut.png: truncated PNG file"},
};
INSTANTIATE_TEST_SUITE_P(Cli, CliBadInput, ::testing::ValuesIn(kBadInputs),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
