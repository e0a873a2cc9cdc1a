#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
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

// Scalar tags of a table file for a 16 x 16 output; a statistics file has the first six.
string Header(int w, int h, bool control = true) {
    return "OutImgWidth: 16\nOutImgHeight: 16\nTableWidth: " + std::to_string(w) + "\nTableHeight: " +
           std::to_string(h) + "\nIntervalX: 3\nIntervalY: 3\n" +
           (control ? "DispCoorX: 0\nDispCoorY: 0\nROIStartX: 0\nROIStartY: 0\nROIEndX: 15\nROIEndY: 15\n"
                      "ZoomFactorX: 64\nZoomFactorY: 64\nL1: 100\nL2: 101\nH1: 100\nH2: 101\n"
                    : "");
}

// Every node alike; by default unseen, so nothing renders and the calibration gathers nothing.
string Table(int w, int h, bool control = true, const string& node = "-1 -1 256 0") {
    string nodes;
    for (int i = 0; i < w * h; ++i) nodes += node + ",\n";
    return Header(w, h, control) + "TB1:\n{\n" + nodes + "}\nTB2:\n{\n" + nodes + "}\n";
}

string Edit(string s, const string& from, const string& to) {
    const size_t at = s.find(from);
    EXPECT_NE(at, string::npos) << from;
    return at == string::npos ? s : s.replace(at, from.size(), to);
}

template <typename F>
string Printed(F f) { testing::internal::CaptureStdout(); f(); return testing::internal::GetCapturedStdout(); }

char* C(const string& s) { return const_cast<char*>(s.c_str()); }

// Every test starts from the process's initial state and its own folder.
class Config : public testing::Test {
protected:
    void SetUp() override {
        string tmpl = testing::TempDir() + "svXXXXXX";
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir_ = tmpl + "/";
        OutW = 1280, OutH = 800, STATW = 128, STATH = 168;
        for (int i = 0; i < 12; ++i) gain[i] = 0, gain_cur[i] = 1024;
        for (int i = 0; i < 36; ++i) tcurve[i] = 0, tcurve_cur[i] = 64 * (i % 3 + 1);
    }
    void TearDown() override { sv_deinit(); std::filesystem::remove_all(dir_); }
    string Write(const string& name, const string& text) { std::ofstream(dir_ + name) << text; return dir_ + name; }
    // sv_init on the three texts for a 16 x 16 output, with 16 x 16 cameras unless told otherwise.
    int Init(const string& ctrl, const string& stat, const string& set, int w = 16, int h = 16) {
        return sv_init(Write("c.txt", ctrl).c_str(), Write("s.txt", stat).c_str(),
                       Write("p.txt", set).c_str(), w, h, 16, 16);
    }
    string dir_;
};

struct Settings {
    int freq = -7, rto = -7, tl = -7, th = -7, ds = -7, nd = -7, bdr = -7, bdh = -7, spd = -7;
    unsigned char l = 7, h = 7;
    float beta = -7, mgn = -7;
    bool Read(const string& path) {
        return ReadInSetting(C(path), freq, l, h, rto, tl, th, ds, nd, beta, bdr, bdh, mgn, spd);
    }
};

TEST_F(Config, SettingFile) {
    Settings s, none;
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(s.Read(Write("p", kSettings))); }), "");
    EXPECT_EQ(std::vector<int>({s.freq, s.l, s.h, s.rto, s.tl, s.th, s.ds, s.nd, s.bdr, s.bdh, s.spd}),
              std::vector<int>({1, 8, 248, 14, 16, 128, 4, 4, 4, 16, 1}));
    EXPECT_EQ(std::make_pair(s.beta, s.mgn), std::make_pair(0.1f, 0.05f));
    string fourteen;
    for (const char* t : {"StatFreq", "StatL", "StatH", "ThresRatio", "ThresL", "ThresH", "DSIntvl",
                          "nDataL", "beta", "DSIntvl", "tcRatio", "tcH", "gMgn", "Spd"})
        fourteen += string("error! miss ") + t + " tag in parameter file\n";
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(none.Read(Write("p", ""))); }), fourteen);
    for (const string& path : {dir_ + "absent", dir_})
        EXPECT_EQ(Printed([&] { EXPECT_FALSE(none.Read(path)); }), "Load setting file error!\n");
    EXPECT_EQ(none.freq, -7);

    const char kMissFreq[] = "error! miss StatFreq tag in parameter file\n";
    const struct {
        const char *from, *to, *printed;
        int Settings::*field;  // or null for StatL / StatH
        int expected;
    } kCases[] = {
        {"Spd=1", "Spd=4 # slow", "", &Settings::spd, 4},
        {"StatFreq=1", "# StatFreq=5", kMissFreq, &Settings::freq, -7},
        {"StatFreq=1", "StatFreq = 5", kMissFreq, &Settings::freq, -7},
        {"StatFreq=1", "StatFreq= 5", "", &Settings::freq, 5},
        {"StatFreq=1", "Spd=6\nStatFreq=1", "", &Settings::spd, 6},
        {"StatL=8", "StatL=300", "", nullptr, 44},
        {"StatL=8", "StatL=-1", "", nullptr, 255},
        {"StatH=248", "StatH=x", "", nullptr, 7},
        {"DSIntvl=4", "", "error! miss DSIntvl tag in parameter file\n"
                          "error! miss DSIntvl tag in parameter file\n", &Settings::ds, -7}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.to);
        Settings e;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(e.Read(Write("p", Edit(kSettings, c.from, c.to))), !*c.printed); }),
                  c.printed);
        EXPECT_EQ(c.field ? e.*c.field : string(c.from) == "StatL=8" ? e.l : e.h, c.expected);
    }
}

TEST_F(Config, TableSections) {
    OutW = 16, OutH = 16;  // room: 5 x 5 nodes
    const char kNoTB2[] = "error! TB2 tag in control file\n";
    const char kNoTables[] = "error! TB1 tag in control file\nerror! TB2 tag in control file\n";
    const struct {
        const char* tables;  // everything from the TB1 header on
        int w, h;
        const char* printed;
        std::vector<int> first = {};  // TB1's first four values, then TB2's; -9 where untouched
    } kCases[] = {
        {"TB1:\n120 5 6 7 TB2: 1 2 3 4", 1, 1, "", {0, 5, 6, 7, 1, 2, 3, 4}},
        {"TB1:\n{\n1 2 3 4 5 TB2: 6 7 8", 1, 1, "", {1, 2, 3, 4, 0, 6, 7, 8}},
        {"TB1:\n{\n1 2 # 99\n3;4}\nTB2:{\n5,6,\t7 8}", 1, 1, "", {1, 2, 3, 4, 5, 6, 7, 8}},
        {"TB1:\n{\n1 2\r\n\r\n3 4 TB2: 5 6 7 8", 1, 1, "", {1, 2, 0, 3, 0, 5, 6, 7}},  // CR is no separator
        {"TB2: 1 2 3 4", 1, 1, kNoTables, {}},
        {"TB1:\n{\n1 2 3 4", 1, 1, kNoTB2, {1, 2, 3, 4}},
        {"TB1:\n{\n1 2 3", 1, 1, kNoTables, {}},
        {"TB1:\n{\n1 2 3 4 TB2: 5 6", 1, 1, kNoTB2, {1, 2, 3, 4}},
        {"TB1", 6, 5, "error! TableWidth x TableHeight (6 x 5) exceeds the 5 x 5 nodes allocated in control file\n"},
        {"TB1", 65536, 65536, "error! TableWidth x TableHeight (65536 x 65536) exceeds the 5 x 5 nodes allocated in control file\n"},
        {"TB1", 0, 3, "error! TableWidth x TableHeight (0 x 3) is not a positive node count in control file\n"}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.tables);
        std::vector<int> tb(200, -9), want = c.first;
        want.resize(8, -9);
        tag_CtrlPara rec{};
        rec.TB1 = tb.data(), rec.TB2 = tb.data() + 100;
        const string path = Write("c", Header(c.w, c.h) + c.tables);
        EXPECT_EQ(Printed([&] { EXPECT_EQ(ReadInTable(C(path), &rec), !*c.printed); }), c.printed);
        EXPECT_EQ((std::vector<int>{tb[0], tb[1], tb[2], tb[3], tb[100], tb[101], tb[102], tb[103]}), want);
    }
}

TEST_F(Config, TablesNameWhatIsMissingAndFillTheRoomExactly) {
    std::vector<int> c1(163 * 103 * 4), c2(c1.size()), s1(19 * 24 * 4), s2(s1.size());
    tag_CtrlPara ctrl{};
    ctrl.TB1 = c1.data(), ctrl.TB2 = c2.data();
    tag_StatPara stat{};
    stat.TB1 = s1.data(), stat.TB2 = s2.data();
    string all;
    for (const char* t : {"OutImgWidth", "OutImgHeight", "DispCoorY", "DispCoorX", "ROIStartY", "ROIEndY",
                          "ROIStartX", "ROIEndX", "ZoomFactorY", "ZoomFactorX", "TableWidth", "TableHeight",
                          "IntervalX", "IntervalY", "L1", "L2", "H1", "H2"})
        all += string("error! miss ") + t + " tag in control file\n";
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(ReadInTable(C(Write("c", "TB1:\n{\n1 2 3 4")), &ctrl)); }),
              all + "error! TableWidth x TableHeight (0 x 0) is not a positive node count in control file\n");
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(ReadInTable(C(dir_), &ParaStat)); }), "Load table file error!\n");

    EXPECT_TRUE(ReadInTable(C(Write("c", Table(163, 103, true, "1 2 3 4"))), &ctrl));
    EXPECT_TRUE(ReadInTable(C(Write("s", Table(19, 24, true, "5 6 7 8"))), &stat));
    EXPECT_EQ(c2.back() + s2.back(), 12);
    EXPECT_EQ(ctrl.ZoomFactorX + ctrl.ROIEndY + ctrl.L2 + ctrl.H1 + stat.IntervalY, 64 + 15 + 101 + 100 + 3);
    EXPECT_EQ(Printed([&] { ReadInTable(C(Write("s", Table(20, 24, false))), &stat); }),
              "error! TableWidth x TableHeight (20 x 24) exceeds the 19 x 24 nodes allocated in statistics file\n");
}

// A failed sv_init keeps the tables allocated so far, has no images, and may be released (twice, even).
TEST_F(Config, InitGuards) {
    const struct {
        int file;               // the text edited: 0 control, 1 statistics, 2 setting; -1 none
        const char *from, *to;  // a null from: the file does not exist
        const char* printed;
        int sizes[4] = {16, 16, 16, 16};
    } kCases[] = {
        {-1, "", "", "error! camera size 15 x 16 is not positive and even\n", {15, 16, 16, 16}},
        {-1, "", "", "error! camera size 32768 x 32768 above 8192 per side\n", {32768, 32768, 16, 16}},
        {-1, "", "", "error! camera size 16 x 8194 above 8192 per side\n", {16, 8194, 16, 16}},
        {-1, "", "", "error! output height 357913940 above 8192\n", {16, 16, 2, 357913940}},
        {-1, "", "", "error! output size 0 x 16 is not positive and even\n", {16, 16, 0, 16}},
        {-1, "", "", "error! output width 4098 above 4096\n", {16, 16, 4098, 16}},
        {0, nullptr, nullptr, "Load table file error!\n"},
        {0, "ZoomFactorX: 64", "ZoomFactorX: 0", "error! ZoomFactorX 0 below 1 in control file\n"},
        {0, "ROIStartY: 0", "ROIStartY: -2", "error! ROIStartY -2 below 0 in control file\n"},
        {0, "IntervalY: 3", "IntervalY: 4", "error! IntervalX 3 differs from IntervalY 4 in control file\n"},
        {0, "IntervalX: 3\nIntervalY: 3", "IntervalX: 16\nIntervalY: 16", "error! IntervalX 16 outside 0..15 in control file\n"},
        {0, "TableWidth: 3", "TableWidth: 9",
         "error! TableWidth x TableHeight (9 x 3) exceeds the 5 x 5 nodes allocated in control file\n"},
        {1, "IntervalY: 3", "", "error! miss IntervalY tag in control file\n"},
        {1, "IntervalX: 3", "IntervalX: 2", "error! IntervalX 2 differs from IntervalY 3 in statistics file\n"},
        {2, "StatFreq=1", "StatFreq=0", "error! StatFreq 0 below 1 in parameter file\n"},
        {2, "Spd=1", "Spd=-3", "error! Spd -3 below 1 in parameter file\n"},
        {2, "ThresRatio=14", "ThresRatio=8421505", "error! ThresRatio 8421505 outside -8421504..8421504 in parameter file\n"},
        {2, "ThresRatio=14", "ThresRatio=-8421505", "error! ThresRatio -8421505 outside -8421504..8421504 in parameter file\n"},
        {1, "OutImgWidth: 16", "OutImgWidth: 25",
         "error! OutImgWidth x OutImgHeight (25 x 16) exceeds the 24 x 24 the tables span in statistics file\n"},
        {1, "OutImgWidth: 16\nOutImgHeight: 16\nTableWidth: 3\nTableHeight: 3\nIntervalX: 3\nIntervalY: 3",
         "OutImgWidth: 18800\nOutImgHeight: 18800\nTableWidth: 2\nTableHeight: 2\nIntervalX: 14\nIntervalY: 14",
         "error! OutImgWidth x OutImgHeight (18800 x 18800) above 2048 per side in statistics file\n"}};
    const string texts[3] = {Table(3, 3), Table(3, 3, false), kSettings}, names[3] = {"c.txt", "s.txt", "p.txt"};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.printed);
        string paths[3];
        for (int i = 0; i < 3; ++i)
            paths[i] = i != c.file ? Write(names[i], texts[i])
                       : c.from    ? Write(names[i], Edit(texts[i], c.from, c.to))
                                   : dir_ + "absent";
        const auto [w, h, ow, oh] = c.sizes;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_init(C(paths[0]), C(paths[1]), C(paths[2]), w, h, ow, oh), -1); }),
                  c.printed + (c.file < 0 ? "" : "Read setting file " + paths[c.file] + " error!\n"));
        EXPECT_EQ(Parameter.TB1 != nullptr, c.file >= 0);
        EXPECT_EQ(ParaStat.TB1 != nullptr, c.file >= 1);
        EXPECT_TRUE(c.file < 1 || Parameter.TableWidth == 3);  // the control record stays
        EXPECT_EQ(YUVarray[0], nullptr);
        EXPECT_EQ(sv_deinit() + sv_deinit(), 0);
        EXPECT_EQ(Parameter.TB1, nullptr);
    }
}

// The bounds themselves are accepted.
TEST_F(Config, LimitsAreInclusive) {
    const string stat = Edit(Table(3, 3, false), "OutImgWidth: 16\nOutImgHeight: 16", "OutImgWidth: 24\nOutImgHeight: 24");
    for (const char* ratio : {"ThresRatio=8421504", "ThresRatio=-8421504"})
        EXPECT_EQ(Init(Table(3, 3), stat, Edit(kSettings, "ThresRatio=14", ratio), 16, 8192), 0) << ratio;
}

// A saved set comes back as both the state and the target, so a restart with
// Spd > 1 neither jumps nor drifts back; bad values change nothing.
TEST_F(Config, CorrectionsRoundTrip) {
    int g[12], t[36], back[12], backT[36];
    for (int i = 0; i < 12; ++i) g[i] = 900 + i;
    for (int i = 0; i < 36; ++i) t[i] = 60 * (i % 3 + 1) + i % 5;
    ASSERT_EQ(sv_set_corrections(g, t), 0);
    ASSERT_EQ(sv_get_corrections(back, backT), 0);
    EXPECT_TRUE(std::equal(g, g + 12, back) && std::equal(g, g + 12, gain));
    EXPECT_TRUE(std::equal(t, t + 36, backT) && std::equal(t, t + 36, tcurve));
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), Edit(Edit(kSettings, "Spd=1", "Spd=4"), "StatFreq=1", "StatFreq=1000"), 16, 16), 0);
    std::vector<unsigned char> in(8 * 16 * 16), out(16 * 16 * 3 / 2);
    sv_set_corrections(g, t);
    sv_convert_image(in.data(), 0, out.data(), 0);  // calibrates on nothing seen: the fit keeps its target
    sv_get_corrections(back, backT);
    EXPECT_TRUE(std::equal(g, g + 12, back));
    const struct { int at, value; const char* printed; } kBad[] = {
        {3, 0, "error! sv_set_corrections: gain 3 is 0, outside 1..65535\n"},
        {11, 65536, "error! sv_set_corrections: gain 11 is 65536, outside 1..65535\n"},
        {12 + 35, 256, "error! sv_set_corrections: tone-curve level 35 is 256, outside 0..255\n"},
        {12 + 0, -1, "error! sv_set_corrections: tone-curve level 0 is -1, outside 0..255\n"}};
    for (const auto& c : kBad) {
        int bg[12], bt[36];
        std::copy(g, g + 12, bg), std::copy(t, t + 36, bt);
        (c.at < 12 ? bg[c.at] : bt[c.at - 12]) = c.value;
        EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_set_corrections(bg, bt), -1); }), c.printed);
    }
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_set_corrections(nullptr, t), -1); }), "error! sv_set_corrections needs two arrays\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_get_corrections(back, nullptr), -1); }), "error! sv_get_corrections needs two arrays\n");
    sv_get_corrections(back, backT);
    EXPECT_TRUE(std::equal(g, g + 12, back) && std::equal(t, t + 36, backT));
}

// Nothing runs before sv_init or after sv_deinit; a re-init without sv_deinit restarts the count.
TEST_F(Config, FrameCycle) {
    std::vector<unsigned char> in(7372800), out(16 * 16 * 3 / 2, 7);
    const string notReady = "error! sv_convert_image called without a successful sv_init\n";
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sv_convert_image(in.data(), 0, out.data(), 0), 0); }), notReady);
    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), Edit(Edit(kSettings, "Spd=1", "Spd=4"), "StatFreq=1", "StatFreq=1000")), 0);
    EXPECT_EQ(Printed([&] { sv_convert_image(nullptr, 0, out.data(), 0); }),
              "error! sv_convert_image needs an input and an output buffer\n");
    EXPECT_EQ(sv_convert_image(in.data(), 0, out.data(), 0), 0);  // frame 0 calibrates
    EXPECT_EQ(out, std::vector<unsigned char>(out.size(), 7));     // every node unseen
    // A quarter of the way, rounded to nearest: 1102 lands on 1044 only with
    // the + Spd / 2 term; (0 * 3 - 4 + 2) / 4 truncates toward zero to 0,
    // where a floor would give -1.
    for (int i = 0; i < 12; ++i) gain[i] = i < 6 ? 1100 : 1102, gain_cur[i] = 1024;
    for (int i = 0; i < 36; ++i) tcurve[i] = -4, tcurve_cur[i] = 0;
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_EQ(gain_cur[0], 1043);
    EXPECT_EQ(gain_cur[11], 1044);
    EXPECT_EQ(tcurve_cur[0], 0);
    EXPECT_EQ(g_iter, 2);

    ASSERT_EQ(Init(Table(3, 3), Table(3, 3, false), kSettings, 1280, 720), 0);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<unsigned char>(i % 251);
    std::fill(gain, gain + 12, 900);
    sv_convert_image(in.data(), 0, out.data(), 0);
    EXPECT_EQ((std::vector<unsigned char>{YUVarray[2][0], YUVarray[2][1280 * 720], YUVarray[3][1]}),
              (std::vector<unsigned char>{in[3686400], in[3686401], in[3 * 1843200 + 2]}));
    EXPECT_EQ(gain_cur[5], gain[5]);  // Spd 1: the fitted values are used as they are
    EXPECT_EQ(g_iter, 1);
    sv_deinit();
    EXPECT_EQ(Printed([&] { sv_convert_image(in.data(), 0, out.data(), 0); }), notReady);
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

}  // namespace
