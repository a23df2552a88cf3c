// The 32-bit side of the two-width exchange: width_peer CHANNEL_KEY PROFILE.
// Exits 0, or with the number of the step that failed.
#include "width_exchange.h"

#include <cstdlib>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    return tarvo::test::widths::exchange(std::atoi(argv[1]), std::atoi(argv[2]), false);
}
