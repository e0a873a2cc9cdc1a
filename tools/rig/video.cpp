#include "rig/video.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "rig/outputs.h"

namespace rig {

namespace {

std::string av_error(int code) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof buf);
    return buf;
}

// Where libav's errors go while a reader works on this thread: the first
// one is kept as the reader's complaint (a cut file, say, ends like a whole
// one and only the log tells).
thread_local std::string* g_log_sink = nullptr;

void keep_first_error(void*, int level, const char* fmt, va_list args) {
    if (level > AV_LOG_ERROR || !g_log_sink || !g_log_sink->empty()) return;
    char line[512];
    std::vsnprintf(line, sizeof line, fmt, args);
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    *g_log_sink = text;
}

// libav's own log would come before the tool's one-line messages; the
// readers and writers report what went wrong themselves.
void quiet_libav() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(keep_first_error); });
}

// Routes libav's errors to one string for a scope.
struct LogTo {
    explicit LogTo(std::string* sink) { g_log_sink = sink; }
    ~LogTo() { g_log_sink = nullptr; }
};

// Rounded to nearest, halves away from zero; d > 0.
int divide_rounded(int n, int d) { return n >= 0 ? (n + d / 2) / d : -((-n + d / 2) / d); }

uint8_t clamp_byte(int v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); }

struct RangeTables {
    uint8_t luma[256], chroma[256];
    RangeTables() {
        for (int v = 0; v < 256; ++v) {
            luma[v] = clamp_byte(divide_rounded((v - 16) * 255, 219));
            chroma[v] = clamp_byte(divide_rounded((v - 128) * 255, 224) + 128);
        }
    }
};

const RangeTables& range_tables() {
    static const RangeTables t;
    return t;
}

// The full-range ("J") formats are the plain ones with a range flag;
// swscale wants the plain ones and the range set separately.
AVPixelFormat plain_format(int f, bool& full) {
    switch (f) {
    case AV_PIX_FMT_YUVJ420P: full = true; return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P: full = true; return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P: full = true; return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P: full = true; return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P: full = true; return AV_PIX_FMT_YUV411P;
    default: full = false; return AVPixelFormat(f);
    }
}

}  // namespace

uint8_t limited_to_full_luma(uint8_t y) { return range_tables().luma[y]; }
uint8_t limited_to_full_chroma(uint8_t c) { return range_tables().chroma[c]; }

void limited_to_full_yuyv(uint8_t* yuyv, size_t bytes) {
    const RangeTables& t = range_tables();
    for (size_t i = 0; i + 1 < bytes; i += 2) {
        yuyv[i] = t.luma[yuyv[i]];
        yuyv[i + 1] = t.chroma[yuyv[i + 1]];
    }
}

// ---------------------------------------------------------------- reading

struct VideoReader::State {
    AVFormatContext* fmt = nullptr;
    AVCodecContext* dec = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    SwsContext* sws = nullptr;
    int stream = -1;
    bool draining = false, ended = false;
    VideoRange range = VideoRange::kUnspecified;
    long frames = 0;
    double fps = 0;
    std::string path, complaint;

    ~State() {
        sws_freeContext(sws);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&dec);
        avformat_close_input(&fmt);
    }
    void complain(const std::string& why) {
        if (complaint.empty()) complaint = why;
    }
    // Next decoded frame into `frame`; false at the end.
    bool decode();
    bool convert(uint8_t* dst);
};

VideoReader::VideoReader() : s_(new State) {}
VideoReader::~VideoReader() = default;

bool VideoReader::open(const std::string& path, std::string& err) {
    quiet_libav();
    s_.reset(new State);
    State& s = *s_;
    s.path = path;
    auto fail = [&](const std::string& why) {
        err = "cannot read video " + path + ": " + why;
        s_.reset(new State);
        return false;
    };
    int rc = avformat_open_input(&s.fmt, path.c_str(), nullptr, nullptr);
    if (rc < 0) return fail(av_error(rc));
    if ((rc = avformat_find_stream_info(s.fmt, nullptr)) < 0) return fail(av_error(rc));
    const AVCodec* codec = nullptr;
    s.stream = av_find_best_stream(s.fmt, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (s.stream < 0 || !codec) return fail(s.stream == AVERROR_DECODER_NOT_FOUND ? "no decoder for its video"
                                                                              : "no video stream");
    const AVStream* st = s.fmt->streams[s.stream];
    s.dec = avcodec_alloc_context3(codec);
    s.frame = av_frame_alloc();
    s.packet = av_packet_alloc();
    if (!s.dec || !s.frame || !s.packet) return fail("out of memory");
    if ((rc = avcodec_parameters_to_context(s.dec, st->codecpar)) < 0 ||
        (rc = avcodec_open2(s.dec, codec, nullptr)) < 0)
        return fail(av_error(rc));
    if (s.dec->width <= 0 || s.dec->height <= 0) return fail("no frame size");
    if (st->avg_frame_rate.num > 0 && st->avg_frame_rate.den > 0) s.fps = av_q2d(st->avg_frame_rate);
    return true;
}

cv::Size VideoReader::size() const { return s_->dec ? cv::Size(s_->dec->width, s_->dec->height) : cv::Size(); }
double VideoReader::fps() const { return s_->fps; }
VideoRange VideoReader::range() const { return s_->range; }
long VideoReader::frames_read() const { return s_->frames; }
const std::string& VideoReader::path() const { return s_->path; }
const std::string& VideoReader::complaint() const { return s_->complaint; }

bool VideoReader::State::decode() {
    LogTo log(&complaint);
    while (!ended) {
        const int rc = avcodec_receive_frame(dec, frame);
        if (rc == 0) return true;
        if (rc != AVERROR(EAGAIN)) {
            if (rc != AVERROR_EOF) complain(av_error(rc));
            ended = true;
            break;
        }
        if (draining) {  // cannot happen: a draining decoder ends with EOF
            ended = true;
            break;
        }
        const int got = av_read_frame(fmt, packet);
        if (got < 0) {
            // A cut file ends like a whole one; its reason is kept.
            if (got != AVERROR_EOF) complain(av_error(got));
            draining = true;
            avcodec_send_packet(dec, nullptr);
            continue;
        }
        if (packet->stream_index == stream) {
            const int sent = avcodec_send_packet(dec, packet);
            if (sent < 0 && sent != AVERROR(EAGAIN)) complain(av_error(sent));
        }
        av_packet_unref(packet);
    }
    return false;
}

bool VideoReader::State::convert(uint8_t* dst) {
    if (frame->width != dec->width || frame->height != dec->height) {
        complain("the frame size changes within the video");
        ended = true;
        return false;
    }
    bool full = false;
    const AVPixelFormat src = plain_format(frame->format, full);
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(src);
    const bool rgb = desc && (desc->flags & AV_PIX_FMT_FLAG_RGB);
    full = full || rgb || frame->color_range == AVCOL_RANGE_JPEG;
    range = full ? VideoRange::kFull
                 : frame->color_range == AVCOL_RANGE_MPEG ? VideoRange::kLimited : VideoRange::kUnspecified;
    sws = sws_getCachedContext(sws, frame->width, frame->height, src, frame->width, frame->height,
                               AV_PIX_FMT_YUYV422, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT,
                               nullptr, nullptr, nullptr);
    if (!sws) {
        complain(std::string("cannot convert its pixel format ") +
                 (desc ? desc->name : "(unknown)"));
        ended = true;
        return false;
    }
    // YUV keeps its range; RGB becomes full-range BT.601, as the library
    // computes.
    const int* coeffs = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(sws, coeffs, full && !rgb ? 1 : 0, coeffs, full ? 1 : 0, 0, 1 << 16, 1 << 16);
    uint8_t* planes[4] = {dst, nullptr, nullptr, nullptr};
    int strides[4] = {2 * frame->width, 0, 0, 0};
    sws_scale(sws, frame->data, frame->linesize, 0, frame->height, planes, strides);
    return true;
}

bool VideoReader::read(uint8_t* dst) {
    State& s = *s_;
    if (!s.dec || !s.decode()) return false;
    const bool ok = s.convert(dst);
    av_frame_unref(s.frame);
    if (ok) ++s.frames;
    return ok;
}

// ---------------------------------------------------------------- writing

struct VideoWriter::State {
    std::string path, what;
    cv::Size size;
    // Raw to stdout.
    int raw_fd = -1;
    // Encoded.
    OutputFile file;
    std::string io_error;
    std::pair<OutputFile*, std::string*> io{&file, &io_error};  // for the AVIO callbacks
    AVFormatContext* oc = nullptr;
    AVCodecContext* enc = nullptr;
    AVStream* st = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    int64_t next_pts = 0;

    ~State() {
        if (raw_fd >= 0) ::close(raw_fd);
        if (oc && oc->pb) {
            av_freep(&oc->pb->buffer);
            avio_context_free(&oc->pb);
        }
        avformat_free_context(oc);
        avcodec_free_context(&enc);
        av_frame_free(&frame);
        av_packet_free(&packet);
    }
    bool drain(std::string& err);
};

namespace {

int write_packet(void* opaque, uint8_t* buf, int size) {
    auto* state = static_cast<std::pair<OutputFile*, std::string*>*>(opaque);
    std::string err;
    if (state->second->empty() && !state->first->write(buf, size_t(size), err)) *state->second = err;
    return state->second->empty() ? size : AVERROR(EIO);
}

int64_t seek_file(void* opaque, int64_t offset, int whence) {
    auto* state = static_cast<std::pair<OutputFile*, std::string*>*>(opaque);
    if (whence & AVSEEK_SIZE) return -1;
    std::string err;
    const long long at = state->first->seek(offset, whence & ~AVSEEK_FORCE, err);
    if (at < 0 && state->second->empty()) *state->second = err;
    return at < 0 ? AVERROR(EIO) : at;
}

bool write_all(int fd, const uint8_t* data, size_t bytes) {
    while (bytes) {
        const ssize_t n = ::write(fd, data, bytes);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        bytes -= size_t(n);
    }
    return true;
}

}  // namespace

VideoWriter::VideoWriter() : s_(new State) {}
VideoWriter::~VideoWriter() = default;

std::string VideoWriter::description() const { return s_->what; }

bool VideoWriter::open(const std::string& path, cv::Size size, double fps, std::string& err) {
    quiet_libav();
    s_.reset(new State);
    State& s = *s_;
    s.path = path;
    s.size = size;
    if (path == "-") {
        // The frames get stdout to themselves: anything else printed from
        // here on (the library's own lines included) goes to stderr.
        std::fflush(stdout);
        s.raw_fd = dup(STDOUT_FILENO);
        if (s.raw_fd < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
            err = "cannot write to stdout: " + std::string(std::strerror(errno));
            return false;
        }
        // A reader that goes away is a failed write, not a silent death.
        std::signal(SIGPIPE, SIG_IGN);
        s.what = "raw NV12 on stdout";
        return true;
    }
    auto fail = [&](const std::string& why) {
        err = "cannot write " + path + ": " + why;
        s_.reset(new State);
        return false;
    };
    if (avformat_alloc_output_context2(&s.oc, nullptr, nullptr, path.c_str()) < 0 || !s.oc)
        return fail("unknown video format (name it .mp4 or .mkv)");
    const AVOutputFormat* of = s.oc->oformat;
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (!codec || avformat_query_codec(of, AV_CODEC_ID_H264, FF_COMPLIANCE_NORMAL) != 1)
        codec = avcodec_find_encoder(AV_CODEC_ID_FFV1);
    if (!codec || avformat_query_codec(of, codec->id, FF_COMPLIANCE_NORMAL) != 1)
        return fail(std::string(of->name) + " takes neither H.264 nor FFV1 (name it .mkv)");
    s.enc = avcodec_alloc_context3(codec);
    s.frame = av_frame_alloc();
    s.packet = av_packet_alloc();
    if (!s.enc || !s.frame || !s.packet) return fail("out of memory");
    const AVRational rate = av_d2q(fps > 0 ? fps : 25, 100000);
    s.enc->width = size.width;
    s.enc->height = size.height;
    s.enc->time_base = av_inv_q(rate);
    s.enc->framerate = rate;
    s.enc->pix_fmt = codec->id == AV_CODEC_ID_H264 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
    // What the library computes: full range, BT.601.
    s.enc->color_range = AVCOL_RANGE_JPEG;
    s.enc->colorspace = AVCOL_SPC_SMPTE170M;
    s.enc->color_primaries = AVCOL_PRI_SMPTE170M;
    s.enc->color_trc = AVCOL_TRC_SMPTE170M;
    if (of->flags & AVFMT_GLOBALHEADER) s.enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (codec->id == AV_CODEC_ID_H264) {
        av_opt_set(s.enc->priv_data, "preset", "veryfast", 0);
        av_opt_set(s.enc->priv_data, "crf", "18", 0);
    }
    int rc = avcodec_open2(s.enc, codec, nullptr);
    if (rc < 0) return fail("cannot open the " + std::string(codec->name) + " encoder: " + av_error(rc));
    s.st = avformat_new_stream(s.oc, nullptr);
    if (!s.st || avcodec_parameters_from_context(s.st->codecpar, s.enc) < 0) return fail("out of memory");
    s.st->time_base = s.enc->time_base;

    if (!s.file.open(path, err)) {
        s_.reset(new State);
        return false;
    }
    const int kIoBytes = 1 << 16;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBytes));
    s.oc->pb = buffer ? avio_alloc_context(buffer, kIoBytes, 1, &s.io, nullptr, write_packet, seek_file)
                      : nullptr;
    if (!s.oc->pb) {
        av_free(buffer);
        return fail("out of memory");
    }
    if ((rc = avformat_write_header(s.oc, nullptr)) < 0)
        return fail(s.io_error.empty() ? av_error(rc) : s.io_error);
    s.frame->format = s.enc->pix_fmt;
    s.frame->width = size.width;
    s.frame->height = size.height;
    s.frame->color_range = AVCOL_RANGE_JPEG;
    if (av_frame_get_buffer(s.frame, 0) < 0) return fail("out of memory");
    s.what = std::string(codec->id == AV_CODEC_ID_H264 ? "H.264" : "FFV1 (lossless)") + " (" +
             codec->name + ") in " + of->name;
    return true;
}

bool VideoWriter::State::drain(std::string& err) {
    for (;;) {
        int rc = avcodec_receive_packet(enc, packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
        if (rc < 0) {
            err = "cannot write " + path + ": " + av_error(rc);
            return false;
        }
        av_packet_rescale_ts(packet, enc->time_base, st->time_base);
        packet->stream_index = st->index;
        rc = av_interleaved_write_frame(oc, packet);
        if (rc < 0) {
            err = io_error.empty() ? "cannot write " + path + ": " + av_error(rc) : io_error;
            return false;
        }
    }
}

bool VideoWriter::write(const uint8_t* nv12, std::string& err) {
    State& s = *s_;
    const size_t luma = size_t(s.size.width) * s.size.height;
    if (s.raw_fd >= 0) {
        if (write_all(s.raw_fd, nv12, luma * 3 / 2)) return true;
        err = "cannot write to stdout: " + std::string(std::strerror(errno));
        return false;
    }
    if (!s.enc) {
        err = "cannot write " + s.path;
        return false;
    }
    int rc = av_frame_make_writable(s.frame);
    if (rc < 0) {
        err = "cannot write " + s.path + ": " + av_error(rc);
        return false;
    }
    const int w = s.size.width, h = s.size.height;
    for (int y = 0; y < h; ++y) std::memcpy(s.frame->data[0] + size_t(y) * s.frame->linesize[0], nv12 + size_t(y) * w, size_t(w));
    const uint8_t* uv = nv12 + luma;
    for (int y = 0; y < h / 2; ++y) {
        const uint8_t* row = uv + size_t(y) * w;
        if (s.enc->pix_fmt == AV_PIX_FMT_NV12) {
            std::memcpy(s.frame->data[1] + size_t(y) * s.frame->linesize[1], row, size_t(w));
            continue;
        }
        uint8_t* u = s.frame->data[1] + size_t(y) * s.frame->linesize[1];
        uint8_t* v = s.frame->data[2] + size_t(y) * s.frame->linesize[2];
        for (int x = 0; x < w / 2; ++x) u[x] = row[2 * x], v[x] = row[2 * x + 1];
    }
    s.frame->pts = s.next_pts++;
    rc = avcodec_send_frame(s.enc, s.frame);
    if (rc < 0) {
        err = "cannot write " + s.path + ": " + av_error(rc);
        return false;
    }
    return s.drain(err);
}

bool VideoWriter::close(std::string& err) {
    State& s = *s_;
    if (s.raw_fd >= 0) {
        ::close(s.raw_fd);
        s.raw_fd = -1;
        return true;
    }
    if (!s.enc) return true;  // never opened
    int rc = avcodec_send_frame(s.enc, nullptr);
    if (rc < 0 && rc != AVERROR_EOF) {
        err = "cannot write " + s.path + ": " + av_error(rc);
        return false;
    }
    if (!s.drain(err)) return false;
    rc = av_write_trailer(s.oc);
    avio_flush(s.oc->pb);
    if (rc < 0 || !s.io_error.empty()) {
        err = s.io_error.empty() ? "cannot write " + s.path + ": " + av_error(rc) : s.io_error;
        return false;
    }
    if (!s.file.commit(err)) return false;
    avcodec_free_context(&s.enc);
    return true;
}

}  // namespace rig
