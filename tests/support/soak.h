// The length of a soak suite's run: `SUITE [--seconds=N]`, 3 s by default.
#ifndef TARVO_TESTS_SOAK_H
#define TARVO_TESTS_SOAK_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace tarvo::test
{

inline int soakSeconds = 3;

// The main of a soak suite: GoogleTest's options, and --seconds=N.
inline int runSoak(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; i++)
        if (std::strncmp(argv[i], "--seconds=", 10) == 0)
            soakSeconds = std::atoi(argv[i] + 10);
    return RUN_ALL_TESTS();
}

} // namespace tarvo::test

#endif
