// Instruction-set detection and the level switch the kernel tests rely on.
#include <gtest/gtest.h>

#include <cstdio>

#include "simd/isa.h"

namespace {

const char* TargetArch() {
#if defined(__x86_64__)
    return "x86_64";
#elif defined(__i386__)
    return "i386";
#elif defined(__aarch64__)
    return "aarch64";
#elif defined(__arm__)
    return "arm";
#else
    return "other";
#endif
}

// Restores the detected level whatever a test leaves behind.
class Isa : public ::testing::Test {
protected:
    void TearDown() override { svc::SetIsa(svc::CpuIsa()); }
};

// One line that cross and native runs alike show (ctest -V), so a log says
// which kernels the byte-exactness suites went through.
TEST_F(Isa, ReportsTheLevelInForce) {
    std::printf("svcompose tests: arch %s, instruction set %s\n", TargetArch(),
                svc::IsaName(svc::ActiveIsa()));
    EXPECT_EQ(svc::ActiveIsa(), svc::CpuIsa());
}

// Every aarch64 CPU has Advanced SIMD; 32-bit ARM has only the portable
// kernels, whatever the CPU offers.
TEST_F(Isa, DetectionMatchesTheTarget) {
#if defined(__aarch64__)
    EXPECT_EQ(svc::CpuIsa(), svc::kIsaNeon);
#elif defined(__arm__)
    EXPECT_EQ(svc::CpuIsa(), svc::kIsaScalar);
#else
    GTEST_SKIP() << "x86 levels depend on the CPU";
#endif
}

TEST_F(Isa, ScalarIsAlwaysAvailableAndUnsupportedLevelsAreRefused) {
    EXPECT_EQ(svc::SetIsa(svc::kIsaScalar), svc::kIsaScalar);
    EXPECT_EQ(svc::ActiveIsa(), svc::kIsaScalar);
    EXPECT_EQ(svc::SetIsa(-1), svc::kIsaScalar);
    EXPECT_EQ(svc::SetIsa(99), svc::kIsaScalar);
    // The other family never passes: NEON on x86, x86 levels on ARM.
    const int foreign = svc::CpuIsa() == svc::kIsaNeon ? svc::kIsaSse41 : svc::kIsaNeon;
    EXPECT_EQ(svc::SetIsa(foreign), svc::kIsaScalar);
    EXPECT_EQ(svc::SetIsa(svc::CpuIsa()), svc::CpuIsa());
}

TEST_F(Isa, LevelsBelowTheDetectedOneAreAvailableOnX86) {
    if (svc::CpuIsa() < svc::kIsaSse41 || svc::CpuIsa() > svc::kIsaAvx512)
        GTEST_SKIP() << "no x86 kernel level on this CPU";
    for (int isa = svc::kIsaSse41; isa <= svc::CpuIsa(); ++isa)
        EXPECT_EQ(svc::SetIsa(isa), isa);
    if (svc::CpuIsa() < svc::kIsaAvx512) {
        svc::SetIsa(svc::kIsaScalar);
        EXPECT_EQ(svc::SetIsa(svc::CpuIsa() + 1), svc::kIsaScalar);
    }
}

}  // namespace
