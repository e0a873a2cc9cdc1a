// Scratch file names for tests. ctest runs every test as its own process,
// several at once and possibly from two build trees: the process id keeps
// their files apart.
#ifndef TESTS_COMMON_SCRATCH_H
#define TESTS_COMMON_SCRATCH_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

inline std::string ScratchPath(const std::string& name) {
    return ::testing::TempDir() + "sv" + std::to_string(getpid()) + "_" + name;
}

#endif
