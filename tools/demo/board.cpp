// The board's mapping.
#include "board.h"

#include <sys/mman.h>

namespace demo
{

Board *makeBoard()
{
    void *memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Board();
}

} // namespace demo
