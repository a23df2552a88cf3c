/* The public headers as a C program sees them. */
#include <tarvo/tarvo.h>

#include <stddef.h>
#include <string.h>

int main(void)
{
    ProfileStream stream;
    memset(&stream, 0, sizeof stream);
    if (offsetof(ProfileStream, profile) != 0 || offsetof(ProfileStream, frames) != sizeof(int))
        return 1;
    if (pfGetPKey(1) != 4098 || strcmp(rbGetTypeStr(74), "JPEG") != 0) return 1;
    return rbGetWidth(0x10) == 320 && rbGetHeight2[2] == 120 ? 0 : 1;
}
