#include "rig/frames.h"

#include <charconv>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "pipe/data_processing.h"

namespace rig {

void bgr_to_yuyv(const cv::Mat& bgr, uint8_t* dst) {
    CV_Assert(bgr.type() == CV_8UC3 && bgr.cols % 2 == 0);
    for (int y = 0; y < bgr.rows; ++y) {
        const uint8_t* p = bgr.ptr<uint8_t>(y);
        uint8_t* d = dst + size_t(y) * bgr.cols * 2;
        for (int x = 0; x < bgr.cols; x += 2, p += 6, d += 4) {
            int y0, u0, v0, y1, u1, v1;
            RGB2YUV(p[2], p[1], p[0], y0, u0, v0, 8, 8);
            RGB2YUV(p[5], p[4], p[3], y1, u1, v1, 8, 8);
            d[0] = uint8_t(y0);
            d[1] = uint8_t((u0 + u1 + 1) >> 1);  // mean, halves up
            d[2] = uint8_t(y1);
            d[3] = uint8_t((v0 + v1 + 1) >> 1);
        }
    }
}

cv::Mat yuyv_to_bgr(const uint8_t* src, int w, int h) {
    cv::Mat bgr(h, w, CV_8UC3);
    for (int y = 0; y < h; ++y) {
        const uint8_t* s = src + size_t(y) * w * 2;
        uint8_t* p = bgr.ptr<uint8_t>(y);
        for (int x = 0; x < w; x += 2, s += 4, p += 6) {
            int r, g, b;
            YUV2RGB(s[0], s[1], s[3], r, g, b, 8, 8);
            p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
            YUV2RGB(s[2], s[1], s[3], r, g, b, 8, 8);
            p[3] = uint8_t(b), p[4] = uint8_t(g), p[5] = uint8_t(r);
        }
    }
    return bgr;
}

void bgr_to_nv12(const cv::Mat& bgr, uint8_t* dst) {
    CV_Assert(bgr.type() == CV_8UC3 && bgr.cols % 2 == 0 && bgr.rows % 2 == 0);
    const int w = bgr.cols;
    uint8_t* chroma = dst + size_t(w) * bgr.rows;
    for (int y = 0; y < bgr.rows; ++y) {
        const uint8_t* p = bgr.ptr<uint8_t>(y);
        uint8_t* luma = dst + size_t(y) * w;
        uint8_t* uv = chroma + size_t(y / 2) * w;
        for (int x = 0; x < w; ++x, p += 3) {
            int Y, U, V;
            RGB2YUV(p[2], p[1], p[0], Y, U, V, 8, 8);
            luma[x] = uint8_t(Y);
            if ((x | y) % 2 == 0) {
                uv[x] = uint8_t(U);
                uv[x + 1] = uint8_t(V);
            }
        }
    }
}

cv::Mat nv12_to_bgr(const uint8_t* src, int w, int h) {
    cv::Mat bgr(h, w, CV_8UC3);
    const uint8_t* chroma = src + size_t(w) * h;
    for (int y = 0; y < h; ++y) {
        const uint8_t* luma = src + size_t(y) * w;
        const uint8_t* uv = chroma + size_t(y / 2) * w;
        uint8_t* p = bgr.ptr<uint8_t>(y);
        for (int x = 0; x < w; ++x, p += 3) {
            const int c = x & ~1;
            int r, g, b;
            YUV2RGB(luma[x], uv[c], uv[c + 1], r, g, b, 8, 8);
            p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r);
        }
    }
    return bgr;
}

bool check_file(const std::string& path, std::string& err) {
    std::error_code ec;
    const auto st = std::filesystem::status(path, ec);
    if (std::filesystem::exists(st) && !std::filesystem::is_directory(st)) return true;
    err = "cannot read " + path +
          (std::filesystem::is_directory(st) ? ": is a directory" : ": no such file");
    return false;
}

std::string size_text(cv::Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

bool parse_size(const std::string& text, cv::Size& size) {
    // from_chars reports overflow, where sscanf's %d would wrap silently.
    int w = 0, h = 0;
    const char* end = text.data() + text.size();
    const auto a = std::from_chars(text.data(), end, w);
    if (a.ec != std::errc() || a.ptr == end || *a.ptr != 'x') return false;
    const auto b = std::from_chars(a.ptr + 1, end, h);
    if (b.ec != std::errc() || b.ptr != end || w <= 0 || h <= 0) return false;
    size = cv::Size(w, h);
    return true;
}

RawFrameSetReader::~RawFrameSetReader() {
    if (file_ && file_ != stdin) std::fclose(file_);
}

bool RawFrameSetReader::open(const std::string& path, int w, int h,
                             std::string& err) {
    bytes_ = frame_set_bytes(w, h);
    name_ = path == "-" ? "stdin" : path;
    if (path == "-") {
        file_ = stdin;
        frames_ = -1;
        return true;
    }
    if (!check_file(path, err)) return false;
    std::error_code ec;
    const bool stream = !std::filesystem::is_regular_file(path, ec);
    const auto size = stream ? 0 : std::filesystem::file_size(path, ec);
    if (!stream && size == 0) {
        err = path + " is empty";
        return false;
    }
    if (!stream && size % bytes_ != 0) {
        err = path + " is truncated: " + std::to_string(size) + " bytes is not a whole number of " +
              size_text({w, h}) + " frame sets (" + std::to_string(bytes_) + " bytes each)";
        return false;
    }
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) {
        err = "cannot read " + path;
        return false;
    }
    frames_ = stream ? -1 : long(size / bytes_);
    return true;
}

bool RawFrameSetReader::read(uint8_t* dst) {
    if (!file_) return false;
    const size_t got = std::fread(dst, 1, bytes_, file_);
    if (got != bytes_ && got > 0) partial_ = got;
    return got == bytes_;
}

std::string RawFrameSetReader::ending() const {
    if (!partial_) return "";
    return name_ + " ended inside a frame set: " + std::to_string(partial_) + " of " +
           std::to_string(bytes_) + " bytes";
}

bool write_png(const std::string& path, const cv::Mat& bgr, std::string& err) {
    // Encoded in memory: imwrite would choose the format by the name, and
    // the file is written under a temporary one.
    std::vector<uchar> png;
    bool ok = false;
    try {
        ok = cv::imencode(".png", bgr, png);
    } catch (const cv::Exception&) {
        ok = false;
    }
    if (!ok) {
        err = "cannot write " + path + ": cannot encode the image as PNG";
        return false;
    }
    return write_file(path, png.data(), png.size(), err);
}

bool write_text(const std::string& path, const std::string& text, std::string& err) {
    return write_file(path, text.data(), text.size(), err);
}

namespace {

uint32_t be32(const unsigned char* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Empty when the file is not a PNG or a complete one: its chunks, each with
// a length that fits the file and a correct CRC, up to IEND. Otherwise
// what is wrong with it.
std::string png_damage(const std::string& bytes) {
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (bytes.size() < 8 || std::memcmp(bytes.data(), kSignature, 8) != 0) return "";
    static const std::vector<uint32_t> table = [] {
        std::vector<uint32_t> t(256);
        for (uint32_t n = 0; n < 256; ++n) {
            uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = c & 1 ? 0xedb88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t at = 8;
    for (;;) {
        if (bytes.size() - at < 12) return "truncated PNG file";
        const uint32_t length = be32(p + at);
        if (length > bytes.size() - at - 12) return "truncated PNG file";
        uint32_t crc = 0xffffffffu;
        for (size_t i = at + 4; i < at + 8 + length; ++i) crc = table[(crc ^ p[i]) & 0xff] ^ (crc >> 8);
        if ((crc ^ 0xffffffffu) != be32(p + at + 8 + length)) return "damaged PNG file (CRC error)";
        if (std::memcmp(p + at + 4, "IEND", 4) == 0) return "";
        at += 12 + size_t(length);
    }
}

}  // namespace

bool read_image(const std::string& path, cv::Mat& bgr, std::string& err) {
    if (!check_file(path, err)) return false;
    std::ifstream in(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    if (!in.good() && !in.eof()) {
        err = "cannot read image " + path;
        return false;
    }
    const std::string damage = png_damage(bytes);
    if (!damage.empty()) {
        err = "cannot read image " + path + ": " + damage;
        return false;
    }
    // OpenCV's own warnings would come before our message.
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    try {
        const cv::Mat raw(1, int(std::min(bytes.size(), size_t(INT_MAX))), CV_8U,
                          const_cast<char*>(bytes.data()));
        bgr = bytes.empty() ? cv::Mat() : cv::imdecode(raw, cv::IMREAD_COLOR);
    } catch (const cv::Exception&) {
        bgr.release();
    }
    if (bgr.empty()) {
        err = "cannot read image " + path;
        return false;
    }
    return true;
}

}  // namespace rig
