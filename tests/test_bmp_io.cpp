#include "bmp_io.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include <sys/stat.h>
#include <string>
#include <tuple>
#include <vector>

#include "common/scratch.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Image {
    int w = 0, h = 0;
    std::array<std::vector<int>, 3> rgb;
};

Image Random(int w, int h) {
    std::mt19937 rng(w * 1000 + h);
    Image im{w, h, {}};
    for (auto& plane : im.rgb)
        for (int i = 0; i < w * h; ++i) plane.push_back(rng() & 255);
    return im;
}

const std::string kRead = "\nBMP_READ: Fatal error!\n";
const std::string kHeaderFailed = kRead + "  BMP_READ_HEADER failed.\n";
const std::string kDataFailed = "BMP_READ_DATA: Failed reading data byte 0.\n" + kRead + "  BMP_READ_DATA failed.\n";

class BmpIo : public ::testing::Test {
protected:
    void TearDown() override { byte_swap = 1; }
    std::string Path(const std::string& ext = ".bmp") {
        return ScratchPath(std::string("bmp_") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ext);
    }
    static Bytes Load(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    static void Save(const std::string& path, const Bytes& b) {
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), b.size());
    }
    static int Write(std::string path, Image& im) {
        return bmp_write(&path[0], im.w, im.h, im.rgb[0].data(), im.rgb[1].data(), im.rgb[2].data());
    }
    // Returns what bmp_read printed; a failed read must leave no plane.
    static std::string Read(std::string path, Image* im, int expect = 0) {
        int* p[3] = {};
        testing::internal::CaptureStdout();
        EXPECT_EQ(expect, bmp_read(&path[0], &im->w, &im->h, &p[0], &p[1], &p[2]));
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(expect != 0, p[c] == nullptr);
            if (p[c] && im->w > 0 && im->h > 0) im->rgb[c].assign(p[c], p[c] + im->w * im->h);
            delete[] p[c];
        }
        return testing::internal::GetCapturedStdout();
    }
};

// Rows bottom-up, blue first, padded with (3 * width) % 4 zeros the size field leaves out.
TEST_F(BmpIo, ExactBytesAndRoundTripInBothByteOrders) {
    for (int w = 1; w <= 9; ++w) {
        for (int h : {1, 3, 7}) {
            Image im = Random(w, h), back;
            ASSERT_EQ(0, Write(Path(), im));
            Bytes want = {'B', 'M', uint8_t(3 * w * h + 54), 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0, 40, 0, 0, 0,
                          uint8_t(w), 0, 0, 0, uint8_t(h), 0, 0, 0, 1, 0, 24, 0};
            want.resize(54, 0);
            for (int i = h - 1; i >= 0; --i) {
                for (int j = 0; j < w; ++j)
                    for (int c : {2, 1, 0}) want.push_back(im.rgb[c][i * w + j]);
                want.resize(want.size() + 3 * w % 4, 0);
            }
            EXPECT_EQ(want, Load(Path())) << w << " x " << h;
            EXPECT_EQ("", Read(Path(), &back));
            EXPECT_TRUE(back.w == w && back.h == h && back.rgb == im.rgb) << w << " x " << h;
        }
    }
    byte_swap = 0;
    Image im = Random(200, 1), back;
    ASSERT_EQ(0, Write(Path(), im));
    const Bytes f = Load(Path());
    EXPECT_EQ(Bytes({0, 0, 0, 200}), Bytes(f.begin() + 18, f.begin() + 22));
    Read(Path(), &back);
    EXPECT_TRUE(back.w == 200 && back.h == 1 && back.rgb == im.rgb);
}

TEST_F(BmpIo, FailuresAreReportedAndLeaveNoPlane) {
    Image im = Random(5, 3), back;  // rows of 15 + 3 bytes: 108 in all
    ASSERT_EQ(0, Write(Path(), im));
    const Bytes full = Load(Path());
    // Inside the header; at a blue, green and red byte, the last of which
    // is red[0]'s (the top-left pixel comes last); only padding missing.
    for (size_t size : {30, 54, 55, 56, 90, 91, 92, 105}) {
        Save(Path(".cut"), Bytes(full.begin(), full.begin() + size));
        EXPECT_EQ(size == 105 ? "" : size == 30 ? kHeaderFailed : kDataFailed, Read(Path(".cut"), &back, size != 105)) << size;
    }
    EXPECT_EQ("\nBMP_READ - Fatal error!\n  Could not open the input file.\n", Read(Path(".none"), &back, 1));
}

// The header's sizes and offset are taken as given; the pixel data the
// file holds decides the outcome, before anything is allocated for it.
TEST_F(BmpIo, HeaderValuesAsGivenAndFileLengthDecides) {
    Image im = Random(5, 3), back;
    ASSERT_EQ(0, Write(Path(), im));
    const Bytes full = Load(Path());
    auto put = [](Bytes& f, int at, unsigned v) { for (int k = 0; k < 4; ++k) f[at + k] = v >> 8 * k; };
    const struct {
        unsigned width, height, offset;
        int result;
    } kCases[] = {
        {0, 3, 54, 0},                // no pixel to read
        {0, 0x7fffffffu, 54, 0},      // nor in 2^31 - 1 rows, and no time spent on them
        {5, ~0u, 54, 0},              // height -1: no row
        {5, 3, 1u << 31, 0},          // the seek fails: rows start after the header
        {32769, 1, 54, 1},            // wider than the file
        {16384, 16384, 54, 1},        // 48 bytes a pixel would be 12 GiB
        {0x7fffffff, 0x7fffffff, 54, 1},
    };
    for (const auto& c : kCases) {
        Bytes f = full;
        put(f, 18, c.width), put(f, 22, c.height), put(f, 10, c.offset);
        Save(Path(".bad"), f);
        EXPECT_EQ(c.result ? kDataFailed : "", Read(Path(".bad"), &back, c.result)) << c.width << " x " << c.height;
        EXPECT_EQ(back.w, int(c.width));
        EXPECT_EQ(back.h, int(c.height));
        if (c.offset != 54) {
            EXPECT_EQ(back.rgb, im.rgb);
        }
    }
    Image wide = Random(40000, 1);
    ASSERT_EQ(0, Write(Path(), wide));
    EXPECT_EQ("", Read(Path(), &back));
    EXPECT_TRUE(back.w == 40000 && back.h == 1 && back.rgb == wide.rgb);
}

// Only red[0] is tested after a red byte: a file ending at the last pixel's
// red byte reads, with -1 there. Also through a stream that cannot seek.
TEST_F(BmpIo, LastRedByteMissingReadsAsEndOfFile) {
    Image im = Random(2, 1), back;
    ASSERT_EQ(0, Write(Path(), im));
    Bytes cut = Load(Path());
    cut.resize(59);
    Save(Path(".cut"), cut);
    const std::string fifo = Path(".fifo");
    std::remove(fifo.c_str());
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const std::string& path : {Path(".cut"), fifo}) {
        std::thread feed;
        if (path == fifo) feed = std::thread([&] { Save(fifo, cut); });
        EXPECT_EQ("", Read(path, &back)) << path;
        if (feed.joinable()) feed.join();
        EXPECT_EQ(back.rgb[0], std::vector<int>({im.rgb[0][0], -1})) << path;
        EXPECT_EQ(back.rgb[2], im.rgb[2]) << path;
    }
    int* p[3] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(1, bmp_read(&Path()[0], &back.w, &back.h, nullptr, &p[1], &p[2]));
    EXPECT_EQ(1, Write("/dev/full", im));  // a full disk shows only at the flush
    EXPECT_EQ(kRead + "  Could not allocate data storage.\n"
                      "\nBMP_WRITE: Fatal error!\n  BMP_WRITE_DATA failed.\n",
              testing::internal::GetCapturedStdout());
}

TEST_F(BmpIo, SelfTestsDrawAndPrint) {
    std::string path = Path(), nowhere = ::testing::TempDir() + "no_such_dir/x.bmp";
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, bmp_write_test(&path[0]));
    EXPECT_EQ(0, bmp_read_test(&path[0]));
    EXPECT_EQ(1, bmp_write_test(&nowhere[0]));
    EXPECT_EQ(1, bmp_read_test(&nowhere[0]));
    EXPECT_EQ("\nBMP_READ_TEST:\n  XSIZE = 200.\n  YSIZE = 200.\n"
              "\nBMP_WRITE - Fatal error!\n  Could not open the output file.\n"
              "\nBMP_WRITE_TEST: Fatal error!\n  BMP_WRITE failed.\n"
              "\nBMP_READ - Fatal error!\n  Could not open the input file.\n"
              "\nBMP_READ_TEST:\n  XSIZE = 0.\n  YSIZE = 0.\n"
              "\nBMP_READ_TEST: Fatal error!\n  BMP_READ failed.\n",
              testing::internal::GetCapturedStdout());
    Image im;
    Read(path, &im);
    // Red top-left and bottom-left, blue bottom-right, green at row 199, column 100.
    for (auto [i, j, lit] : {std::tuple{0, 0, 0}, {199, 0, 0}, {199, 199, 2}, {199, 100, 1}})
        for (int c = 0; c < 3; ++c) EXPECT_EQ(c == lit ? 255 : 0, im.rgb[c][i * 200 + j]) << i << "," << j;
}

// Where our padding is the usual four-byte alignment a real decoder must agree.
TEST_F(BmpIo, StandardDecoderAgreesForEvenPaddingWidths) {
    if (std::system("command -v convert >/dev/null 2>&1") != 0) GTEST_SKIP() << "convert absent";
    for (int w : {4, 6, 10, 202}) {
        Image im = Random(w, 5);
        ASSERT_EQ(0, Write(Path(), im));
        std::remove(Path(".ppm").c_str());
        // The size field leaves padding out: convert warns, exits 1, decodes.
        std::system(("convert '" + Path() + "' ppm:'" + Path(".ppm") + "' 2>/dev/null").c_str());
        const std::string head = "P6\n" + std::to_string(w) + " 5\n255\n";
        Bytes want(head.begin(), head.end());
        for (int i = 0; i < w * 5; ++i)
            for (auto& plane : im.rgb) want.push_back(plane[i]);
        EXPECT_EQ(want, Load(Path(".ppm"))) << w;
    }
}

}  // namespace
