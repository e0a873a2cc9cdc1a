#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sv_interface.h"

namespace {

using std::string;

const char kSettings[] =
    "StatFreq=1\nStatL=8\nStatH=248\nThresRatio=14\nThresL=16\nThresH=128\n"
    "DSIntvl=4\nnDataL=4\nbeta=0.1\ntcRatio=4\ntcH=16\ngMgn=0.05\nSpd=1\n";

// Scalar part of a table file for a 16 x 16 output; the statistics form
// has only the first six tags.
string Header(int w, int h, bool control = true) {
    string s = "OutImgWidth: 16\nOutImgHeight: 16\nTableWidth: " + std::to_string(w) +
               "\nTableHeight: " + std::to_string(h) + "\nIntervalX: 3\nIntervalY: 3\n";
    if (control)
        s += "DispCoorX: 0\nDispCoorY: 0\nROIStartX: 0\nROIStartY: 0\nROIEndX: 15\n"
             "ROIEndY: 15\nZoomFactorX: 64\nZoomFactorY: 64\nL1: 100\nL2: 101\nH1: 100\nH2: 101\n";
    return s;
}

// Both tables with every node alike; by default unseen, so nothing renders
// and the calibration gathers nothing.
string Table(int w, int h, bool control = true, const string& node = "-1 -1 256 0") {
    string s = Header(w, h, control);
    for (const char* head : {"TB1:\n{\n", "}\nTB2:\n{\n"}) {
        s += head;
        for (int i = 0; i < w * h; ++i) s += node + ",\n";
    }
    return s + "}\n";
}

string Edit(string s, const string& from, const string& to) {
    const size_t at = s.find(from);
    EXPECT_NE(at, string::npos) << from;
    return at == string::npos ? s : s.replace(at, from.size(), to);
}

template <typename F>
string Printed(F f) {
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

char* C(const string& s) { return const_cast<char*>(s.c_str()); }

// Every test starts from the process's initial state and its own folder.
class Config : public testing::Test {
protected:
    void SetUp() override {
        sv_deinit();
        string tmpl = testing::TempDir() + "svXXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl + "/";
        OutW = 1280, OutH = 800, STATW = 128, STATH = 168;
        std::fill(gain, gain + 12, 0);
        std::fill(tcurve, tcurve + 36, 0);
        std::fill(gain_cur, gain_cur + 12, 1024);
        for (int i = 0; i < 36; ++i) tcurve_cur[i] = 64 * (i % 3 + 1);
    }
    void TearDown() override {
        sv_deinit();
        std::filesystem::remove_all(dir_);
    }
    string Write(const string& name, const string& text) {
        std::ofstream(dir_ + name) << text;
        return dir_ + name;
    }
    // sv_init on the three texts with 16 x 16 cameras unless told otherwise.
    int Init(const string& ctrl, const string& stat, const string& set, int w = 16, int h = 16,
             int ow = 16, int oh = 16) {
        return sv_init(Write("c.txt", ctrl).c_str(), Write("s.txt", stat).c_str(),
                       Write("p.txt", set).c_str(), w, h, ow, oh);
    }
    string dir_;
};

// ---- Setting file ----

struct Settings {
    int freq = -7, rto = -7, tl = -7, th = -7, ds = -7, nd = -7, bdr = -7, bdh = -7, spd = -7;
    unsigned char l = 7, h = 7;
    float beta = -7, mgn = -7;
    bool Read(const string& path) {
        return ReadInSetting(C(path), freq, l, h, rto, tl, th, ds, nd, beta, bdr, bdh, mgn, spd);
    }
};

TEST_F(Config, SettingFileWithTheDefaults) {
    Settings s;
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(s.Read(Write("p", kSettings))); }), "");
    EXPECT_EQ(std::vector<int>({s.freq, s.l, s.h, s.rto, s.tl, s.th, s.ds, s.nd, s.bdr, s.bdh, s.spd}),
              std::vector<int>({1, 8, 248, 14, 16, 128, 4, 4, 4, 16, 1}));
    EXPECT_EQ(s.beta, 0.1f);
    EXPECT_EQ(s.mgn, 0.05f);
}

struct SettingCase {
    const char *from, *to, *printed;
    int Settings::*field;  // or null for StatL / StatH
    int expected;
};

class SettingEdit : public Config, public testing::WithParamInterface<SettingCase> {};

TEST_P(SettingEdit, StoresAndReports) {
    const SettingCase& c = GetParam();
    Settings s;
    const string out = Printed([&] { s.Read(Write("p", Edit(kSettings, c.from, c.to))); });
    EXPECT_EQ(out, c.printed);
    EXPECT_EQ(c.field ? s.*c.field : string(c.from) == "StatL=8" ? s.l : s.h, c.expected);
}

const char kMissFreq[] = "error! miss StatFreq tag in parameter file\n";
INSTANTIATE_TEST_SUITE_P(Cases, SettingEdit, testing::Values(
    SettingCase{"Spd=1", "Spd=4 # slow", "", &Settings::spd, 4},
    SettingCase{"StatFreq=1", "# StatFreq=5", kMissFreq, &Settings::freq, -7},
    SettingCase{"StatFreq=1", "StatFreq = 5", kMissFreq, &Settings::freq, -7},
    SettingCase{"StatFreq=1", "StatFreq= 5", "", &Settings::freq, 5},
    SettingCase{"StatFreq=1", "Spd=6\nStatFreq=1", "", &Settings::spd, 6},
    SettingCase{"StatL=8", "StatL=300", "", nullptr, 44},
    SettingCase{"StatL=8", "StatL=-1", "", nullptr, 255},
    SettingCase{"StatH=248", "StatH=x", "", nullptr, 7},
    SettingCase{"DSIntvl=4", "", "error! miss DSIntvl tag in parameter file\n"
                                 "error! miss DSIntvl tag in parameter file\n", &Settings::ds, -7}));

TEST_F(Config, EmptyOrUnreadableSettingFile) {
    Settings s;
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(s.Read(Write("p", ""))); }),
              "error! miss StatFreq tag in parameter file\nerror! miss StatL tag in parameter file\n"
              "error! miss StatH tag in parameter file\nerror! miss ThresRatio tag in parameter file\n"
              "error! miss ThresL tag in parameter file\nerror! miss ThresH tag in parameter file\n"
              "error! miss DSIntvl tag in parameter file\nerror! miss nDataL tag in parameter file\n"
              "error! miss beta tag in parameter file\nerror! miss DSIntvl tag in parameter file\n"
              "error! miss tcRatio tag in parameter file\nerror! miss tcH tag in parameter file\n"
              "error! miss gMgn tag in parameter file\nerror! miss Spd tag in parameter file\n");
    for (const string& path : {dir_ + "absent", dir_})
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(s.Read(path)); }), "Load setting file error!\n");
    EXPECT_EQ(s.freq, -7);
}

// ---- Table files ----

struct TableCase {
    const char* tables;  // everything from the TB1 header on
    int w, h;
    const char* printed;
    std::array<int, 4> tb1, tb2;  // first four values of each table
};

class TableSection : public Config, public testing::WithParamInterface<TableCase> {};

TEST_P(TableSection, ReadsOrRefuses) {
    const TableCase& c = GetParam();
    OutW = 16, OutH = 16;  // room: 5 x 5 nodes
    std::vector<int> tb1(100, -9), tb2(100, -9);
    tag_CtrlPara rec{};
    rec.TB1 = tb1.data(), rec.TB2 = tb2.data();
    const string path = Write("c", Header(c.w, c.h) + c.tables);
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ReadInTable(C(path), &rec); }), c.printed);
    EXPECT_EQ(ok, *c.printed == '\0');
    EXPECT_EQ((std::array<int, 4>{tb1[0], tb1[1], tb1[2], tb1[3]}), c.tb1);
    EXPECT_EQ((std::array<int, 4>{tb2[0], tb2[1], tb2[2], tb2[3]}), c.tb2);
}

const char kNoTB1[] = "error! TB1 tag in control file\n";
const char kNoTB2[] = "error! TB2 tag in control file\n";
const std::array<int, 4> kUntouched = {-9, -9, -9, -9};
INSTANTIATE_TEST_SUITE_P(Cases, TableSection, testing::Values(
    TableCase{"TB1:\n120 5 6 7 TB2: 1 2 3 4", 1, 1, "", {0, 5, 6, 7}, {1, 2, 3, 4}},
    TableCase{"TB1:\n{\n1 2 3 4 5 TB2: 6 7 8", 1, 1, "", {1, 2, 3, 4}, {0, 6, 7, 8}},
    TableCase{"TB1:\n{\n1 2 # 99\n3;4}\nTB2:{\n5,6,\t7 8}", 1, 1, "", {1, 2, 3, 4}, {5, 6, 7, 8}},
    TableCase{"TB1:\n{\n1 2\r\n\r\n3 4 TB2: 5 6 7 8", 1, 1, "", {1, 2, 0, 3}, {0, 5, 6, 7}},  // CR is no separator
    TableCase{"TB2: 1 2 3 4", 1, 1, "error! TB1 tag in control file\nerror! TB2 tag in control file\n",
              kUntouched, kUntouched},
    TableCase{"TB1:\n{\n1 2 3 4", 1, 1, kNoTB2, {1, 2, 3, 4}, kUntouched},
    TableCase{"TB1:\n{\n1 2 3", 1, 1, "error! TB1 tag in control file\nerror! TB2 tag in control file\n",
              kUntouched, kUntouched},
    TableCase{"TB1:\n{\n1 2 3 4 TB2: 5 6", 1, 1, kNoTB2, {1, 2, 3, 4}, kUntouched},
    TableCase{"TB1", 6, 5, "error! TableWidth x TableHeight (6 x 5) exceeds the 5 x 5 nodes allocated in control file\n",
              kUntouched, kUntouched},
    TableCase{"TB1", 65536, 65536, "error! TableWidth x TableHeight (65536 x 65536) exceeds the 5 x 5 nodes allocated in control file\n",
              kUntouched, kUntouched},
    TableCase{"TB1", 0, 3, "error! TableWidth x TableHeight (0 x 3) is not a positive node count in control file\n",
              kUntouched, kUntouched}));

TEST_F(Config, TablesFillTheRoomExactly) {
    std::vector<int> c1(163 * 103 * 4), c2(c1.size()), s1(19 * 24 * 4), s2(s1.size());
    tag_CtrlPara ctrl{};
    ctrl.TB1 = c1.data(), ctrl.TB2 = c2.data();
    tag_StatPara stat{};
    stat.TB1 = s1.data(), stat.TB2 = s2.data();
    EXPECT_TRUE(ReadInTable(C(Write("c", Table(163, 103, true, "1 2 3 4"))), &ctrl));
    EXPECT_TRUE(ReadInTable(C(Write("s", Table(19, 24, true, "5 6 7 8"))), &stat));
    EXPECT_EQ(c2.back() + s2.back(), 12);
    EXPECT_EQ(ctrl.ZoomFactorX + ctrl.ROIEndY + ctrl.L2 + ctrl.H1 + stat.IntervalY, 64 + 15 + 101 + 100 + 3);
    EXPECT_EQ(Printed([&] { ReadInTable(C(Write("s", Table(20, 24, false))), &stat); }),
              "error! TableWidth x TableHeight (20 x 24) exceeds the 19 x 24 nodes allocated in statistics file\n");
}

TEST_F(Config, MissingTagsAndFiles) {
    std::vector<int> tb(8);
    tag_CtrlPara ctrl{};
    ctrl.TB1 = ctrl.TB2 = tb.data();
    string all;
    for (const char* t : {"OutImgWidth", "OutImgHeight", "DispCoorY", "DispCoorX", "ROIStartY", "ROIEndY",
                          "ROIStartX", "ROIEndX", "ZoomFactorY", "ZoomFactorX", "TableWidth", "TableHeight",
                          "IntervalX", "IntervalY", "L1", "L2", "H1", "H2"})
        all += string("error! miss ") + t + " tag in control file\n";
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(ReadInTable(C(Write("c", "TB1:\n{\n1 2 3 4")), &ctrl)); }),
              all + "error! TableWidth x TableHeight (0 x 0) is not a positive node count in control file\n");
    EXPECT_EQ(Printed([&] {
                  EXPECT_FALSE(ReadInTable(C(dir_ + "absent"), &ctrl));
                  EXPECT_FALSE(ReadInTable(C(dir_), &ParaStat));
              }),
              "Load table file error!\nLoad table file error!\n");
}

// ---- sv_init ----

TEST_F(Config, InitFailsAtTheFirstBadFile) {
    const string absent = dir_ + "absent";
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_init(C(absent), "x", "y", 16, 16, 16, 16), -1); }),
              "Load table file error!\nRead setting file " + absent + " error!\n");
    EXPECT_NE(Parameter.TB1, nullptr);
    EXPECT_EQ(ParaStat.TB1, nullptr);
    EXPECT_EQ(sv_deinit() + sv_deinit(), 0);
    EXPECT_EQ(Parameter.TB1, nullptr);

    const string out = Printed([&] { EXPECT_EQ(Init(Table(3, 3), Edit(Table(3, 3, false), "IntervalY: 3", ""), kSettings), -1); });
    EXPECT_EQ(out, "error! miss IntervalY tag in control file\nRead setting file " + dir_ + "s.txt error!\n");
    EXPECT_EQ(Parameter.TableWidth, 3);
    EXPECT_EQ(YUVarray[0], nullptr);
}

struct GuardCase {
    const char* file;  // "c.txt", "s.txt", "p.txt", or "" for the sizes
    const char *from, *to;
    std::array<int, 4> sizes;
    const char* printed;
};

class InitGuard : public Config, public testing::WithParamInterface<GuardCase> {};

TEST_P(InitGuard, RejectsWithAMessage) {
    const GuardCase& c = GetParam();
    const string f = c.file;
    string texts[3] = {Table(3, 3), Table(3, 3, false), kSettings};
    const int which = f == "c.txt" ? 0 : f == "s.txt" ? 1 : 2;
    if (!f.empty()) texts[which] = Edit(texts[which], c.from, c.to);
    const auto [w, h, ow, oh] = c.sizes;
    const string out = Printed([&] { EXPECT_EQ(Init(texts[0], texts[1], texts[2], w, h, ow, oh), -1); });
    EXPECT_EQ(out, c.printed + (f.empty() ? "" : "Read setting file " + dir_ + f + " error!\n"));
}

const std::array<int, 4> k16 = {16, 16, 16, 16};
INSTANTIATE_TEST_SUITE_P(Cases, InitGuard, testing::Values(
    GuardCase{"", "", "", {15, 16, 16, 16}, "error! camera size 15 x 16 is not positive and even\n"},
    GuardCase{"", "", "", {32768, 32768, 16, 16}, "error! camera size 32768 x 32768 too large\n"},
    GuardCase{"", "", "", {16, 16, 0, 16}, "error! output size 0 x 16 is not positive and even\n"},
    GuardCase{"", "", "", {16, 16, 1282, 16}, "error! output width 1282 above 1280\n"},
    GuardCase{"c.txt", "ZoomFactorX: 64", "ZoomFactorX: 0", k16, "error! ZoomFactorX 0 below 1 in control file\n"},
    GuardCase{"c.txt", "ROIStartY: 0", "ROIStartY: -2", k16, "error! ROIStartY -2 below 0 in control file\n"},
    GuardCase{"c.txt", "IntervalY: 3", "IntervalY: 4", k16, "error! IntervalX 3 differs from IntervalY 4 in control file\n"},
    GuardCase{"c.txt", "IntervalX: 3\nIntervalY: 3", "IntervalX: 9\nIntervalY: 9", k16,
              "error! IntervalX 9 outside 0..8 in control file\n"},
    GuardCase{"c.txt", "TableWidth: 3", "TableWidth: 9", k16,
              "error! TableWidth x TableHeight (9 x 3) exceeds the 5 x 5 nodes allocated in control file\n"},
    GuardCase{"s.txt", "IntervalX: 3", "IntervalX: 2", k16, "error! IntervalX 2 differs from IntervalY 3 in statistics file\n"},
    GuardCase{"p.txt", "StatFreq=1", "StatFreq=0", k16, "error! StatFreq 0 below 1 in parameter file\n"},
    GuardCase{"p.txt", "Spd=1", "Spd=-3", k16, "error! Spd -3 below 1 in parameter file\n"}));

// ---- Frame cycle ----

TEST_F(Config, ConvertNeedsASuccessfulInitAndBuffers) {
    std::vector<unsigned char> in(8 * 16 * 16), out(16 * 16 * 3 / 2, 7);
    const string notReady = "error! sv_convert_image called without a successful sv_init\n";
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_image(in.data(), 0, out.data(), 0), 0); }), notReady);
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), kSettings), 0);
    EXPECT_EQ(Printed([&] { sv_convert_image(nullptr, 0, out.data(), 0); }),
              "error! sv_convert_image needs an input and an output buffer\n");
    EXPECT_EQ(sv_convert_image(in.data(), 0, out.data(), 0), 0);
    EXPECT_EQ(out, std::vector<unsigned char>(out.size(), 7));  // every node unseen
    sv_deinit();
    EXPECT_EQ(Printed([&] { sv_convert_image(in.data(), 0, out.data(), 0); }), notReady);
}

TEST_F(Config, BlendMovesAQuarterOfTheWay) {
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false),
                   Edit(Edit(kSettings, "Spd=1", "Spd=4"), "StatFreq=1", "StatFreq=1000")), 0);
    std::vector<unsigned char> in(8 * 16 * 16), out(16 * 16 * 3 / 2);
    sv_convert_image(in.data(), 0, out.data(), 0);  // frame 0 calibrates
    std::fill(gain, gain + 12, 1100);
    std::fill(gain_cur, gain_cur + 12, 1024);
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_EQ(std::vector<int>(gain_cur, gain_cur + 12), std::vector<int>(12, 1043));
    EXPECT_EQ(g_iter, 2);
}

// The last cell row's lower corners lie one node row past the table. That
// row is storage the file never fills: it must hold unseen nodes, also when
// the table fills its room exactly, so those rows render nothing.
TEST_F(Config, LastCellRowReadsTheSpareRowAsUnseen) {
    const string seen = "40 40 256 0";
    std::vector<unsigned char> in(8 * 16 * 16, 90), out(16 * 16 * 3 / 2, 7);
    ASSERT_EQ(Init(Table(5, 2, true, seen), Table(3, 3, false), kSettings), 0);
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_NE(out[7 * 16], 7);  // cell row 0 renders
    EXPECT_EQ(out[8 * 16], 7);  // cell row 1 would need node row 2

    const string fullRoom = Edit(Edit(Table(5, 5, true, seen), "ROIStartY: 0", "ROIStartY: 32"),
                                 "ROIEndY: 15", "ROIEndY: 47");
    std::fill(out.begin(), out.end(), 7);
    ASSERT_EQ(Init(fullRoom, Table(3, 3, false), kSettings), 0);
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), 7), static_cast<long>(out.size()));
}

TEST_F(Config, CamerasSitBackToBackAndReInitRestarts) {
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), kSettings), 0);
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), kSettings, 1280, 720), 0);  // no leak
    std::vector<unsigned char> in(7372800), out(16 * 16 * 3 / 2);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(i % 251);
    std::fill(gain, gain + 12, 900);
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_EQ(YUVarray[2][0], in[3686400]);
    EXPECT_EQ(YUVarray[2][1280 * 720], in[3686401]);
    EXPECT_EQ(YUVarray[3][1], in[3 * 1843200 + 2]);
    EXPECT_EQ(gain_cur[5], gain[5]);  // Spd 1: the fitted values are used as they are
    EXPECT_EQ(g_iter, 1);
}

}  // namespace
