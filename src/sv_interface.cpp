// Global state, the three configuration readers and the frame cycle.
#include "sv_interface.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "img_fmt_trans.h"
#include "log.h"
#include "pipe/calib_GT.h"
#include "pipe/calib_enhanced.h"
#include "pipe/data_processing.h"
#include "workers.h"

int WidthIn = 0;
int HeightIn = 0;
int OutW = 1280;
int OutH = 800;
int STATW = 128;
int STATH = 168;
int g_iter = 0;
unsigned char* YUVarray[4] = {nullptr, nullptr, nullptr, nullptr};

int gain[12] = {};
int tcurve[36] = {};
int gain_cur[12] = {1024, 1024, 1024, 1024, 1024, 1024,
                    1024, 1024, 1024, 1024, 1024, 1024};
int tcurve_cur[36] = {64, 128, 192, 64, 128, 192, 64, 128, 192,
                      64, 128, 192, 64, 128, 192, 64, 128, 192,
                      64, 128, 192, 64, 128, 192, 64, 128, 192,
                      64, 128, 192, 64, 128, 192, 64, 128, 192};

tag_CtrlPara Parameter = {};
tag_StatPara ParaStat = {};

int g_hfreq = 1;
unsigned char g_VL = 8;
unsigned char g_VH = 248;
int g_rto = 14;
int g_TolL = 16;
int g_TolH = 128;
int g_DS = 4;
int g_nData = 4;
float g_beta = 0.1f;
int g_bdr = 4;
int g_bdh = 16;
float g_mgn = 0.05f;
int g_S = 1;
int g_fitMode = 0;

namespace {

// Set by a successful sv_init, cleared when the buffers go away.
bool s_ready = false;
// Whether the latest calibration was the enhanced one: what it keeps from
// earlier calibrations is void after any other.
bool s_enhancedLast = false;

// The contiguous image that a strided output is composed in: the renderer
// knows one stride, and pixels no camera covers must keep the caller's
// bytes, so the caller's rows go in first and come back out after.
std::vector<unsigned char> s_staging;


const int kMaxOutW = 4096;     // the composition's column walk and chroma cache
const int kMaxInterval = 15;   // node spacing up to 32768 pixels
// Each side of the cameras and the output: keeps the table room and the
// frame buffers that sv_init sets up proportional to a real rig.
const int kMaxSide = 8192;
static_assert(8LL * kMaxSide * kMaxSide <= INT_MAX && 3LL * kMaxOutW * kMaxSide <= INT_MAX,
              "frame buffers must stay indexable with int");
// Each side of the statistics image: its eight sample planes stay near
// 25 MB and one calibration's walk near a million positions.
const int kMaxStatSide = 2048;
// 255 * ThresRatio, the consistency test's product, must fit in int.
const int kMaxThresRatio = INT_MAX / 255;

// ---- Text files -----------------------------------------------------------

// Reads the whole stream into one zero-terminated buffer and blanks every
// "#" comment up to (not including) its line feed. Null when the file cannot
// be measured or read; the stream is closed either way.
std::unique_ptr<char[]> LoadText(FILE* f) {
    std::unique_ptr<char[]> text;
    long len = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) len = std::ftell(f);
    if (len >= 0 && len < INT_MAX && std::fseek(f, 0, SEEK_SET) == 0)
        text.reset(new (std::nothrow) char[len + 1]);
    if (text) {
        const size_t got = std::fread(text.get(), 1, static_cast<size_t>(len), f);
        if (std::ferror(f)) {
            text.reset();
        } else {
            text[got] = '\0';
            for (size_t i = 0; i < got; ++i)
                if (text[i] == '#')
                    for (; i < got && text[i] != '\n'; ++i) text[i] = ' ';
        }
    }
    std::fclose(f);
    return text;
}

// Scalar entries: the first occurrence of the tag anywhere in the text,
// scanned right after it ("%d" and "%f" skip the white space that the
// formats "Tag: %d" and "Key=%d" allow). A value that does not parse leaves
// the destination alone.
struct TagScanner {
    const char* text;
    const char* kind;  // "control" or "parameter", as the messages name it
    bool ok;

    const char* Find(const char* tag) {
        const char* at = std::strstr(text, tag);
        if (at) return at + std::strlen(tag);
        svc::Log("error! miss %.*s tag in %s file\n",
                    static_cast<int>(std::strlen(tag)) - 1, tag, kind);
        ok = false;
        return nullptr;
    }
    void Scan(const char* tag, int& dst) {
        if (const char* v = Find(tag)) std::sscanf(v, "%d", &dst);
    }
    void Scan(const char* tag, float& dst) {
        if (const char* v = Find(tag)) std::sscanf(v, "%f", &dst);
    }
};

// ---- Mesh tables ----------------------------------------------------------

const char kSeparators[] = " ,;{}\t\n";

// strtok's splitting (runs of separators collapse, tokens cut in place)
// without its hidden global cursor. Null once the text has ended.
char* NextToken(char*& cursor) {
    char* tok = cursor + std::strspn(cursor, kSeparators);
    if (*tok == '\0') {
        cursor = tok;
        return nullptr;
    }
    char* end = tok + std::strcspn(tok, kSeparators);
    cursor = *end ? end + 1 : end;
    *end = '\0';
    return tok;
}

// Reads tmp.size() values from consecutive tokens (leading digits of each
// token count, a token that does not parse gives 0) and copies them to dst
// only when the text held them all. tok is left on the token after the last
// value.
bool ReadValues(char*& tok, char*& cursor, std::vector<int>& tmp, int* dst) {
    std::fill(tmp.begin(), tmp.end(), 0);
    for (int& v : tmp) {
        if (!tok) return false;
        std::sscanf(tok, "%d", &v);
        tok = NextToken(cursor);
    }
    std::copy(tmp.begin(), tmp.end(), dst);
    return true;
}

// Room is counted in nodes: (size / 8 + 3) per direction, as sv_init
// allocates it. 64-bit so that a host-set size cannot overflow.
long long RoomNodes(int size) { return static_cast<long long>(size) / 8 + 3; }

// The composition admits the last cell row, whose lower corners lie one node
// row past the table, and a row's first cell may reach one node past the
// row. Twice the room (a table never has more nodes per row than the room
// holds) plus one node keeps those reads inside the array; it is filled with
// unseen nodes, so they render nothing.
long long AllocatedNodes(int w, int h) { return 2 * RoomNodes(w) * RoomNodes(h) + 1; }

bool NoStorage(const char* kind) {
    svc::Log("error! no storage for TB1 and TB2 in %s file\n", kind);
    return false;
}

// Reads the "TB1:" and "TB2:" sections into tb1 and tb2, refusing a node
// count that is not positive or does not fit the room.
bool ReadMeshTables(char* text, int tableW, int tableH, int roomW, int roomH,
                    const char* kind, int* tb1, int* tb2) {
    const long long nodes = static_cast<long long>(tableW) * tableH;
    if (tableW <= 0 || tableH <= 0) {
        svc::Log("error! TableWidth x TableHeight (%d x %d) is not a positive node count in %s file\n",
                    tableW, tableH, kind);
        return false;
    }
    if (nodes > RoomNodes(roomW) * RoomNodes(roomH) || nodes > INT_MAX / 4) {
        svc::Log("error! TableWidth x TableHeight (%d x %d) exceeds the %lld x %lld nodes allocated in %s file\n",
                    tableW, tableH, RoomNodes(roomW), RoomNodes(roomH), kind);
        return false;
    }
    if (!tb1 || !tb2) return NoStorage(kind);
    std::vector<int> tmp(static_cast<size_t>(nodes) * 4);
    char* cursor = nullptr;
    char* tok = nullptr;
    bool ok = false;
    if (char* at = std::strstr(text, "TB1:")) {
        // The header is "TB1:" plus three characters of any kind.
        cursor = at + std::min<size_t>(7, std::strlen(at));
        tok = NextToken(cursor);
        ok = ReadValues(tok, cursor, tmp, tb1);
    }
    if (!ok) {
        svc::Log("error! TB1 tag in control file\n");
        tok = nullptr;
    }
    // The token after the TB1 values stands for the "TB2:" header.
    if (tok) tok = NextToken(cursor);
    if (!ReadValues(tok, cursor, tmp, tb2)) {
        svc::Log("error! TB2 tag in control file\n");
        ok = false;
    }
    return ok;
}

std::unique_ptr<char[]> OpenTable(FILE* f) {
    std::unique_ptr<char[]> text = f ? LoadText(f) : nullptr;
    if (!text) svc::Log("Load table file error!\n");
    return text;
}

// ---- sv_init checks -------------------------------------------------------

bool EvenPositive(int w, int h) { return w > 0 && h > 0 && w % 2 == 0 && h % 2 == 0; }

// Sizes the frame cycle can run with: even (the conversion walks pixel
// pairs), an output no wider than the composition's cache, and sides of at
// most kMaxSide, which also keeps every buffer size and offset within 32
// bits (8 x 8192 x 8192 bytes of camera frames).
bool SizesUsable(int wIn, int hIn, int outW, int outH) {
    bool ok = true;
    if (!EvenPositive(wIn, hIn)) {
        svc::Log("error! camera size %d x %d is not positive and even\n", wIn, hIn);
        ok = false;
    } else if (wIn > kMaxSide || hIn > kMaxSide) {
        svc::Log("error! camera size %d x %d above %d per side\n", wIn, hIn, kMaxSide);
        ok = false;
    }
    if (!EvenPositive(outW, outH)) {
        svc::Log("error! output size %d x %d is not positive and even\n", outW, outH);
        ok = false;
    } else if (outW > kMaxOutW) {
        svc::Log("error! output width %d above %d\n", outW, kMaxOutW);
        ok = false;
    } else if (outH > kMaxSide) {
        svc::Log("error! output height %d above %d\n", outH, kMaxSide);
        ok = false;
    }
    return ok;
}

// Both tables interpolate with one shift for both directions.
bool IntervalsUsable(int ix, int iy, const char* kind) {
    if (ix != iy) {
        svc::Log("error! IntervalX %d differs from IntervalY %d in %s file\n", ix, iy, kind);
        return false;
    }
    if (ix < 0 || ix > kMaxInterval) {
        svc::Log("error! IntervalX %d outside 0..%d in %s file\n", ix, kMaxInterval, kind);
        return false;
    }
    return true;
}

// The walk samples the image through the tables: rows and columns beyond
// the last node plus one cell would only repeat the border, at any cost.
bool StatImageUsable(const tag_StatPara& p) {
    bool ok = true;
    const long long spanW = static_cast<long long>(p.TableWidth) << p.IntervalX;
    const long long spanH = static_cast<long long>(p.TableHeight) << p.IntervalY;
    if (p.OutImgWidth > spanW || p.OutImgHeight > spanH) {
        svc::Log("error! OutImgWidth x OutImgHeight (%d x %d) exceeds the %lld x %lld the tables span in statistics file\n",
                    p.OutImgWidth, p.OutImgHeight, spanW, spanH);
        ok = false;
    }
    if (p.OutImgWidth > kMaxStatSide || p.OutImgHeight > kMaxStatSide) {
        svc::Log("error! OutImgWidth x OutImgHeight (%d x %d) above %d per side in statistics file\n",
                    p.OutImgWidth, p.OutImgHeight, kMaxStatSide);
        ok = false;
    }
    return ok;
}

bool AtLeast(int value, int low, const char* name, const char* kind) {
    if (value >= low) return true;
    svc::Log("error! %s %d below %d in %s file\n", name, value, low, kind);
    return false;
}

bool ControlUsable(const tag_CtrlPara& p) {
    bool ok = AtLeast(p.ZoomFactorX, 1, "ZoomFactorX", "control");
    ok = AtLeast(p.ZoomFactorY, 1, "ZoomFactorY", "control") && ok;
    ok = AtLeast(p.ROIStartX, 0, "ROIStartX", "control") && ok;
    ok = AtLeast(p.ROIStartY, 0, "ROIStartY", "control") && ok;
    return IntervalsUsable(p.IntervalX, p.IntervalY, "control") && ok;
}

// Both divide in the frame cycle.
bool SettingsUsable() {
    bool ok = AtLeast(g_hfreq, 1, "StatFreq", "parameter");
    ok = AtLeast(g_S, 1, "Spd", "parameter") && ok;
    if (g_rto < -kMaxThresRatio || g_rto > kMaxThresRatio) {
        svc::Log("error! ThresRatio %d outside -%d..%d in parameter file\n", g_rto,
                    kMaxThresRatio, kMaxThresRatio);
        ok = false;
    }
    return ok;
}

int Rejected(const char* path) {
    svc::Log("Read setting file %s error!\n", path ? path : "(null)");
    return -1;
}

int OutOfMemory() {
    svc::Log("error! out of memory in sv_init\n");
    return -1;
}

bool AllocTables(int*& tb1, int*& tb2, int w, int h) {
    const size_t n = static_cast<size_t>(AllocatedNodes(w, h)) * 4;
    tb1 = new (std::nothrow) int[n];
    tb2 = new (std::nothrow) int[n];
    if (!tb1 || !tb2) return false;
    // Negative SrcX/SrcY: whatever the file does not fill is never sampled.
    std::fill(tb1, tb1 + n, -1);
    std::fill(tb2, tb2 + n, -1);
    return true;
}

template <typename T>
void Release(T*& p) {
    delete[] p;
    p = nullptr;
}

void ReleaseBuffers() {
    Release(Parameter.TB1);
    Release(Parameter.TB2);
    Release(ParaStat.TB1);
    Release(ParaStat.TB2);
    for (unsigned char*& image : YUVarray) Release(image);
    std::vector<unsigned char>().swap(s_staging);
    s_ready = false;
}

// cur moves 1/S of the way to target, rounding halves up:
// (cur * (S - 1) + target + S / 2) / S, truncating toward zero. The 64-bit
// intermediate only matters where 32 bits would overflow.
void Blend(int* cur, const int* target, int count, int S) {
    for (int i = 0; i < count; ++i)
        cur[i] = static_cast<int>((static_cast<long long>(cur[i]) * (S - 1) + target[i] + S / 2) / S);
}

}  // namespace

int fopen_s(FILE** stream, const char* path, const char* mode) {
    if (stream) *stream = path && mode ? std::fopen(path, mode) : nullptr;
    return 0;
}

bool ReadInTable(char* path, tag_CtrlPara* record) {
    std::unique_ptr<char[]> text = OpenTable(path ? std::fopen(path, "r") : nullptr);
    if (!text) return false;
    if (!record) return NoStorage("control");
    static const struct {
        const char* tag;
        int tag_CtrlPara::*field;
    } kTags[] = {
        {"OutImgWidth:", &tag_CtrlPara::OutImgWidth}, {"OutImgHeight:", &tag_CtrlPara::OutImgHeight},
        {"DispCoorY:", &tag_CtrlPara::DispCoorY},     {"DispCoorX:", &tag_CtrlPara::DispCoorX},
        {"ROIStartY:", &tag_CtrlPara::ROIStartY},     {"ROIEndY:", &tag_CtrlPara::ROIEndY},
        {"ROIStartX:", &tag_CtrlPara::ROIStartX},     {"ROIEndX:", &tag_CtrlPara::ROIEndX},
        {"ZoomFactorY:", &tag_CtrlPara::ZoomFactorY}, {"ZoomFactorX:", &tag_CtrlPara::ZoomFactorX},
        {"TableWidth:", &tag_CtrlPara::TableWidth},   {"TableHeight:", &tag_CtrlPara::TableHeight},
        {"IntervalX:", &tag_CtrlPara::IntervalX},     {"IntervalY:", &tag_CtrlPara::IntervalY},
        {"L1:", &tag_CtrlPara::L1}, {"L2:", &tag_CtrlPara::L2},
        {"H1:", &tag_CtrlPara::H1}, {"H2:", &tag_CtrlPara::H2},
    };
    TagScanner s{text.get(), "control", true};
    for (const auto& t : kTags) s.Scan(t.tag, record->*t.field);
    const bool tables = ReadMeshTables(text.get(), record->TableWidth, record->TableHeight,
                                       OutW, OutH, "control", record->TB1, record->TB2);
    return tables && s.ok;
}

bool ReadInTable(char* path, tag_StatPara* record) {
    FILE* f = nullptr;
    fopen_s(&f, path, "r");
    std::unique_ptr<char[]> text = OpenTable(f);
    if (!text) return false;
    if (!record) return NoStorage("statistics");
    // The statistics file reports missing tags in the control file's words.
    TagScanner s{text.get(), "control", true};
    s.Scan("OutImgWidth:", record->OutImgWidth);
    s.Scan("OutImgHeight:", record->OutImgHeight);
    s.Scan("TableWidth:", record->TableWidth);
    s.Scan("TableHeight:", record->TableHeight);
    s.Scan("IntervalX:", record->IntervalX);
    s.Scan("IntervalY:", record->IntervalY);
    const bool tables = ReadMeshTables(text.get(), record->TableWidth, record->TableHeight,
                                       STATW, STATH, "statistics", record->TB1, record->TB2);
    return tables && s.ok;
}

namespace {

// The setting file's text, or null after "Load setting file error!".
std::unique_ptr<char[]> LoadSettingText(const char* path) {
    FILE* f = nullptr;
    fopen_s(&f, path, "r");
    std::unique_ptr<char[]> text = f ? LoadText(f) : nullptr;
    if (!text) svc::Log("Load setting file error!\n");
    return text;
}

bool ScanSettings(const char* text, int& StatFreq, unsigned char& StatL,
                  unsigned char& StatH, int& ThresRatio, int& ThresL, int& ThresH,
                  int& DSIntvl, int& nDataL, float& beta, int& tcRatio, int& tcH,
                  float& gMgn, int& Spd) {
    TagScanner s{text, "parameter", true};
    // StatL and StatH share one temporary and keep its low 8 bits.
    int level = 0;
    auto scanLevel = [&](const char* key, unsigned char& dst) {
        if (const char* v = s.Find(key))
            if (std::sscanf(v, "%d", &level) == 1) dst = static_cast<unsigned char>(level & 0xFF);
    };
    s.Scan("StatFreq=", StatFreq);
    scanLevel("StatL=", StatL);
    scanLevel("StatH=", StatH);
    s.Scan("ThresRatio=", ThresRatio);
    s.Scan("ThresL=", ThresL);
    s.Scan("ThresH=", ThresH);
    s.Scan("DSIntvl=", DSIntvl);
    s.Scan("nDataL=", nDataL);
    s.Scan("beta=", beta);
    s.Scan("DSIntvl=", DSIntvl);  // read twice on purpose
    s.Scan("tcRatio=", tcRatio);
    s.Scan("tcH=", tcH);
    s.Scan("gMgn=", gMgn);
    s.Scan("Spd=", Spd);
    return s.ok;
}

// The optional key: absent means CalibGT's fit, anything but 0 or 1
// fails the file.
bool ScanFitMode(const char* text, int& FitMode) {
    const char* at = std::strstr(text, "FitMode=");
    int mode = 0;
    if (at && std::sscanf(at + std::strlen("FitMode="), "%d", &mode) != 1) {
        svc::Log("error! FitMode is not a number in parameter file\n");
        return false;
    }
    if (mode != 0 && mode != 1) {
        svc::Log("error! FitMode %d outside 0..1 in parameter file\n", mode);
        return false;
    }
    FitMode = mode;
    return true;
}

}  // namespace

bool ReadInSetting(char* path, int& StatFreq, unsigned char& StatL,
                   unsigned char& StatH, int& ThresRatio, int& ThresL,
                   int& ThresH, int& DSIntvl, int& nDataL, float& beta,
                   int& tcRatio, int& tcH, float& gMgn, int& Spd) {
    std::unique_ptr<char[]> text = LoadSettingText(path);
    return text && ScanSettings(text.get(), StatFreq, StatL, StatH, ThresRatio, ThresL, ThresH,
                                DSIntvl, nDataL, beta, tcRatio, tcH, gMgn, Spd);
}

bool ReadInSetting(char* path, int& StatFreq, unsigned char& StatL,
                   unsigned char& StatH, int& ThresRatio, int& ThresL,
                   int& ThresH, int& DSIntvl, int& nDataL, float& beta,
                   int& tcRatio, int& tcH, float& gMgn, int& Spd, int& FitMode) {
    std::unique_ptr<char[]> text = LoadSettingText(path);
    if (!text) return false;
    const bool ok = ScanSettings(text.get(), StatFreq, StatL, StatH, ThresRatio, ThresL, ThresH,
                                 DSIntvl, nDataL, beta, tcRatio, tcH, gMgn, Spd);
    return ScanFitMode(text.get(), FitMode) && ok;
}

extern "C" int sv_init(const char* ctrlPath, const char* statPath,
                       const char* settingPath, int widthIn, int heightIn,
                       int outW, int outH) {
    ReleaseBuffers();  // a repeated sv_init must not leak the previous run
    if (!SizesUsable(widthIn, heightIn, outW, outH)) return -1;
    WidthIn = widthIn;
    HeightIn = heightIn;
    OutW = outW;
    OutH = outH;
    STATW = 128;
    STATH = 168;

    if (!AllocTables(Parameter.TB1, Parameter.TB2, OutW, OutH)) return OutOfMemory();
    if (!ReadInTable(const_cast<char*>(ctrlPath), &Parameter) || !ControlUsable(Parameter))
        return Rejected(ctrlPath);

    if (!AllocTables(ParaStat.TB1, ParaStat.TB2, STATW, STATH)) return OutOfMemory();
    if (!ReadInTable(const_cast<char*>(statPath), &ParaStat) ||
        !IntervalsUsable(ParaStat.IntervalX, ParaStat.IntervalY, "statistics") ||
        !StatImageUsable(ParaStat))
        return Rejected(statPath);

    if (!ReadInSetting(const_cast<char*>(settingPath), g_hfreq, g_VL, g_VH, g_rto, g_TolL,
                       g_TolH, g_DS, g_nData, g_beta, g_bdr, g_bdh, g_mgn, g_S, g_fitMode) ||
        !SettingsUsable())
        return Rejected(settingPath);

    for (unsigned char*& image : YUVarray) {
        image = new (std::nothrow) unsigned char[(WidthIn * HeightIn * 3) / 2];
        if (!image) return OutOfMemory();
    }
    g_iter = 0;
    s_ready = true;
    return 0;
}

namespace {

// The four conversions; with helper threads each camera is cut into bands
// of row pairs, which give the same bytes as whole frames.
struct ConvertJob {
    const unsigned char* cam[4];
    ptrdiff_t stride[4];  // bytes from one packed row to the next
    int bands;
};

void ConvertBand(void* ctx, int part) {
    const ConvertJob& job = *static_cast<const ConvertJob*>(ctx);
    const int cam = part / job.bands, band = part % job.bands, pairs = HeightIn / 2;
    svc::ConvertYuyvToNv12RowsStrided(job.cam[cam], job.stride[cam], YUVarray[cam], WidthIn,
                                      HeightIn, 2 * (pairs * band / job.bands),
                                      2 * (pairs * (band + 1) / job.bands));
}

void ConvertCameras(ConvertJob& job) {
    job.bands = svc::WorkerThreads();
    svc::RunParts(4 * job.bands, ConvertBand, &job);
}

void ConvertCameras(const unsigned char* input) {
    if (svc::WorkerThreads() == 1) {
        const int frameBytes = 2 * WidthIn * HeightIn;
        for (int k = 0; k < 4; ++k)
            YUYV_I420(reinterpret_cast<char*>(const_cast<unsigned char*>(input) + k * frameBytes),
                      reinterpret_cast<char*>(YUVarray[k]), WidthIn, HeightIn, 3, 1);
        return;
    }
    const size_t frameBytes = 2 * static_cast<size_t>(WidthIn) * HeightIn;
    ConvertJob job = {};
    for (int k = 0; k < 4; ++k) job.cam[k] = input + k * frameBytes, job.stride[k] = 2 * WidthIn;
    ConvertCameras(job);
}

// What both frame calls check before touching anything.
bool CycleReady(const char* fn) {
    if (!s_ready) {
        svc::Log("error! %s called without a successful sv_init\n", fn);
        return false;
    }
    return true;
}

// The settings are exported globals; a host may have changed them.
bool SettingsRunnable() {
    if (g_hfreq < 1 || g_S < 1) {
        svc::Log("error! StatFreq %d and Spd %d must be at least 1\n", g_hfreq, g_S);
        return false;
    }
    if (g_fitMode != 0 && g_fitMode != 1) {
        svc::Log("error! FitMode %d must be 0 or 1\n", g_fitMode);
        return false;
    }
    return true;
}

// The cycle after the conversions: calibration, blend, composition.
void CalibrateAndRender(unsigned char* output) {
    if (g_iter - (g_iter / g_hfreq) * g_hfreq == 0) {
        if (g_fitMode == 1) {
            CalibEnhanced(YUVarray, WidthIn, HeightIn, ParaStat, Parameter, gain, tcurve, g_VL,
                          g_VH, g_rto, g_TolL, g_TolH, g_nData, g_bdr, g_bdh,
                          g_iter == 0 || !s_enhancedLast);
        } else {
            CalibGT(YUVarray, WidthIn, HeightIn, ParaStat, gain, tcurve, g_VL, g_VH, g_rto,
                    g_TolL, g_TolH, g_DS, g_nData, g_beta, g_bdr, g_bdh, g_mgn);
        }
        s_enhancedLast = g_fitMode == 1;
    }

    Blend(gain_cur, gain, 12, g_S);
    Blend(tcurve_cur, tcurve, 36, g_S);

    // 64: spacing of the tone-curve knots; 8: bits per sample.
    DataProcessing(YUVarray, WidthIn, HeightIn, output, OutW, OutH, &Parameter,
                   gain_cur, tcurve_cur, 64, 8);
    // Wraps instead of overflowing after 2^31 frames.
    g_iter = static_cast<int>(static_cast<unsigned>(g_iter) + 1u);
}

void CopyPlane(const unsigned char* src, ptrdiff_t srcStride, unsigned char* dst,
               ptrdiff_t dstStride, int rowBytes, int rows) {
    for (int r = 0; r < rows; ++r) std::memcpy(dst + r * dstStride, src + r * srcStride, rowBytes);
}

bool FrameArgsOk(const unsigned char* const* cam, const int* camStride, const unsigned char* outY,
                 int outYStride, const unsigned char* outUv, int outUvStride) {
    if (!cam || !camStride || !cam[0] || !cam[1] || !cam[2] || !cam[3] || !outY || !outUv) {
        svc::Log("error! sv_convert_frames needs four camera buffers, their strides and two output planes\n");
        return false;
    }
    const long long rowBytes = 2LL * WidthIn;
    for (int k = 0; k < 4; ++k) {
        if (camStride[k] < rowBytes) {
            svc::Log("error! sv_convert_frames: camera %d stride %d is less than a row of %lld bytes\n",
                        k, camStride[k], rowBytes);
            return false;
        }
        // Offsets into the frame must fit a pointer difference (armhf).
        if (static_cast<long long>(camStride[k]) * HeightIn > PTRDIFF_MAX) {
            svc::Log("error! sv_convert_frames: camera %d stride %d spans more than the address space\n",
                        k, camStride[k]);
            return false;
        }
    }
    const struct { int stride; const char* plane; } kOut[2] = {{outYStride, "luma"}, {outUvStride, "chroma"}};
    for (const auto& o : kOut)
        if (o.stride < OutW || static_cast<long long>(o.stride) * OutH > PTRDIFF_MAX) {
            svc::Log("error! sv_convert_frames: %s stride %d is not a row of %d bytes or more\n",
                        o.plane, o.stride, OutW);
            return false;
        }
    return true;
}

}  // namespace

extern "C" int sv_convert_image(unsigned char* input, int, unsigned char* output, int) {
    if (!CycleReady("sv_convert_image")) return 0;
    if (!input || !output) {
        svc::Log("error! sv_convert_image needs an input and an output buffer\n");
        return 0;
    }
    if (!SettingsRunnable()) return 0;
    ConvertCameras(input);
    CalibrateAndRender(output);
    return 0;
}

extern "C" int sv_convert_frames(const unsigned char* const cam[4], const int cam_stride[4],
                                 unsigned char* out_y, int out_y_stride, unsigned char* out_uv,
                                 int out_uv_stride) {
    if (!CycleReady("sv_convert_frames") ||
        !FrameArgsOk(cam, cam_stride, out_y, out_y_stride, out_uv, out_uv_stride) ||
        !SettingsRunnable())
        return -1;
    const size_t lumaBytes = static_cast<size_t>(OutW) * OutH;
    // A plain NV12 buffer needs no staging.
    const bool contiguous = out_y_stride == OutW && out_uv_stride == OutW &&
                            reinterpret_cast<uintptr_t>(out_uv) ==
                                reinterpret_cast<uintptr_t>(out_y) + lumaBytes;
    if (!contiguous && s_staging.size() != lumaBytes * 3 / 2) {
        s_staging.clear();
        s_staging.shrink_to_fit();
        try {
            s_staging.resize(lumaBytes * 3 / 2);
        } catch (const std::bad_alloc&) {
            svc::Log("error! out of memory in sv_convert_frames\n");
            return -1;
        }
    }
    ConvertJob job = {};
    for (int k = 0; k < 4; ++k) job.cam[k] = cam[k], job.stride[k] = cam_stride[k];
    ConvertCameras(job);
    if (contiguous) {
        CalibrateAndRender(out_y);
        return 0;
    }
    unsigned char* y = s_staging.data();
    unsigned char* uv = y + lumaBytes;
    CopyPlane(out_y, out_y_stride, y, OutW, OutW, OutH);
    CopyPlane(out_uv, out_uv_stride, uv, OutW, OutW, OutH / 2);
    CalibrateAndRender(y);
    CopyPlane(y, OutW, out_y, out_y_stride, OutW, OutH);
    CopyPlane(uv, OutW, out_uv, out_uv_stride, OutW, OutH / 2);
    return 0;
}

extern "C" int sv_set_threads(int n) {
    if (n < 0) {
        svc::Log("error! sv_set_threads needs 0 or more threads, not %d\n", n);
        return -1;
    }
    if (n == 0) n = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    svc::SetWorkerThreads(n);
    return svc::WorkerThreads();
}

extern "C" int sv_get_corrections(int* gainOut, int* tcurveOut) {
    if (!gainOut || !tcurveOut) {
        svc::Log("error! sv_get_corrections needs two arrays\n");
        return -1;
    }
    std::memcpy(gainOut, gain_cur, sizeof gain_cur);
    std::memcpy(tcurveOut, tcurve_cur, sizeof tcurve_cur);
    return 0;
}

extern "C" int sv_set_corrections(const int* gainIn, const int* tcurveIn) {
    if (!gainIn || !tcurveIn) {
        svc::Log("error! sv_set_corrections needs two arrays\n");
        return -1;
    }
    for (int i = 0; i < 12; ++i)
        if (gainIn[i] < 1 || gainIn[i] > 65535) {
            svc::Log("error! sv_set_corrections: gain %d is %d, outside 1..65535\n", i, gainIn[i]);
            return -1;
        }
    for (int i = 0; i < 36; ++i)
        if (tcurveIn[i] < 0 || tcurveIn[i] > 255) {
            svc::Log("error! sv_set_corrections: tone-curve level %d is %d, outside 0..255\n", i,
                        tcurveIn[i]);
            return -1;
        }
    // Target and state alike, so the blend does not pull back towards
    // whatever the previous fit left in the target.
    std::memcpy(gain_cur, gainIn, sizeof gain_cur);
    std::memcpy(gain, gainIn, sizeof gain);
    std::memcpy(tcurve_cur, tcurveIn, sizeof tcurve_cur);
    std::memcpy(tcurve, tcurveIn, sizeof tcurve);
    return 0;
}

extern "C" int sv_deinit(void) {
    ReleaseBuffers();
    return 0;
}
