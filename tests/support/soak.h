// The length of a soak suite's run (`SUITE [--seconds=N]`, 3 s by default),
// and what its processes share.
#pragma once

#include <gtest/gtest.h>

#include <sys/mman.h>

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

// Zeroed memory for a run's counters, shared with every process forked
// from this one and mapped for the rest of this process's life; null when
// none could be mapped.
template <typename Counters> Counters *sharedCounters()
{
    void *memory =
        mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Counters *>(memory);
}

} // namespace tarvo::test
